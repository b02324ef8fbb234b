#!/usr/bin/env bash
# Makes the inputs of the demo, the soak and the benches: a routing table of the size of a full
# Internet table, rule sets, flows and captures. data/README.md says what they hold.
#
#   scripts/make_data.sh [--out DIR] [--seed N] [--build-dir DIR] [routes|rules|flows|pcap]...
#
# Without names all are made; DIR is build/data if left out. The same seed makes the same bytes on
# every machine. For the default seed, 1, what has been made is compared with data/SHA256SUMS. The
# generator is bin/make_data of the build folder; without --build-dir, that of the newest build; it is
# built first where there is none.
set -euo pipefail
invoked_from=$PWD
cd "$(dirname "$(readlink -f "$0")")/.."

usage() {
  sed -n '2,/^set /{/^set /d;s/^# \{0,1\}//;p}' scripts/make_data.sh
}

needs_value() {
  [[ $# -ge 2 ]] || { echo "make_data.sh: $1 needs a value" >&2; exit 2; }
}

out=$PWD/build/data
seed=1
build_dir=
kinds=()
while [[ $# -gt 0 ]]; do
  case $1 in
    --out) needs_value "$@"; out=$(cd "$invoked_from" && readlink -m "$2"); shift 2 ;;
    --seed) needs_value "$@"; seed=$2; shift 2 ;;
    --build-dir) needs_value "$@"; build_dir=$(cd "$invoked_from" && readlink -m "$2"); shift 2 ;;
    --help) usage; exit 0 ;;
    routes | rules | flows | pcap) kinds+=("$1"); shift ;;
    *) echo "make_data.sh: '$1' is neither an option nor a kind of data" >&2; usage >&2; exit 2 ;;
  esac
done

if [[ -z $build_dir ]]; then
  newest=$(ls -t build/*/bin/make_data 2>/dev/null | head -n 1 || true)
  build_dir=$PWD/build/release
  [[ -z $newest ]] || build_dir=$(dirname "$(dirname "$(readlink -f "$newest")")")
fi
generator=$build_dir/bin/make_data
if [[ ! -x $generator ]]; then
  echo "make_data.sh: building $generator"
  mkdir -p "$build_dir"
  scripts/configure release "$build_dir" >"$build_dir/configure.log" || {
    cat "$build_dir/configure.log" >&2
    exit 1
  }
  cmake --build "$build_dir" --target make_data
fi

"$generator" --out "$out" --seed "$seed" "${kinds[@]}"

[[ ${#kinds[@]} -gt 0 ]] || kinds=(routes rules flows pcap)
wanted=$(IFS='|'; echo "${kinds[*]}")
sums=$(grep -E "  ($wanted)(-facts)?/" data/SHA256SUMS)
if [[ $seed == 1 ]] && ! (cd "$out" && sha256sum --check --quiet <<<"$sums"); then
  echo "make_data.sh: $generator does not make what data/SHA256SUMS lists: build it again with" \
    "cmake --build $build_dir --target make_data" >&2
  exit 1
fi
echo "made ${kinds[*]} in $out from seed $seed"
