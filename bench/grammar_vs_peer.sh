#!/usr/bin/env bash
# Compiling JSGF: a grammar of 100,000 alternatives of 1-4 words and a grammar of 1,000 rules
# calling each other, with `t2sfst compile-grammar` (optimised, as the model builder does);
# the first also with Debian's sphinx_jsgf2fsg (package sphinxbase-utils) when installed.
# Wall time and peak resident memory. Usage: bench/grammar_vs_peer.sh [BUILD_DIR]
set -euo pipefail
build=${1:-build}
tool=$build/tools/t2sfst
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$build/bench/t2sfst_bench_inputs" "$work" alternatives 100000
"$build/bench/t2sfst_bench_inputs" "$work" rules 1000

measure() {
  local start end peak
  start=$(date +%s.%N)
  /usr/bin/time -f "PEAK=%M" -o "$work/time.log" bash -c "$1" >/dev/null 2>&1
  end=$(date +%s.%N)
  peak=$(grep -o 'PEAK=[0-9]*' "$work/time.log" | cut -d= -f2)
  printf "%8.2f s %8.1f MB" "$(echo "$start $end" | awk '{print $2 - $1}')" \
    "$(echo "$peak" | awk '{print $1 / 1024}')"
}

printf "%-28s %-12s %s\n" grammar tool "time, peak memory"
printf "%-28s %-12s %s\n" "100,000 alternatives" t2sfst \
  "$(measure "$tool compile-grammar $work/alternatives.gram -o $work/a.fst")"
if command -v sphinx_jsgf2fsg >/dev/null; then
  printf "%-28s %-12s %s\n" "100,000 alternatives" sphinx \
    "$(measure "sphinx_jsgf2fsg -jsgf $work/alternatives.gram -fsg $work/a.fsg")"
fi
printf "%-28s %-12s %s\n" "1,000 rules" t2sfst \
  "$(measure "$tool compile-grammar $work/rules.gram -o $work/r.fst")"
printf "%-28s %-12s %s\n" "1,000 rules, not optimised" t2sfst \
  "$(measure "$tool compile-grammar --no-optimize $work/rules.gram -o $work/r.fst")"
