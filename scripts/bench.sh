#!/usr/bin/env bash
# Builds the benches and runs them where they meet no other agent. Figures also go to
# build/bench/replicate.json, packets.json and answers.json.
#
#   scripts/bench.sh [--perf] [--build-dir DIR] [REPLICATE-ARGUMENT]...     (see replicate --help)
#
# replicate measures updates a second from partner to switch, packets the packets a second that the
# switch forwards: alone, beside a thread that updates its tables, and beside a partner that does so
# over the socket (packets --help), answers what barriers, counters and notifications cost beside the
# least that they could (answers --help).
#
# --perf samples all processes of replicate as well (Debian: linux-perf) and tells, for each of them,
# how its time is spread over the libraries.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."

build_dir=$PWD/build/release
perf=()
while [[ $# -gt 0 ]]; do
  case $1 in
    --perf)
      perf=(perf record -q -e task-clock -F 1999 -o build/bench/perf.data --)
      shift
      ;;
    --build-dir)
      build_dir=$(readlink -m "$2")
      shift 2
      ;;
    *) break ;;
  esac
done

mkdir -p build/bench
if [[ ! -x $build_dir/bin/replicate || ! -x $build_dir/bin/packets ||
  ! -x $build_dir/bin/answers ]]; then
  scripts/setup
  scripts/configure release "$build_dir" -DJEX_BUILD_BENCH=ON >build/bench/configure.log
fi
cmake --build "$build_dir" --target replicate packets answers
scripts/in-private-namespaces --keep "$build_dir" "${perf[@]}" \
  "$build_dir/bin/replicate" --json build/bench/replicate.json "$@"
if [[ ${#perf[@]} -gt 0 ]]; then
  perf report -i build/bench/perf.data --stdio --percent-limit 0.5 --sort comm,dso 2>/dev/null |
    grep -v '^#' | grep -v '^$'
fi
scripts/in-private-namespaces --keep "$build_dir" \
  "$build_dir/bin/packets" --json build/bench/packets.json
scripts/in-private-namespaces --keep "$build_dir" \
  "$build_dir/bin/answers" --json build/bench/answers.json
