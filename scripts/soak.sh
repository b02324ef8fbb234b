#!/usr/bin/env bash
# Soaks the whole system as people run it: one slice agent with heartbeats, and beside it, over and
# over, a partner that changes its tables, starts and stops counters, sends barriers and learns
# addresses; captures that come in; switchctl, slice-counters and a scraper that look.
#
#   scripts/soak.sh [--minutes N] [--seed S] [--build-dir DIR] [--no-build] [--data DIR] [MORE...]
#   scripts/soak.sh --together [--minutes N] [--build-dir DIR] [--no-build]
#
# The second form runs all that can come to wait for each other, as fast as it goes, and nothing else:
# an agent and a partner with threads that write, digests, barriers, heartbeats, notifications that
# are armed and disarmed, and counters that are started and stopped, and partners that register
# meanwhile (docs/design/waiting.md). It fails when one of these stands still.
#
# It fails, with status 1, when a process ends unexpectedly or says "Error: ", when the memory,
# descriptors or threads of a process grow beyond their bounds after the warm-up, and when the
# agent's tables or counters are not the partner's. N is 30 if left out and may be a fraction; the
# seed, which makes all random choices, is printed. MORE are the options of scripts/soak_run.py,
# which lists them with --help: the bounds, the warm-up, the program that packets run through. Routes
# and captures are those of --data (scripts/make_data.sh makes them); left out: of build/data, where
# they are made if they are missing. Each run writes logs and dumps to a folder of its own in
# BUILD-DIR/soak, which it prints; of runs that are over, the last eight stay.
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
together=no
data=
run_args=()
while [[ $# -gt 0 ]]; do
  case $1 in
    --build-dir) build_dir=$(readlink -m "$2"); shift 2 ;;
    --no-build) build=no; shift ;;
    --together) together=yes; shift ;;
    --data) data=$(readlink -m "$2"); shift 2 ;;
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
  if [[ $together == yes ]]; then
    cmake --build "$build_dir" --target together_test
  else
    cmake --build "$build_dir" --target slice-agent partner-shell switchctl slice-counters make_data
  fi
fi

if [[ $together == yes ]]; then
  minutes=30
  if [[ ${run_args[0]-} == --minutes ]]; then
    minutes=${run_args[1]?--minutes needs a number}
    run_args=("${run_args[@]:2}")
  fi
  if [[ ${#run_args[@]} -gt 0 ]]; then
    echo "soak.sh: --together takes no ${run_args[0]}" >&2
    exit 2
  fi
  JEX_TOGETHER_SECONDS=$(awk -v minutes="$minutes" 'BEGIN { printf "%d", minutes * 60 }')
  export JEX_TOGETHER_SECONDS
  exec "$build_dir/bin/together_test"
fi
if [[ -z $data ]]; then
  data=$PWD/build/data
  if [[ ! -f $data/routes/internet.txt || ! -f $data/pcap/odd-mix.pcap ]]; then
    scripts/make_data.sh --build-dir "$build_dir" routes pcap
  fi
fi

# A run holds the lock of its folder until it ends.
mkdir -p "$build_dir/soak"
out=$(mktemp -d "$build_dir/soak/$(date +%Y-%m-%d-%H%M%S).XXXXXX")
exec {lock}>"$out/lock"
flock "$lock"
echo "soak: logs and dumps go to $out"
ls -1dt "$build_dir"/soak/*/ | tail -n +9 | while read -r old; do
  if flock --nonblock "${old}lock" true; then rm -rf "$old"; fi
done

exec scripts/in-private-namespaces --or-alone --keep "$build_dir" python3 scripts/soak_run.py \
  --bin "$build_dir/bin" --out "$out" --data "$data" "${run_args[@]}"
