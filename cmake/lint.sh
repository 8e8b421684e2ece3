#!/usr/bin/env bash
# Everything that is checked without running it; each finding is an error.
set -euo pipefail
cd "$(dirname "$0")/.."
status=0

mapfile -t sources < <(git ls-files --cached --others --exclude-standard '*.cpp' '*.h')
clang-format --dry-run -Werror "${sources[@]}" || status=1

# clang reads the cross compiler's own headers, and each file with the flags of its real build.
gcc_dir=$(dirname "$(x86_64-w64-mingw32-g++-posix -print-libgcc-file-name)")
windows_args=(--extra-arg=--target=x86_64-w64-mingw32 --extra-arg=-nostdinc++)
for folder in c++ c++/x86_64-w64-mingw32 c++/backward; do
  windows_args+=("--extra-arg=-isystem$gcc_dir/include/$folder")
done

# tidy PRESET ARGUMENT... checks the files that were given, or all that the preset builds.
tidy() {
  local preset=$1 chosen
  shift
  chosen=$(python3 - "build/$preset/compile_commands.json" <<'E2'
import json, os, sys
root = os.getcwd()
for entry in json.load(open(sys.argv[1])):
    path = os.path.relpath(entry["file"], root)
    if not path.startswith("..") and not path.startswith("build"):
        print(path)
E2
  )
  echo "$chosen" | sort -u | grep -E "${DORVO_LINT:-.}" |
    xargs -r -P "$(nproc)" -n 4 clang-tidy -quiet -p "build/$preset" "$@" 2>/dev/null || status=1
}
tidy windows "${windows_args[@]}"
tidy native
DORVO_LINT="${DORVO_LINT:-^fuzz/}" tidy sanitize

cppcheck --quiet --std=c++20 --language=c++ --enable=warning,performance,portability --inline-suppr \
  --suppress=missingIncludeSystem --suppress=syntaxError:src/job/transferjob_test.cpp --library=googletest,windows --error-exitcode=1 -j "$(nproc)" \
  -I src -I libs src libs agent server bench tests fuzz || status=1

exit "$status"
