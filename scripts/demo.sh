#!/usr/bin/env bash
# Shows the whole path: installs what is needed, builds, starts a slice agent and a partner, loads a
# routing table of the size of a full Internet table into the partner's virtual device, and compares what the physical
# device then holds, entry by entry.
#
#   scripts/demo.sh [--build-dir DIR] [--no-build] [--routes FILE] [--limit N]
#
# The routing table is made from a seed, as build/data/routes/internet.txt, where it is not there yet
# (see data/README.md). --routes FILE loads a file of your own: plain or gzip, one PREFIX/LENGTH per
# line, IPv4 and IPv6 in any order.
# --limit N loads at most N routes of each address family. What happens is told by a table at the
# end; status 0 means that both devices hold the same.
set -euo pipefail
invoked_from=$PWD
cd "$(dirname "$(readlink -f "$0")")/.."

usage() {
  sed -n '2,/^set /{/^set /d;s/^# \{0,1\}//;p}' scripts/demo.sh
}

build_dir=$PWD/build/release
build=yes
routes=
run_args=()
while [[ $# -gt 0 ]]; do
  case $1 in
    --build-dir) build_dir=$(readlink -m "$2"); shift 2 ;;
    --no-build) build=no; shift ;;
    --routes)
      given=${2-}
      [[ $given == /* ]] || given=$invoked_from/$given
      [[ -r $given && ! -d $given ]] || { echo "demo: cannot read the file of routes '${2-}'" >&2; exit 2; }
      routes=$(readlink -f "$given")
      shift 2
      ;;
    --limit) run_args+=(--limit "$2"); shift 2 ;;
    --help) usage; exit 0 ;;
    *) usage >&2; exit 2 ;;
  esac
done

if [[ $build == yes ]]; then
  scripts/setup
  echo "demo: building (a few minutes the first time)"
  mkdir -p "$build_dir"
  scripts/configure release "$build_dir" >"$build_dir/configure.log" || {
    cat "$build_dir/configure.log" >&2
    exit 1
  }
  cmake --build "$build_dir" --target slice-agent partner-shell switchctl make_data
fi

if [[ -z $routes ]]; then
  [[ -f build/data/routes/internet.txt ]] || scripts/make_data.sh --build-dir "$build_dir" routes
else
  # The demo has a /tmp of its own, and a command line has no place for every name.
  mkdir -p "$build_dir/demo"
  cp -- "$routes" "$build_dir/demo/routes"
  run_args+=(--routes "$build_dir/demo/routes" --routes-name "$routes")
fi

run=(python3 scripts/demo_run.py --bin "$build_dir/bin" --out "$build_dir/demo" "${run_args[@]}")
exec scripts/in-private-namespaces --or-alone --keep "$build_dir" "${run[@]}"
