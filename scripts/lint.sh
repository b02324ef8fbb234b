#!/usr/bin/env bash
# clang-tidy over the library, the model and the programs. Status 0 if it finds nothing.
#
#   scripts/lint.sh [all]
#
# All checks of .clang-tidy look at the library. At the model and the programs all look but the
# static analyzer, and at several sources as one: nearly all of the time goes into the headers of
# libraries. `all` runs the analyzer over the model, too, which takes some minutes more.
set -uo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
if [[ $# -gt 1 || ${1:-all} != all ]]; then
  echo "usage: scripts/lint.sh [all]" >&2
  exit 2
fi
log=build/lint.log
status=0

# prepare DIR [CMAKE-ARGUMENT]...: configured, and with what is generated.
prepare() {
  scripts/configure lint "$@" && cmake --build "$1" --target jex_generated
}

# look DIR [OPTION]... REGEX: at the sources of DIR whose path fits.
look() {
  run-clang-tidy -quiet -j "$(nproc)" -p "$@" >>"$log" 2>&1 || status=1
}

mkdir -p build
prepare "$PWD/build/lint" >"$log" 2>&1 || { cat "$log"; exit 1; }
# What holds for the programs holds for what is made of their sources.
cp apps/.clang-tidy build/lint/apps/.clang-tidy
look build/lint "^$PWD/JexHybridSlice/"
look build/lint -checks='-clang-analyzer-*' \
  "^$PWD/build/lint/(sdk|apps)/(?!.*(jx_[a-z0-9_]*_(proto|client)|switchctl_health)).*/Unity/"
if [[ ${1:-} == all ]]; then
  prepare "$PWD/build/lint-each" -DCMAKE_UNITY_BUILD=OFF -DJEX_BUILD_APPS=OFF >>"$log" 2>&1 || status=1
  look build/lint-each "^$PWD/sdk/model/"
fi

grep -E '(warning|error):' "$log" | sort -u
# A pattern that fits nothing must not pass for clean.
for kind in JexHybridSlice/ sdk/model/CMakeFiles/ apps/; do
  grep -q "^clang-tidy.*/$kind" "$log" || { echo "lint: nothing of $kind was looked at"; status=1; }
done
# clang checks the model's own locks only.
if git grep -nE 'std::(recursive_|shared_)?(timed_)?mutex|std::condition_variable' \
  -- sdk/model ':!sdk/model/base/mutex.h'; then
  echo "lint: the model takes its locks from sdk/model/base/mutex.h"
  status=1
fi
exit "$status"
