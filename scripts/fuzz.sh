#!/usr/bin/env bash
# Fuzzes, for SECONDS each (default 600), what reads bytes that others sent: the decoder of
# placement data (placement_fuzz), the packet parser with the rewriting of fields (packet_fuzz), and
# the loader of P4Info text (p4info_fuzz).
#
#   scripts/fuzz.sh [SECONDS [TARGET...]]
#
# Starts from the inputs that are kept in tests/fuzz/corpus/TARGET; puts new ones into
# build/fuzz/corpus/TARGET. A finding is written to build/fuzz/findings and ends the run with a
# status other than 0: fix it, and keep its input as a test.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."

seconds=${1:-600}
shift || true
targets=(placement_fuzz packet_fuzz p4info_fuzz)
[[ $# -eq 0 ]] || targets=("$@")
scripts/setup
mkdir -p build/fuzz/findings
scripts/configure fuzz >build/fuzz/configure.log || {
  cat build/fuzz/configure.log >&2
  exit 1
}
cmake --build build/fuzz --target "${targets[@]}"

for target in "${targets[@]}"; do
  kept=tests/fuzz/corpus/$target
  mkdir -p "build/fuzz/corpus/$target" "$kept"
  "build/fuzz/bin/$target" -max_total_time="$seconds" -timeout=10 -print_final_stats=1 \
    -artifact_prefix=build/fuzz/findings/ "build/fuzz/corpus/$target" "$kept"
done
