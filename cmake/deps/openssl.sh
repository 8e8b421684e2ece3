# libcrypto for Windows, with its zlib BIO: the store files and the package heads call it.
build_library() {
  local work=$1 prefix=$2
  fetch_source openssl "$work/openssl"
  cd "$work/openssl"
  ./Configure mingw64 no-shared no-tests no-dso no-engine zlib --prefix="$prefix" \
    --cross-compile-prefix="$deps_target-" CC="gcc-posix" CFLAGS="-O2"
  make -j"$(nproc)" build_generated
  make -j"$(nproc)" libcrypto.a
  mkdir -p "$prefix/lib" "$prefix/include/openssl"
  cp libcrypto.a "$prefix/lib/"
  cp include/openssl/*.h "$prefix/include/openssl/"
  cp LICENSE.txt "$prefix/LICENCE"
}
