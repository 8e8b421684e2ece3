#!/usr/bin/env bash
# run.sh PROGRAM SECONDS: one fuzz target for a while, from its seeds and from what earlier runs have
# found interesting. The last line of the output says what came out.
set -euo pipefail
program=$1 seconds=$2
name=$(basename "$program")
name=${name#fuzz_}
work=$(dirname "$program")/../corpus
mkdir -p "$work/$name"
if "$program" -max_total_time="$seconds" -timeout=25 -artifact_prefix="$work/$name-" \
  "$work/$name" "$(dirname "$0")/seeds/$name" >"$work/$name.log" 2>&1; then
  echo "$name: nothing found in $(grep -oE '^Done [0-9]+ runs' "$work/$name.log")"
else
  grep -aE 'ERROR|SUMMARY|runtime error|Test unit|^Base64|#[0-9]+ .* in (dorvo|LLVM)' "$work/$name.log" >&2 || true
  echo "$name: FOUND SOMETHING, the whole log is $work/$name.log" >&2
  exit 1
fi
