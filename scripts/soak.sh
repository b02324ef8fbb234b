#!/usr/bin/env bash
# Soaks the whole system as people run it: one slice agent with heartbeats, and beside it, over and
# over, a partner that changes its tables, starts and stops counters, sends barriers and learns
# addresses; captures that come in; switchctl, slice-counters and a scraper that look.
#
#   scripts/soak.sh [--minutes N] [--seed S] [--build-dir DIR] [--no-build] [MORE...]
#
# It fails, with status 1, when a process ends unexpectedly or says "Error: ", when the memory,
# descriptors or threads of a process grow beyond their bounds after the warm-up, and when the
# agent's tables or counters are not the partner's. N is 30 if left out and may be a fraction; the
# seed, which makes all random choices, is printed. MORE are the options of scripts/soak_run.py,
# which lists them with --help: the bounds, the warm-up, the program that packets run through.
#
# The agent's memory rises by some MiB over ten minutes and then stays: free pieces in the heaps that
# the C library keeps for each thread. Smaller leaks are seen with one heap for all threads:
# MALLOC_ARENA_MAX=1 scripts/soak.sh --memory-bound 4.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."

usage() {
  sed -n '2,/^set /{/^set /d;s/^# \{0,1\}//;p}' scripts/soak.sh
}

build_dir=$PWD/build/release
build=yes
run_args=()
while [[ $# -gt 0 ]]; do
  case $1 in
    --build-dir) build_dir=$(readlink -m "$2"); shift 2 ;;
    --no-build) build=no; shift ;;
    --help) usage; exit 0 ;;
    *) run_args+=("$1"); shift ;;
  esac
done

if [[ $build == yes ]]; then
  scripts/setup
  mkdir -p "$build_dir"
  scripts/configure release "$build_dir" >"$build_dir/configure.log" || {
    cat "$build_dir/configure.log" >&2
    exit 1
  }
  cmake --build "$build_dir" --target slice-agent partner-shell switchctl slice-counters
fi

exec scripts/in-private-namespaces --or-alone --keep "$build_dir" python3 scripts/soak_run.py \
  --bin "$build_dir/bin" --out "$build_dir/soak" "${run_args[@]}"
