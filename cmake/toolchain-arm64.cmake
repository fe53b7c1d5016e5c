# ARM64 build with Debian's cross compiler (g++-aarch64-linux-gnu):
#   scripts/cross-deps.sh arm64
#   cmake -S . -B build-arm64 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-arm64.cmake
# Programs, ctest and the tests' discovery run under qemu user-mode emulation (through
# qemu-aarch64.sh, which also serves tests that start themselves again in a fresh process); qemu
# finds the target's loader and C library in the cross compiler's folder.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(QPX_CROSS_ARCH arm64)
set(QPX_CROSS_TRIPLET aarch64-linux-gnu)
set(QPX_CROSS_MULTIARCH aarch64-linux-gnu)
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/qemu-aarch64.sh)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
