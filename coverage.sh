#!/usr/bin/env bash
# Builds with coverage counters, runs the tests and reports which lines and branches of the module
# they reach. Branches that the compiler adds for passing exceptions are left out.
# `./coverage.sh FILE.html` writes the annotated sources as well.
set -eu
QEL_ROOT=$(cd "$(dirname "$0")" && pwd)
. "$QEL_ROOT/scripts/prepare.sh"
qel_install $QEL_BUILD_PACKAGES $QEL_TEST_PACKAGES gcovr
build="$QEL_ROOT/build/coverage"
qel_quietly cmake -S "$QEL_ROOT" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
  -DCMAKE_CXX_FLAGS="--coverage -fprofile-update=atomic"
qel_quietly cmake --build "$build"
find "$build" -name '*.gcda' -delete
qel_quietly ctest --test-dir "$build" -j "$(nproc)"
folders=()
for folder in image module color transform filter maths; do
  folders+=(--filter "$QEL_ROOT/$folder/")
done
gcovr --root "$QEL_ROOT" "${folders[@]}" --exclude-throw-branches --exclude-unreachable-branches \
  --branches "$build" | tail -n +5
gcovr --root "$QEL_ROOT" "${folders[@]}" --exclude-throw-branches --exclude-unreachable-branches \
  ${1:+--html-details "$1"} "$build" | tail -n 60
