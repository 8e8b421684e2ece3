# Crypto++ for Windows: compression and encryption of packages.
build_library() {
  local work=$1 prefix=$2
  fetch_source libcrypto++ "$work/cryptopp"
  cd "$work/cryptopp"
  make -j"$(nproc)" static CXX="$deps_target-g++-posix" AR="$deps_target-ar" \
    RANLIB="$deps_target-ranlib" CXXFLAGS="-O2 -DNDEBUG"
  mkdir -p "$prefix/lib" "$prefix/include/cryptopp"
  cp libcrypto++.a "$prefix/lib/libcryptopp.a"
  cp ./*.h "$prefix/include/cryptopp/"
  cp License.txt "$prefix/LICENCE"
}
