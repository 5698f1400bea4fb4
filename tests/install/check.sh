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

# The runtime alone: a C host compiled through its pkg-config file, shared and static, with no
# C++ library beneath it.
export PKG_CONFIG_PATH="$work/prefix/lib/pkgconfig:$work/prefix/lib64/pkgconfig"
example=$source_dir/../../examples/c/t2s_apply.c
cc "$example" $(pkg-config --cflags t2s_runtime) $(pkg-config --libs t2s_runtime) \
  -Wl,-rpath,"$(pkg-config --variable=libdir t2s_runtime)" -o "$work/shared_host"
cc "$example" $(pkg-config --cflags t2s_runtime) \
  "$(pkg-config --variable=libdir t2s_runtime)/libt2s_runtime.a" -o "$work/static_host"
if readelf -d "$(pkg-config --variable=libdir t2s_runtime)/libt2s_runtime.so" | grep -q 'libstdc++'; then
  echo "libt2s_runtime.so needs the C++ library"; exit 1
fi
printf '#JSGF V1.0;\ngrammar g;\npublic <g> = hello:hi world;\n' > "$work/g.gram"
"$work/prefix/bin/t2sfst" make-model "$work/g.gram" "$work/g.t2s" > /dev/null
for host in shared_host static_host; do
  out=$(echo "hello world" | "$work/$host" "$work/g.t2s")
  [[ "$out" == "hi world" ]] || { echo "$host printed '$out'"; exit 1; }
done
echo "the installed runtime builds C hosts through pkg-config, shared and static"
