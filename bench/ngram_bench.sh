#!/usr/bin/env bash
# A trigram model of about 10^6 n-grams (bench/make_arpa.py): compile time and memory, load
# time, memory per n-gram, scoring throughput in words per second (medians of ROUNDS).
# Usage: bench/ngram_bench.sh [BUILD_DIR [TOKENS [ROUNDS]]]
set -euo pipefail
build=${1:-build} tokens=${2:-1500000} rounds=${3:-3}
tool=$build/tools/t2sfst
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
n=$(python3 "$(dirname "$0")/make_arpa.py" "$work" "$tokens" | cut -d' ' -f1)
words=$(wc -w < "$work/heldout.txt")
median() { sort -n | awk '{v[NR]=$1} END {print v[int((NR+1)/2)]}'; }
run() {  # command -> "seconds peak_MB"
  /usr/bin/time -f "%e %M" -o "$work/t" bash -c "$1" > /dev/null 2>&1 || true
  awk '{printf "%s %.1f\n", $1, $2 / 1024}' "$work/t"
}
c_s="" c_m="" l_s="" l_m="" s_s=""
for ((r = 0; r < rounds; r++)); do
  read -r s m < <(run "$tool ngram-compile $work/model.arpa $work/model.ngram"); c_s+="$s "; c_m+="$m "
  read -r s m < <(run "$tool ngram-score $work/model.ngram w1"); l_s+="$s "; l_m+="$m "
  read -r s m < <(run "$tool ngram-score $work/model.ngram < $work/heldout.txt"); s_s+="$s "
done
cs=$(tr ' ' '\n' <<<"$c_s" | grep . | median) cm=$(tr ' ' '\n' <<<"$c_m" | grep . | median)
ls=$(tr ' ' '\n' <<<"$l_s" | grep . | median) lm=$(tr ' ' '\n' <<<"$l_m" | grep . | median)
ss=$(tr ' ' '\n' <<<"$s_s" | grep . | median)
echo "n-grams $n, held-out words $words"
echo "compile (ARPA -> model): $cs s, peak $cm MB"
echo "load (model, one sentence): $ls s, peak $lm MB, $(awk -v m="$lm" -v n="$n" 'BEGIN {printf "%.0f", m * 1048576 / n}') bytes per n-gram"
echo "scoring: $(awk -v w="$words" -v s="$ss" -v l="$ls" 'BEGIN {printf "%.0f", w / (s - l)}') words/s (load time left out)"
