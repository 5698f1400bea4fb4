#!/usr/bin/env bash
# Epsilon removal and determinization, ours against the peer toolkit's command-line tools
# (Debian package libfst-tools), each timed as whole processes that read a text machine and
# write the result as text. Usage: bench/compare_with_peer.sh [BUILD_DIR]
set -euo pipefail
build=${1:-build}
tool=$build/tools/t2sfst
command -v fstcompile >/dev/null || { echo "install libfst-tools for the peer's tools"; exit 1; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$build/bench/t2sfst_bench_inputs" "$work"

# Best of three wall-clock runs, in seconds.
best_of_three() {
  local best=""
  for _ in 1 2 3; do
    local start end
    start=$(date +%s.%N)
    bash -c "$1" >/dev/null
    end=$(date +%s.%N)
    best=$(echo "$start $end ${best:-1e9}" | awk '{t = $2 - $1; print (t < $3 ? t : $3)}')
  done
  echo "$best"
}

printf "%-10s %-12s %10s %10s %8s\n" input operation ours_s peer_s peer/ours
for input in words random; do
  f=$work/$input.fst
  "$tool" convert --to att --symbols "$work/$input.syms" "$f" "$work/$input.att"
  syms=$work/$input.syms
  compile="fstcompile --isymbols=$syms --osymbols=$syms"
  print="fstprint --isymbols=$syms --osymbols=$syms"
  # The determinization inputs are each toolkit's own epsilon-free result.
  "$tool" rmepsilon --acceptor "$f" "$work/$input.noeps.fst"
  $compile "$work/$input.att" | fstrmepsilon | $print > "$work/$input.noeps.att"

  ours=$(best_of_three "$tool rmepsilon --acceptor $f")
  peer=$(best_of_three "$compile $work/$input.att | fstrmepsilon | $print")
  printf "%-10s %-12s %10.3f %10.3f %8.2f\n" "$input" rmepsilon "$ours" "$peer" \
    "$(echo "$peer $ours" | awk '{print $1 / $2}')"
  ours=$(best_of_three "$tool determinize --acceptor $work/$input.noeps.fst")
  peer=$(best_of_three "$compile $work/$input.noeps.att | fstdeterminize | $print")
  printf "%-10s %-12s %10.3f %10.3f %8.2f\n" "$input" determinize "$ours" "$peer" \
    "$(echo "$peer $ours" | awk '{print $1 / $2}')"
done
