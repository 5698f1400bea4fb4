#!/usr/bin/env bash
# Installs the build into a scratch prefix, then builds and runs a consumer project against it.
set -euo pipefail
build_dir=$1 source_dir=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build_dir" --prefix "$work/prefix" >/dev/null
"$work/prefix/bin/t2sfst" --version | grep -q "^t2sfst "
test -f "$work/prefix/include/t2sfst/FST.h"
cmake -S "$source_dir" -B "$work/consumer" -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/consumer" >/dev/null
out=$(LD_LIBRARY_PATH="$work/prefix/lib:$work/prefix/lib64:${LD_LIBRARY_PATH:-}" "$work/consumer/consumer")
[[ "$out" == "3 2 world" ]] || { echo "consumer printed '$out'"; exit 1; }
echo "installed t2sfst builds and runs a find_package consumer"
