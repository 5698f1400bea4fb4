#!/usr/bin/env bash
# The model builder and the runtime on realistic shapes (bench/realistic_corpus.py): N phrases of
# one to three CMU dictionary words, each with its own written form, so that no two outputs
# repeat. make-model: user-CPU and wall seconds, peak memory, model bytes a phrase in the file
# and held in memory once the runtime has loaded it (mem/phr). Then, in
# interleaved rounds, each beside the hash map of the same phrases doing the same job (model load
# and map building included): whole-line `apply` on 200,000 lines that are each one phrase, and
# `apply --rewrite` on 200,000 recognised-looking lines of 4 to 14 words, one in two holding a
# phrase. Medians of user-CPU and wall seconds. Usage:
#   bench/realistic_model_bench.sh [BUILD_DIR [SIZES [ROUNDS]]]
set -euo pipefail
build=${1:-build} sizes=${2:-"100000 1000000"} rounds=${3:-3}
here=$(cd "$(dirname "$0")" && pwd)
tool=$build/tools/t2sfst lookup=$build/bench/t2sfst_phrase_lookup
held=$build/bench/t2sfst_model_memory
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
source "$(dirname "$0")/common.sh"
run() { run_user "$1"; }
col() { cut -d' ' -f"$1" "$work/$2" | median; }
printf '%-8s %7s %7s %7s %8s %8s %8s | %-7s %8s %8s %8s %8s %6s\n' phrases usr_s wall_s \
  peak_MB B/phrase mem/phr states job ours_usr map_usr ours_s map_s ratio
for n in $sizes; do
  python3 "$here/realistic_corpus.py" "$n" 200000 "$work/g.gram" "$work/transcript.txt" "$work/phrases.txt"
  read -r bu bw bm < <(run "$tool make-model --quiet $work/g.gram $work/m")
  states=$("$tool" info "$work/m" 2>/dev/null | awk '$1=="states"{print $2}')
  bytes=$(stat -c %s "$work/m")
  in_memory=$("$held" "$work/m")
  first=yes
  for job in apply rewrite; do
    if [ "$job" = apply ]; then
      ours="$tool apply $work/m < $work/phrases.txt" map="$lookup $work/g.gram < $work/phrases.txt"
    else
      ours="$tool apply --rewrite $work/m < $work/transcript.txt"
      map="$lookup --rewrite $work/g.gram < $work/transcript.txt"
    fi
    : > "$work/ours"; : > "$work/map"
    for r in $(seq "$rounds"); do run "$ours" >> "$work/ours"; run "$map" >> "$work/map"; done
    ou=$(col 1 ours) mu=$(col 1 map) ow=$(col 2 ours) mw=$(col 2 map)
    if [ -n "$first" ]; then
      printf '%-8s %7s %7s %7s %8s %8s %8s | ' "$n" "$bu" "$bw" "$bm" "$((bytes / n))" \
        "$((in_memory / n))" "$states"
      first=""
    else
      printf '%-8s %7s %7s %7s %8s %8s %8s | ' "" "" "" "" "" "" ""
    fi
    printf '%-7s %8s %8s %8s %8s %6s\n' "$job" "$ou" "$mu" "$ow" "$mw" \
      "$(echo "$ou $mu" | awk '{printf "%.2f", ($2 > 0 ? $1 / $2 : 0)}')"
  done
done
echo "ratio: our user-CPU time over the hash map's (below 1: we are faster)"
