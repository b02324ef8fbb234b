#!/usr/bin/env bash
# Fuzzes the decoder of placement data, which reads bytes that another process sent, for SECONDS
# (default 600).
#
#   scripts/fuzz.sh [SECONDS]
#
# Starts from the inputs that are kept in sdk/model/fuzz/corpus; puts new ones into build/fuzz/corpus. A
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
cmake --build build/fuzz --target placement_fuzz

mkdir -p build/fuzz/corpus sdk/model/fuzz/corpus
build/fuzz/bin/placement_fuzz -max_total_time="$seconds" -timeout=10 -print_final_stats=1 \
  -artifact_prefix=build/fuzz/findings/ build/fuzz/corpus sdk/model/fuzz/corpus
