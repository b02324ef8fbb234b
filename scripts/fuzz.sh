#!/usr/bin/env bash
# Fuzzes what reads bytes that another process sent, for SECONDS a target (default 600).
#
#   scripts/fuzz.sh [SECONDS]
#
# Starts from the inputs that are kept beside the targets; finds new ones into build/fuzz/corpus. A
# finding is written to build/fuzz/findings and ends the run with a status other than 0: fix it, and
# keep its input as a test.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."

seconds=${1:-600}
scripts/setup
mkdir -p build/fuzz/findings
scripts/configure fuzz >build/fuzz/configure.log || {
  cat build/fuzz/configure.log >&2
  exit 1
}
cmake --build build/fuzz

shopt -s nullglob
targets=(build/fuzz/bin/*_fuzz)
if [[ ${#targets[@]} -eq 0 ]]; then
  echo "fuzz.sh: the build made no fuzz target" >&2
  exit 1
fi
for target in "${targets[@]}"; do
  name=$(basename "$target")
  corpus=build/fuzz/corpus/$name
  mkdir -p "$corpus"
  kept=()
  for dir in "sdk/model/fuzz/corpus/$name" sdk/model/fuzz/corpus; do
    if [[ -d $dir ]]; then
      kept=("$dir")
      break
    fi
  done
  echo "fuzz.sh: $name for $seconds s"
  "$target" -max_total_time="$seconds" -timeout=10 -print_final_stats=1 \
    -artifact_prefix=build/fuzz/findings/ "$corpus" "${kept[@]}"
done
