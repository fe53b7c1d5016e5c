# 32-bit x86 build with Debian's cross compiler (g++-i686-linux-gnu):
#   scripts/cross-deps.sh i386
#   cmake -S . -B build-i386 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-i386.cmake
# The programs run natively here (libc6-i386, lib32stdc++6); the top-level CMakeLists.txt keeps
# floating point in SSE2 registers.
set(CMAKE_SYSTEM_PROCESSOR i686)
set(QPX_CROSS_ARCH i386)
set(QPX_CROSS_TRIPLET i686-linux-gnu)
set(QPX_CROSS_MULTIARCH i386-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
