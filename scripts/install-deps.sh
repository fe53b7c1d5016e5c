#!/usr/bin/env bash
# Installs the Debian packages the build and tests need, when some are missing.
set -euo pipefail

packages=(cmake make g++ pkg-config binutils libgtest-dev libgmock-dev libffi-dev libpng-dev
          libjpeg-dev libcli11-dev)
[ "${QPX_WITH_BENCH:-0}" = 1 ] && packages+=(libbenchmark-dev)
# The fuzz targets: clang, and libclang_rt.fuzzer (libclang-rt-dev, for Debian 12's clang 14).
[ "${QPX_WITH_FUZZ:-0}" = 1 ] && packages+=(clang libclang-rt-dev)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  sudo_cmd=()
  [ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo)
  "${sudo_cmd[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq "${missing[@]}" >/dev/null
fi
