#!/bin/sh
# Replaces the README's command section (between its two markers) by `t2sfst help --markdown`.
set -eu
tool=$1 readme=$2
pages=$(mktemp)
trap 'rm -f "$pages" "$readme.new"' EXIT
"$tool" help --markdown > "$pages"
awk -v pages="$pages" '
  /^<!-- commands: generated/ { print; while ((getline line < pages) > 0) print line; skip = 1; next }
  /^<!-- end of commands -->/ { skip = 0 }
  !skip { print }
' "$readme" > "$readme.new"
mv "$readme.new" "$readme"
