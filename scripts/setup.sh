#!/usr/bin/env bash
# Installs the Debian packages the build needs; as a non-root user, prints the command instead.
set -euo pipefail

packages=(cmake g++ make flex libfl-dev bison libgtest-dev libbenchmark-dev pkg-config
  # the Python module, its tests and the Dask example
  python3-dev pybind11-dev python3-pybind11 python3-pytest python3-dask python3-distributed
  # the peer toolkit the interop and agreement tests compare with, and the CMU dictionary of
  # the benchmarks
  libfst-tools pocketsphinx-en-us)
# make fuzz also needs clang, whose runtime carries libFuzzer; make bench the n-gram peer.
[[ -n "${T2SFST_NEED_CLANG:-}" ]] && packages+=(clang)
[[ -n "${T2SFST_NEED_BENCH:-}" ]] && packages+=(sphinxbase-utils)
missing=()
for p in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
  [[ "$status" == "install ok installed" ]] || missing+=("$p")
done
[[ ${#missing[@]} -eq 0 ]] && exit 0

if [[ $(id -u) -ne 0 ]]; then
  echo "t2sfst needs these Debian packages: ${missing[*]}" >&2
  echo "install them with:" >&2
  echo "  sudo apt-get update && sudo apt-get install -y ${missing[*]}" >&2
  exit 1
fi
echo "installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}"
