# Shared by the recipes in this folder: where the cross-built libraries go, and how a
# Debian source package is fetched without touching the machine's own apt settings.

readonly deps_target=x86_64-w64-mingw32
readonly deps_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
readonly deps_cache=${DORVO_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/dorvo}

# A library is rebuilt when its recipe, this file or the compiler changes, and only then.
recipe_prefix() {
  local name=$1 hash
  hash=$(cat "$deps_dir/lib.sh" "$deps_dir/$name.sh" <("$deps_target-g++-posix" -dumpfullversion) |
    sha256sum | cut -c1-16)
  echo "$deps_cache/$name-$hash"
}

# Writes a deb-src list made of the machine's own Debian archives and loads its indexes once.
source_lists() {
  local lists=$deps_cache/apt
  mkdir -p "$lists/state/partial" "$lists/parts"
  apt-get indextargets --format 'deb-src $(REPO_URI) $(RELEASE) $(COMPONENT)' \
    'Created-By: Packages' 'Origin: Debian' | sort -u >"$lists/sources.list"
  apt_source=(-o "Dir::Etc::sourcelist=$lists/sources.list" -o "Dir::Etc::sourceparts=$lists/parts"
    -o "Dir::State::Lists=$lists/state" -o APT::Sandbox::User=root)
  apt-get -q "${apt_source[@]}" update
}

# fetch_source PACKAGE DIR unpacks the newest source version that the mirror really holds.
fetch_source() {
  local package=$1 into=$2 version download
  download=$(mktemp -d)
  for version in $(apt-cache "${apt_source[@]}" showsrc --only-source "$package" |
    sed -n 's/^Version: //p'); do
    if (cd "$download" && apt-get -q "${apt_source[@]}" source --only-source --download-only \
      "$package=$version"); then
      rm -rf "$into"
      dpkg-source --no-check -x "$download"/*.dsc "$into" && rm -rf "$download" && return 0
    fi
    rm -f "$download"/*
  done
  rm -rf "$download"
  echo "setup: no source version of $package can be fetched; check the package mirror" >&2
  return 1
}
