#!/usr/bin/env bash
# Builds the example models and applies them: whole lines, then recognised text rewritten.
# Usage: examples/demo.sh T2SFST_COMMAND WORK_DIR
set -euo pipefail
t2sfst=$1 work=$2 here=$(dirname "$0")
mkdir -p "$work"
show() {  # model, mode, lines file
  while IFS= read -r line; do
    printf '  %-40s -> %s\n' "$line" "$("$t2sfst" apply $2 "$1" "$line" 2>&1)"
  done < "$3"
}
for name in times commands words; do
  echo "== $here/$name.gram"
  "$t2sfst" make-model "$here/$name.gram" "$work/$name.model"
done
echo "== whole lines through the times model"
show "$work/times.model" "" "$here/times.txt"
echo "== recognised text rewritten by the times model"
show "$work/times.model" --rewrite "$here/recognised.txt"
echo "== voice commands"
show "$work/commands.model" "" "$here/commands.txt"
echo "== word boundaries: blanks may be read or skipped, outputs stay at word ends"
show "$work/words.model" "" "$here/words.txt"
echo "== an English transcript normalised (grammars/en, apply --rewrite --ignore-case)"
"$t2sfst" make-model "$here/../grammars/en/itn.gram" "$work/itn.t2s"
"$t2sfst" apply --rewrite --ignore-case "$work/itn.t2s" < "$here/transcript.txt" |
  paste -d '\n' "$here/transcript.txt" - | sed 's/^/  /; n; s/^/  -> /'
