#!/usr/bin/env bash
# FSTOptimizeA (t2sfst optimize --pipeline A) against the peer toolkit's
# fstrmepsilon | fstdeterminize | fstminimize (Debian package libfst-tools) on unions of
# 10,000, 100,000 and 1,000,000 random weighted words: whole processes reading and writing
# text, wall time and peak resident memory (for the peer's pipeline, its largest process). Usage: bench/optimize_vs_peer.sh [BUILD_DIR [SIZES]]
set -euo pipefail
build=${1:-build}
sizes=${2:-"10000 100000 1000000"}
tool=$build/tools/t2sfst
command -v fstcompile >/dev/null || { echo "install libfst-tools for the peer's tools"; exit 1; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Runs a command under GNU time; prints "seconds peak_kB" (peak: the largest process).
measure() {
  local log=$work/time.log
  : > "$log"
  local start end
  start=$(date +%s.%N)
  bash -c "$1" 2>>"$log" >/dev/null
  end=$(date +%s.%N)
  local peak
  peak=$(grep -o 'PEAK=[0-9]*' "$log" | cut -d= -f2 | sort -n | tail -1)
  echo "$(echo "$start $end" | awk '{print $2 - $1}') ${peak:-0}"
}
t="/usr/bin/time -f PEAK=%M"

printf "%-8s %9s %9s %7s %10s %10s %7s\n" words ours_s peer_s ratio ours_MB peer_MB ratio
for n in $sizes; do
  "$build/bench/t2sfst_bench_inputs" "$work" words "$n"
  f=$work/words_$n.fst
  "$tool" convert --to att --symbols "$work/syms" "$f" "$work/in.att"
  read -r ours_s ours_kb < <(measure "$t $tool optimize --pipeline A $f $work/ours.fst")
  # Both read text and write text: the peer compiles the same machine in AT&T form and prints.
  read -r peer_s peer_kb < <(measure "$t fstcompile --isymbols=$work/syms \
    --osymbols=$work/syms $work/in.att | $t fstrmepsilon | $t fstdeterminize | $t fstminimize | \
    $t fstprint --isymbols=$work/syms --osymbols=$work/syms > $work/peer.att")
  printf "%-8s %9.2f %9.2f %7.2f %10.1f %10.1f %7.2f\n" "$n" "$ours_s" "$peer_s" \
    "$(echo "$peer_s $ours_s" | awk '{print $1 / $2}')" "$(echo "$ours_kb" | awk '{print $1/1024}')" \
    "$(echo "$peer_kb" | awk '{print $1/1024}')" "$(echo "$peer_kb $ours_kb" | awk '{print $1 / $2}')"
done
