#!/usr/bin/env bash
# Readies a cross build for another processor: scripts/cross-deps.sh i386|arm64
# Installs the cross compiler (and what runs the target's programs here), then unpacks the
# target's libraries into .deps/ARCH/ (git-ignored), where cmake/toolchain-ARCH.cmake finds
# them. They are unpacked, not installed: a Multi-Arch: same library installs only beside the
# amd64 package of the same version, which a mirror's lagging foreign index may not offer.
set -euo pipefail
cd "$(dirname "$0")/.."
if [ $# -ne 1 ] || [[ ! "$1" =~ ^(i386|arm64)$ ]]; then
  echo "usage: scripts/cross-deps.sh i386|arm64" >&2
  exit 2
fi
arch=$1
QPX_CROSS=$arch scripts/install-deps.sh

libraries=(libffi8 libffi-dev libpng16-16 libpng-dev zlib1g zlib1g-dev libjpeg62-turbo
           libjpeg62-turbo-dev libgtest-dev libgmock-dev)
dir=.deps/$arch
root=$dir/root
stamp=$root/.qpx-packages
[ -f "$stamp" ] && [ "$(cat "$stamp")" = "${libraries[*]}" ] && exit 0

sudo_cmd=()
[ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo)
if ! dpkg --print-foreign-architectures | grep -qx "$arch"; then
  "${sudo_cmd[@]}" dpkg --add-architecture "$arch"
fi
if ! apt-cache show "libffi-dev:$arch" >/dev/null 2>&1; then
  # The security index of a foreign architecture may fail mid-sync; the main one suffices.
  "${sudo_cmd[@]}" apt-get update -qq || echo "apt-get update reported errors; going on" >&2
fi

echo "fetching the $arch libraries into $dir"
rm -rf "$dir"
mkdir -p "$dir/debs" "$root"
# apt's sandbox user cannot write into a root-owned work tree, which apt reports and lives with.
(cd "$dir/debs" && apt-get download -qq "${libraries[@]/%/:$arch}" 2>&1 |
  { grep -v 'Download is performed unsandboxed' || true; })
for deb in "$dir"/debs/*.deb; do
  dpkg-deb -x "$deb" "$root"
done
# Links to absolute paths (libz.so -> /lib/...) would leave the folder: point them inside it.
find "$root" -type l -lname '/*' | while read -r link; do
  ln -sfr "$root$(readlink "$link")" "$link"
done
rm -rf "$dir/debs"
echo "${libraries[*]}" >"$stamp"
