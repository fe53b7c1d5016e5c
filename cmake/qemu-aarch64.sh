#!/bin/sh
# Runs an ARM64 program under qemu user-mode emulation: qemu-aarch64.sh PROGRAM [ARGS...]
# The program sees this script as its argv[0]. A test that runs in a fresh process executes
# argv[0] again, which the kernel cannot do for an ARM64 file without binfmt_misc; it lands
# here instead, with the program named in QPX_QEMU_PROGRAM, and runs under qemu in turn.
set -eu
self=$(readlink -f "$0")
if [ -z "${QPX_QEMU_PROGRAM:-}" ]; then
  QPX_QEMU_PROGRAM=$(readlink -f "$1")
  export QPX_QEMU_PROGRAM
  shift
fi
exec qemu-aarch64 -L /usr/aarch64-linux-gnu -0 "$self" "$QPX_QEMU_PROGRAM" "$@"
