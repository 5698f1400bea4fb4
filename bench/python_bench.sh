#!/usr/bin/env bash
# The model runtime from Python, in threads and on a Dask cluster, against the command, on a
# realistic model (10,000 phrases over the CMU dictionary's words, each with a distinct written
# form) and 2,000,000 lines (LINES): whole-line decoding of phrase lines, and rewriting of a transcript.
# Interleaved runs (A, B, A, B, ...), medians of wall and user-CPU seconds.
#   1. Python Model.apply_many / rewrite_many in one thread against `apply -j 1`: the batch call
#      alone (the binding's cost per line: reading the str objects, making the results), and the
#      whole script (reading the file into a list of lines, joining and writing the results);
#   2. `apply -j 2` against `apply -j 1`;
#   3. the Dask example on 2 local workers against `apply -j 2` (the transcript as 10 files).
# Usage: bench/python_bench.sh [BUILD_DIR] [ROUNDS]
set -euo pipefail
build=$(cd "${1:-build}" && pwd)
rounds=${2:-5}
lines=${LINES:-2000000}
here=$(cd "$(dirname "$0")" && pwd)
tool=$build/tools/t2sfst
python=${PYTHON:-/usr/bin/python3}
export PYTHONPATH=$build/python
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$python" "$here/realistic_corpus.py" 10000 "$lines" "$work/g.gram" "$work/transcript.txt" \
  "$work/phrases.txt"
"$tool" make-model "$work/g.gram" "$work/m.t2s"
mkdir -p "$work/parts"
split -l $((lines / 10)) -d --additional-suffix=.txt "$work/transcript.txt" "$work/parts/part-"

# The script times its batch call too: "wall user" seconds into $CALL_TIMES.
cat > "$work/py_apply.py" <<'PY'
import os, resource, sys, time, t2sfst
mode, model, path, threads = sys.argv[1], sys.argv[2], sys.argv[3], int(sys.argv[4])
m = t2sfst.Model(model)
lines = open(path, encoding="utf-8").read().split("\n")[:-1]
many = m.rewrite_many if mode == "rewrite" else m.apply_many
wall, user = time.perf_counter(), resource.getrusage(resource.RUSAGE_SELF).ru_utime
out = many(lines, threads)
wall, user = time.perf_counter() - wall, resource.getrusage(resource.RUSAGE_SELF).ru_utime - user
with open(os.environ["CALL_TIMES"], "a") as f:
    f.write("%.3f %.3f\n" % (wall, user))
sys.stdout.write("\n".join(o if o is not None else "" for o in out) + "\n")
PY
export CALL_TIMES=$work/calls

# Prints "wall user" seconds of a command line (outputs to /dev/null).
run() {
  /usr/bin/time -f "%e %U" -o "$work/t" bash -c "$1" > /dev/null 2>&1 || true
  cat "$work/t"
}
median() { sort -n | awk '{v[NR]=$1} END {print v[int((NR+1)/2)]}'; }

# compare NAME_A CMD_A NAME_B CMD_B: interleaved rounds, medians, ratios B/A.
compare() {
  local a=() b=()
  for ((i = 0; i < rounds; i++)); do
    a+=("$(run "$2")")
    b+=("$(run "$4")")
  done
  local aw au bw bu
  aw=$(printf '%s\n' "${a[@]}" | awk '{print $1}' | median)
  au=$(printf '%s\n' "${a[@]}" | awk '{print $2}' | median)
  bw=$(printf '%s\n' "${b[@]}" | awk '{print $1}' | median)
  bu=$(printf '%s\n' "${b[@]}" | awk '{print $2}' | median)
  printf "%-34s wall %6.2f s  user %6.2f s\n" "$1" "$aw" "$au"
  printf "%-34s wall %6.2f s  user %6.2f s   (wall %s of the first)\n" "$3" "$bw" "$bu" \
    "$(echo "$bw $aw" | awk '{printf "%.2fx", $1 / $2}')"
}

# python_against NAME_A CMD_A MODE INPUT: the command against the batch call (and its script).
python_against() {
  local a=() b=()
  : > "$CALL_TIMES"
  for ((i = 0; i < rounds; i++)); do
    a+=("$(run "$2")")
    b+=("$(run "$python py_apply.py $3 m.t2s $4 1")")
  done
  local aw au
  aw=$(printf '%s\n' "${a[@]}" | awk '{print $1}' | median)
  au=$(printf '%s\n' "${a[@]}" | awk '{print $2}' | median)
  printf "%-34s wall %6.2f s  user %6.2f s\n" "$1" "$aw" "$au"
  for what in call script; do
    local w u
    if [[ $what == call ]]; then
      w=$(awk '{print $1}' "$CALL_TIMES" | median)
      u=$(awk '{print $2}' "$CALL_TIMES" | median)
    else
      w=$(printf '%s\n' "${b[@]}" | awk '{print $1}' | median)
      u=$(printf '%s\n' "${b[@]}" | awk '{print $2}' | median)
    fi
    printf "%-34s wall %6.2f s  user %6.2f s   (%s wall, %s user)\n" \
      "  Model.${3}_many: the $what" "$w" "$u" \
      "$(echo "$w $aw" | awk '{printf "%.2fx", $1 / $2}')" \
      "$(echo "$u $au" | awk '{printf "%.2fx", $1 / $2}')"
  done
}

cd "$work"
echo "model: $("$tool" info m.t2s 2>/dev/null | head -3 | tr '\n' ' ')"
echo "input: $(wc -c < transcript.txt) bytes of transcript, $(wc -c < phrases.txt) of phrase lines, $lines lines each"
echo
echo "== 1. Python batch (1 thread) against the command (-j 1)"
python_against "apply -j 1 (whole lines)" "$tool apply -j 1 m.t2s < phrases.txt" apply phrases.txt
python_against "apply --rewrite -j 1" "$tool apply --rewrite -j 1 m.t2s < transcript.txt" \
  rewrite transcript.txt
echo
echo "== 2. two threads against one"
compare "apply -j 1 (whole lines)" "$tool apply -j 1 m.t2s < phrases.txt" \
        "apply -j 2 (whole lines)" "$tool apply -j 2 m.t2s < phrases.txt"
compare "apply --rewrite -j 1" "$tool apply --rewrite -j 1 m.t2s < transcript.txt" \
        "apply --rewrite -j 2" "$tool apply --rewrite -j 2 m.t2s < transcript.txt"
compare "Model.rewrite_many, 1 thread" "$python py_apply.py rewrite m.t2s transcript.txt 1" \
        "Model.rewrite_many, 2 threads" "$python py_apply.py rewrite m.t2s transcript.txt 2"
echo
echo "== 3. the Dask example (2 local workers, 10 files) against apply -j 2"
compare "apply --rewrite -j 2" "$tool apply --rewrite -j 2 m.t2s < transcript.txt" \
        "dask_normalise.py --workers 2" \
        "$python $here/../examples/dask_normalise.py --workers 2 m.t2s out parts/*.txt"
