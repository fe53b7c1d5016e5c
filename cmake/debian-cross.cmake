# Shared part of the toolchain files: a Debian cross compiler, and the target's libraries as
# scripts/cross-deps.sh unpacks them into .deps/QPX_CROSS_ARCH/root. The including file sets
# CMAKE_SYSTEM_PROCESSOR, QPX_CROSS_ARCH (Debian's name), QPX_CROSS_TRIPLET (the compiler's
# prefix) and QPX_CROSS_MULTIARCH (the library folders' name).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${QPX_CROSS_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${QPX_CROSS_TRIPLET}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${QPX_CROSS_MULTIARCH})

get_filename_component(QPX_CROSS_ROOT "${CMAKE_CURRENT_LIST_DIR}/../.deps/${QPX_CROSS_ARCH}/root"
                       ABSOLUTE)
if(NOT EXISTS "${QPX_CROSS_ROOT}/usr/include/${QPX_CROSS_MULTIARCH}/ffi.h")
  message(FATAL_ERROR "no ${QPX_CROSS_ARCH} libraries in ${QPX_CROSS_ROOT}: "
                      "run scripts/cross-deps.sh ${QPX_CROSS_ARCH} first")
endif()

# Libraries, headers and packages come from the target's folder only; programs from the host.
set(CMAKE_FIND_ROOT_PATH "${QPX_CROSS_ROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# CLI11 is header-only: the host's copy serves every processor.
set(CLI11_DIR /usr/share/cmake/CLI11 CACHE PATH "CLI11's package folder")

# The compiler also searches the host's /usr/include: the target's headers go first, its
# multiarch folder (ffi.h, jconfig.h) among them.
foreach(lang C CXX)
  set(CMAKE_${lang}_STANDARD_INCLUDE_DIRECTORIES
      "${QPX_CROSS_ROOT}/usr/include/${QPX_CROSS_MULTIARCH}" "${QPX_CROSS_ROOT}/usr/include")
endforeach()

set(ENV{PKG_CONFIG_LIBDIR}
    "${QPX_CROSS_ROOT}/usr/lib/${QPX_CROSS_MULTIARCH}/pkgconfig:${QPX_CROSS_ROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${QPX_CROSS_ROOT}")

# Programs find the target's libraries in the folder, and so do those libraries' own
# dependencies (libpng's libz): an old-style RPATH, which the loader applies to the whole tree.
set(QPX_CROSS_LIBRARY_PATH
    "${QPX_CROSS_ROOT}/lib/${QPX_CROSS_MULTIARCH}:${QPX_CROSS_ROOT}/usr/lib/${QPX_CROSS_MULTIARCH}")
set(CMAKE_EXE_LINKER_FLAGS_INIT
    "-Wl,--disable-new-dtags -Wl,-rpath,${QPX_CROSS_LIBRARY_PATH} -Wl,-rpath-link,${QPX_CROSS_LIBRARY_PATH}")
