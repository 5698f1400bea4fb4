#!/usr/bin/env bash
# Lazy composition copied into a stored machine (ours) against the peer's fstcompose (Debian
# package libfst-tools) on binary files, operands sorted beforehand (not timed): (a) a lexicon
# closure of N words composed with N/10 sentences of those words, (b) N words through a chain of
# three rewrite transducers. Rounds interleave ours and the peer's; medians of wall time (whole
# processes, loading included) and peak memory (the peer: its largest process).
# Usage: bench/compose_vs_peer.sh [BUILD_DIR [SIZES [ROUNDS]]]
set -euo pipefail
build=${1:-build} sizes=${2:-"10000 100000"} rounds=${3:-3}
command -v fstcompose >/dev/null || { echo "install libfst-tools for the peer's tools"; exit 1; }
probe=$build/bench/t2sfst_formats_probe tool=$build/tools/t2sfst
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
source "$(dirname "$0")/common.sh"
printf '%-9s %-10s %9s %9s %7s %9s %9s %7s\n' words case ours_s peer_s ratio ours_MB peer_MB ratio
for n in $sizes; do
  "$build/bench/t2sfst_bench_inputs" "$work" compose "$n"
  for m in lexicon sentences words r1 r2 r3; do
    "$tool" convert --to binary "$work/$m.fst" "$work/$m.bin"
    fstcompile "$work/$m.att" "$work/$m.ofst"
  done
  fstarcsort --sort_type=olabel "$work/lexicon.ofst" "$work/lexicon.s.ofst"
  fstarcsort --sort_type=ilabel "$work/sentences.ofst" "$work/sentences.s.ofst"
  for r in r1 r2 r3; do fstarcsort --sort_type=ilabel "$work/$r.ofst" "$work/$r.s.ofst"; done
  fstarcsort --sort_type=olabel "$work/words.ofst" "$work/words.s.ofst"
  declare -A ours=() peer=()
  cases=(lexicon rewrite)
  ours[lexicon]="$t $probe compose $work/o.bin $work/lexicon.bin $work/sentences.bin"
  peer[lexicon]="$t fstcompose $work/lexicon.s.ofst $work/sentences.s.ofst $work/p.ofst"
  ours[rewrite]="$t $probe compose $work/o.bin $work/words.bin $work/r1.bin $work/r2.bin $work/r3.bin"
  peer[rewrite]="$t fstcompose $work/words.s.ofst $work/r1.s.ofst | $t fstarcsort --sort_type=olabel | \
    $t fstcompose - $work/r2.s.ofst | $t fstarcsort --sort_type=olabel | $t fstcompose - $work/r3.s.ofst $work/p.ofst"
  for c in "${cases[@]}"; do
    os="" om="" ps="" pm=""
    for ((r = 0; r < rounds; r++)); do
      read -r s mb _ < <(measure "${ours[$c]}"); os+="$s "; om+="$mb "
      read -r s mb _ < <(measure "${peer[$c]}"); ps+="$s "; pm+="$mb "
    done
    o_s=$(tr ' ' '\n' <<<"$os" | grep . | median) p_s=$(tr ' ' '\n' <<<"$ps" | grep . | median)
    o_m=$(tr ' ' '\n' <<<"$om" | grep . | median) p_m=$(tr ' ' '\n' <<<"$pm" | grep . | median)
    printf '%-9s %-10s %9s %9s %7.2f %9s %9s %7.2f\n' "$n" "$c" "$o_s" "$p_s" \
      "$(echo "$p_s $o_s" | awk '{print $1 / $2}')" "$o_m" "$p_m" "$(echo "$p_m $o_m" | awk '{print $1 / $2}')"
    # The same machine size on both sides, as a check that both computed one thing.
    echo "  states: ours $("$tool" info "$work/o.bin" | awk '/^states/ {print $2}'), peer $(fstinfo "$work/p.ofst" | awk '/^# of states/ {print $4}')" >&2
  done
done
