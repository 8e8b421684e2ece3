#!/usr/bin/env bash
# Installs the Debian packages the project needs and builds the Windows libraries once a machine.
set -euo pipefail
# shellcheck source=lib.sh
source "$(dirname "$0")/lib.sh"

# install_packages LIST...
install_packages() {
  local missing
  missing=$(grep -hoE '^[a-z0-9][a-z0-9+.-]*' "${@/#/$deps_dir/}" | while read -r package; do
    dpkg-query -W -f '${db:Status-Abbrev}' "$package" 2>/dev/null | grep -q '^ii' || echo "$package"
  done)
  [ -n "$missing" ] || return 0
  local as_root=()
  [ "$(id -u)" = 0 ] || as_root=(sudo)
  "${as_root[@]}" apt-get -q update
  # shellcheck disable=SC2086
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q install -y --no-install-recommends $missing
}

build_recipe() (
  name=$1
  prefix=$(recipe_prefix "$name")
  [ ! -f "$prefix/complete" ] || exit 0
  echo "setup: building $name for Windows"
  work=$(mktemp -d)
  trap 'rm -rf "$work"' EXIT
  rm -rf "$prefix.new"
  mkdir -p "$prefix.new"
  # A shell of its own, because an `if` would switch errexit off inside a function.
  if ! bash -euo pipefail -c 'source "$1"; apt_source=("${@:5}"); source "$2"; build_library "$3" "$4"' \
    build "$deps_dir/lib.sh" "$deps_dir/$name.sh" "$work" "$prefix.new" "${apt_source[@]}" \
    >"$deps_cache/$name.log" 2>&1; then
    tail -n 30 "$deps_cache/$name.log" >&2
    echo "setup: $name did not build; the whole log is $deps_cache/$name.log" >&2
    exit 1
  fi
  touch "$prefix.new/complete"
  rm -rf "$prefix"
  mv "$prefix.new" "$prefix"
)

# setup.sh [FOLDER [LIST]]: LIST.txt names packages of which only one verb has need.
install_packages packages.txt ${2:+"$2.txt"}
mkdir -p "$deps_cache"
exec 9>"$deps_cache/lock"
flock 9
recipes=(openssl cryptopp ace)
for name in "${recipes[@]}"; do
  if [ ! -f "$(recipe_prefix "$name")/complete" ]; then
    source_lists >"$deps_cache/apt.log" 2>&1 || { cat "$deps_cache/apt.log" >&2; exit 1; }
    break
  fi
done
for name in "${recipes[@]}"; do build_recipe "$name"; done

# What CMake reads to find them.
{
  for name in "${recipes[@]}"; do echo "set(DORVO_${name^^} \"$(recipe_prefix "$name")\")"; done
} >"$deps_cache/libraries.cmake.new"
mkdir -p "${1:-build}"
mv "$deps_cache/libraries.cmake.new" "${1:-build}/libraries.cmake"

# The header-only libraries of the machine, reachable for the cross compiler without the rest of
# /usr/include.
mkdir -p "${1:-build}/include"
ln -sfn /usr/include/boost "${1:-build}/include/boost"
ln -sfn /usr/include/CLI "${1:-build}/include/CLI"
