#!/usr/bin/env bash
# Installs the Debian packages the build and tests need, when some are missing.
# QPX_CROSS=i386 or arm64 adds the cross compiler and what runs that processor's programs here;
# scripts/cross-deps.sh then fetches the target's libraries.
set -euo pipefail

# ccache keeps compiled objects between runs on one machine (scripts/compiler-cache.sh); Ninja
# schedules the builds (scripts/build.sh).
packages=(cmake make ninja-build g++ pkg-config binutils ccache libgtest-dev libgmock-dev
          libffi-dev libpng-dev libjpeg-dev libcli11-dev)
[ "${QPX_WITH_BENCH:-0}" = 1 ] && packages+=(libbenchmark-dev)
# The fuzz targets: clang, and libclang_rt.fuzzer (libclang-rt-dev, for Debian 12's clang 14).
[ "${QPX_WITH_FUZZ:-0}" = 1 ] && packages+=(clang libclang-rt-dev)
# 32-bit x86 programs run natively through the amd64 packages of the 32-bit C and C++ runtimes
# (gcc-multilib would conflict with the aarch64 cross compiler), libquadmath among them for the
# sine test's reference; ARM64 ones run under qemu.
case "${QPX_CROSS:-}" in
  i386) packages+=(g++-i686-linux-gnu libc6-i386 lib32stdc++6 lib32gcc-s1 lib32quadmath0) ;;
  arm64) packages+=(g++-aarch64-linux-gnu qemu-user) ;;
  "") ;;
  *) echo "QPX_CROSS must be i386 or arm64" >&2; exit 2 ;;
esac

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  sudo_cmd=()
  [ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo)
  # A mirror whose index of one architecture is mid-sync makes apt-get update fail as a whole;
  # the install below still finds everything in the indexes that did arrive.
  "${sudo_cmd[@]}" apt-get update -qq || echo "apt-get update reported errors; going on" >&2
  DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq "${missing[@]}" >/dev/null
fi
