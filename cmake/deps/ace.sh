# ACE for Windows: threads, log facility, socket streams and the caching connector.
build_library() {
  local work=$1 prefix=$2
  fetch_source ace "$work/ace"
  export ACE_ROOT=$work/ace MPC_ROOT=$work/ace/MPC
  cd "$ACE_ROOT"
  printf '#define ACE_HAS_STANDARD_CPP_LIBRARY 1\n#include "ace/config-win32.h"\n' >ace/config.h
  cat >include/makeinclude/platform_macros.GNU <<EOF
CROSS_COMPILE = $deps_target-
static_libs_only = 1
inline = 1
debug = 0
optimize = 1
include \$(ACE_ROOT)/include/makeinclude/platform_mingw32.GNU
EOF
  cd ace
  perl "$ACE_ROOT/bin/mwc.pl" -type gnuace ../ace/ace.mwc 2>/dev/null ||
    perl "$ACE_ROOT/bin/mpc.pl" -type gnuace ace.mpc
  make -j"$(nproc)" -f GNUmakefile.ACE CXX="$deps_target-g++-posix" CC="$deps_target-gcc-posix"
  mkdir -p "$prefix/lib" "$prefix/include/ace"
  find "$ACE_ROOT" -name 'libACE.a' -exec cp {} "$prefix/lib/" \;
  (cd "$ACE_ROOT/ace" && find . \( -name '*.h' -o -name '*.inl' -o -name '*.cpp' \) \
      -exec cp --parents -t "$prefix/include/ace" {} +)
  cp "$ACE_ROOT/COPYING" "$prefix/LICENCE"
}
