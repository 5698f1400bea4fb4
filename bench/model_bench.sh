#!/usr/bin/env bash
# MakeT2sModel (through `t2sfst make-model`) on grammars of 1,000, 10,000 and 100,000 phrases:
# wall time and peak memory; then the runtime's whole-line and rewrite throughput on 200,000
# lines, in MB of text per second. Usage: bench/model_bench.sh [BUILD_DIR]
set -euo pipefail
build=${1:-build}
tool=$build/tools/t2sfst
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

seconds() {
  local start end
  start=$(date +%s.%N)
  bash -c "$1" >/dev/null 2>&1 || true
  end=$(date +%s.%N)
  echo "$start $end" | awk '{print $2 - $1}'
}

printf "%-9s %8s %9s %8s %9s %11s %11s\n" phrases build_s peak_MB states model_KB apply_MB/s rewrite_MB/s
for n in 1000 10000 100000; do
  "$build/bench/t2sfst_bench_inputs" "$work" phrases "$n"
  /usr/bin/time -f "%M" -o "$work/peak" "$tool" make-model "$work/phrases.gram" "$work/m" \
    > "$work/summary"
  build_s=$(awk '{print $(NF-1)}' "$work/summary")
  states=$(awk '{print $2}' "$work/summary")
  apply_s=$(seconds "$tool apply $work/m < $work/phrases.txt")
  rewrite_s=$(seconds "$tool apply --rewrite $work/m < $work/recognised.txt")
  printf "%-9s %8.2f %9.1f %8s %9.1f %11.1f %11.1f\n" "$n" "$build_s" \
    "$(awk '{print $1 / 1024}' "$work/peak")" "$states" "$(stat -c %s "$work/m" | awk '{print $1/1024}')" \
    "$(stat -c %s "$work/phrases.txt" | awk -v s="$apply_s" '{print $1 / 1e6 / s}')" \
    "$(stat -c %s "$work/recognised.txt" | awk -v s="$rewrite_s" '{print $1 / 1e6 / s}')"
done
