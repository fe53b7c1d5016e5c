# shellcheck shell=bash disable=SC2034
# Sourced by the build scripts: when ccache is installed (scripts/install-deps.sh installs it),
# sets QPX_CACHE_OPTIONS to the cmake options that compile through it, and its settings. The
# cache lives under the home directory, so a later run on the same machine from the same folder
# (CI's fresh clone in the same place too) finds the objects of the last one; QPX_CCACHE=0
# compiles without it.
QPX_CACHE_OPTIONS=()
if [ "${QPX_CCACHE:-1}" != 0 ] && command -v ccache >/dev/null; then
  export CCACHE_DIR=${CCACHE_DIR:-$HOME/.cache/qpx-ccache}
  export CCACHE_MAXSIZE=${CCACHE_MAXSIZE:-6G}
  # The precompiled test framework headers are cached as well. Source paths stay absolute
  # (no CCACHE_BASEDIR): the tests get their source and build folders as absolute paths in
  # macros, so a clone in another folder could not share their objects anyway.
  export CCACHE_SLOPPINESS=${CCACHE_SLOPPINESS:-pch_defines,time_macros,include_file_mtime,include_file_ctime}
  QPX_CACHE_OPTIONS=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
