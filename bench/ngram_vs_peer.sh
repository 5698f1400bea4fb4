#!/usr/bin/env bash
# A trigram model of about 2x10^6 n-grams estimated from Zipf text (bench/make_arpa.py), ours in
# its compiled binary form (ngram-compile --binary) against sphinxbase's binary trie
# (sphinx_lm_convert, scored by sphinx_lm_eval): compiling from ARPA, loading (scoring one
# word), scoring 2x10^6 held-out words. Rounds interleave ours and the peer's; medians of
# user-CPU and wall seconds and peak memory; bytes per n-gram of each file.
#   bench/ngram_vs_peer.sh [BUILD_DIR [TOKENS [ROUNDS]]]
set -euo pipefail
build=${1:-build} tokens=${2:-1500000} rounds=${3:-5}
command -v sphinx_lm_eval >/dev/null || { echo "install sphinxbase-utils for the peer's tools"; exit 1; }
here=$(cd "$(dirname "$0")" && pwd)
tool=$build/tools/t2sfst
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
n=$(python3 "$here/make_arpa.py" "$work" "$tokens" 2000000 | cut -d' ' -f1)
words=$(wc -w < "$work/heldout.txt")
source "$(dirname "$0")/common.sh"
run() { run_user "$1"; }
declare -A jobs=(
  [compile.ours]="$tool ngram-compile --binary $work/model.arpa $work/ours.bin"
  [compile.peer]="sphinx_lm_convert -i $work/model.arpa -o $work/peer.bin"
  [load.ours]="$tool ngram-score $work/ours.bin w1"
  [load.peer]="sphinx_lm_eval -lm $work/peer.bin -text w1"
  [score.ours]="$tool ngram-score --perplexity $work/ours.bin < $work/heldout.txt"
  [score.peer]="sphinx_lm_eval -lm $work/peer.bin -lsn $work/heldout.txt"
)
echo "n-grams $n, held-out words $words"
printf '%-8s %9s %9s %8s %8s %6s %7s %7s\n' step ours_usr peer_usr ours_s peer_s ratio ours_MB peer_MB
for step in compile load score; do
  : > "$work/$step.ours"; : > "$work/$step.peer"
  for r in $(seq "$rounds"); do
    run "${jobs[$step.ours]}" >> "$work/$step.ours"
    run "${jobs[$step.peer]}" >> "$work/$step.peer"
  done
  ou=$(cut -d' ' -f1 "$work/$step.ours" | median) pu=$(cut -d' ' -f1 "$work/$step.peer" | median)
  ow=$(cut -d' ' -f2 "$work/$step.ours" | median) pw=$(cut -d' ' -f2 "$work/$step.peer" | median)
  om=$(cut -d' ' -f3 "$work/$step.ours" | median) pm=$(cut -d' ' -f3 "$work/$step.peer" | median)
  printf '%-8s %9s %9s %8s %8s %6s %7s %7s\n' "$step" "$ou" "$pu" "$ow" "$pw" \
    "$(echo "$ow $pw" | awk '{printf "%.2f", ($2 > 0 ? $1 / $2 : 0)}')" "$om" "$pm"
  [ "$step" = load ] && lo=$ow lp=$pw
  [ "$step" = score ] && so=$ow sp=$pw
done
echo "bytes per n-gram: ours $(( $(stat -c %s "$work/ours.bin") / n )), peer $(( $(stat -c %s "$work/peer.bin") / n ))"
awk -v w="$words" -v so="$so" -v sp="$sp" -v lo="$lo" -v lp="$lp" 'BEGIN {
  printf "words/s scored (wall, load left out): ours %.0f, peer %.0f\n", w / (so - lo), w / (sp - lp) }'
