#!/usr/bin/env bash
# Write and load times, peak memory and the time to the first arc for the text, binary and
# memory-mapped formats, on machines of 10^6 and 10^7 arcs; rounds interleave the formats and
# each figure is the median of the rounds. Usage: bench/formats_bench.sh BUILD_DIR [ROUNDS]
set -euo pipefail
probe=$1/bench/t2sfst_formats_probe rounds=${2:-3}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
median() { sort -n | awk '{v[NR]=$1} END {print v[int((NR+1)/2)]}'; }
field() { sed -n "s/.*$1 \([0-9.]*\).*/\1/p"; }
printf '%-9s %-7s %9s %9s %9s %9s %12s %9s\n' arcs format "file MB" write_s "write MB" load_s first_arc_s "load MB"
for n in 1000000 10000000; do
  "$probe" make $n "$work/in.fst"
  declare -A w wm l lm f
  for f_ in text binary mmap; do w[$f_]=""; wm[$f_]=""; l[$f_]=""; lm[$f_]=""; f[$f_]=""; done
  for ((r = 0; r < rounds; r++)); do
    for fmt in text binary mmap; do
      out=$("$probe" write $fmt "$work/in.fst" "$work/m.$fmt")
      w[$fmt]+="$(echo "$out" | field write_s) "; wm[$fmt]+="$(echo "$out" | field peak_MB) "
      out=$("$probe" load "$work/m.$fmt")
      l[$fmt]+="$(echo "$out" | field load_s) "; lm[$fmt]+="$(echo "$out" | field peak_MB) "
      f[$fmt]+="$(echo "$out" | field first_arc_s) "
    done
  done
  for fmt in text binary mmap; do
    size=$(du -m "$work/m.$fmt" | cut -f1)
    printf '%-9s %-7s %9s %9s %9s %9s %12s %9s\n' $n $fmt "$size" \
      "$(tr ' ' '\n' <<<"${w[$fmt]}" | grep . | median)" "$(tr ' ' '\n' <<<"${wm[$fmt]}" | grep . | median)" \
      "$(tr ' ' '\n' <<<"${l[$fmt]}" | grep . | median)" "$(tr ' ' '\n' <<<"${f[$fmt]}" | grep . | median)" \
      "$(tr ' ' '\n' <<<"${lm[$fmt]}" | grep . | median)"
  done
done
