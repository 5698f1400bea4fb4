#!/usr/bin/env bash
# The C example, linked with the runtime library alone, writes what `t2sfst apply` writes:
# the same outputs, the same reports (under its own name) and the same exit status, on every
# example grammar.
set -uo pipefail
tool=$1 example=$2 examples=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0
for name in times commands words; do
  "$tool" make-model "$examples/$name.gram" "$work/$name.t2s" > /dev/null || exit 1
  # The example's own lines, then lines it does not read.
  { cat "$examples/$name.txt"; printf 'no such words\n\n  %s  \n' "$(head -n 1 "$examples/$name.txt")"; } > "$work/in"
  "$tool" apply -j 1 "$work/$name.t2s" < "$work/in" > "$work/want" 2> "$work/want.err"
  want_status=$?
  "$example" "$work/$name.t2s" < "$work/in" > "$work/got" 2> "$work/got.raw"
  got_status=$?
  sed 's/^t2s_apply: /t2sfst apply: /' "$work/got.raw" > "$work/got.err"
  if ! cmp -s "$work/want" "$work/got" || ! cmp -s "$work/want.err" "$work/got.err" ||
     [[ $want_status != "$got_status" ]]; then
    echo "$name: the C example differs from t2sfst apply (status $got_status, want $want_status)"
    diff "$work/want" "$work/got" | head
    diff "$work/want.err" "$work/got.err" | head
    failed=1
  fi
done
[[ $failed == 0 ]] && echo "the C example agrees with t2sfst apply"
exit $failed
