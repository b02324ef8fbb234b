#!/usr/bin/env bash
# Installs what is needed, builds a preset and runs its tests.
#
#   scripts/test.sh [release|debug|asan|tsan|coverage] [CTEST-ARGUMENT]...
#
# Without arguments: all tests of the release build. CTest arguments choose, for instance
# scripts/test.sh asan -R wire
#
# The first and the last line of the tests say whether they ran beside each other or, where no
# private world can be made, one at a time; the lines before the last, what was skipped and why.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."

preset=release
if [[ $# -gt 0 && $1 != -* ]]; then
  preset=$1
  shift
fi
case $preset in
  release | debug | asan | tsan | coverage) ;;
  *)
    echo "test.sh: no preset $preset; there are release, debug, asan, tsan, coverage" >&2
    exit 2
    ;;
esac

scripts/setup
mkdir -p "build/$preset"
scripts/configure "$preset" >"build/$preset/configure.log" || {
  cat "build/$preset/configure.log" >&2
  exit 1
}
cmake --build "build/$preset"
exec scripts/run_tests.py --preset "$preset" "$@"
