#!/usr/bin/env bash
# The English normalisation model: its build (time, peak memory, size, states), and how fast it
# rewrites a transcript of dictionary words with spoken numbers, dates, times... in one line of
# two (apply --rewrite --ignore-case, one thread and two), beside whole-line decoding of lines
# that are each one entity. Medians of interleaved runs; user-CPU seconds beside wall seconds.
#
#   bench/itn_bench.sh BUILD_DIR [LINES] [RUNS]
set -euo pipefail
build=$1 lines=${2:-200000} runs=${3:-5}
here=$(cd "$(dirname "$0")" && pwd)
tool=$build/tools/t2sfst
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
source "$here/common.sh"
grammar=$here/../grammars/en/itn.gram

# user-CPU seconds of a command (GNU time), then its wall seconds.
user_and_wall() {
  local start end
  start=$(date +%s.%N)
  /usr/bin/time -f "%U" -o "$work/user" bash -c "$1" >/dev/null
  end=$(date +%s.%N)
  echo "$(cat "$work/user") $(echo "$start $end" | awk '{printf "%.3f", $2 - $1}')"
}

"$tool" randgen -n 20000 --seed 3 "$grammar" > "$work/entities.tsv"
python3 "$here/itn_transcript.py" "$work/entities.tsv" "$lines" "$work/transcript.txt" \
  "$work/entities.txt"
mb=$(du -m --apparent-size "$work/transcript.txt" | cut -f1)
bytes=$(stat -c %s "$work/transcript.txt") entity_bytes=$(stat -c %s "$work/entities.txt")

declare -A user wall
for run in $(seq "$runs"); do
  for job in build rewrite1 rewrite2 whole1; do
    case $job in
      build) cmd="$tool make-model --quiet $grammar $work/itn.t2s" ;;
      rewrite1) cmd="$tool apply --rewrite --ignore-case -j 1 $work/itn.t2s < $work/transcript.txt" ;;
      rewrite2) cmd="$tool apply --rewrite --ignore-case -j 2 $work/itn.t2s < $work/transcript.txt" ;;
      whole1) cmd="$tool apply --ignore-case -j 1 $work/itn.t2s < $work/entities.txt" ;;
    esac
    read -r u w < <(user_and_wall "$cmd")
    user[$job]+="$u " wall[$job]+="$w "
  done
done
read -r seconds peak _ < <(measure "$t $tool make-model --quiet $grammar $work/itn.t2s")
"$tool" make-model "$grammar" "$work/itn.t2s" | sed 's/^/model: /'
echo "build: $(echo "${user[build]}" | median) s user, $(echo "${wall[build]}" | median) s wall, peak ${peak} MB"
for job in rewrite1 rewrite2 whole1; do
  size=$bytes
  [[ $job == whole1 ]] && size=$entity_bytes
  u=$(echo "${user[$job]}" | median) w=$(echo "${wall[$job]}" | median)
  echo "$job: $(echo "$size $u" | awk '{printf "%.1f", $1 / 1e6 / $2}') MB/s user," \
       "$(echo "$size $w" | awk '{printf "%.1f", $1 / 1e6 / $2}') MB/s wall" \
       "($u s user, $w s wall, $(echo "$size" | awk '{printf "%.1f", $1 / 1e6}') MB)"
done
