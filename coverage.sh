#!/usr/bin/env bash
# Builds the module with coverage counters, runs its tests and reports which
# lines and branches they reach. Branches that the compiler adds for passing exceptions are left out.
# `./coverage.sh FILE.html` writes the annotated sources as well.
set -eu
QEL_ROOT=$(cd "$(dirname "$0")" && pwd)
. "$QEL_ROOT/scripts/prepare.sh"
qel_install $QEL_BUILD_PACKAGES $QEL_TEST_PACKAGES gcovr
build="$QEL_ROOT/build/coverage"
folders=(image component module color transform filter maths)
tests=(image module color transform filter maths solid)
# The module alone is counted, so that its plain readings in the tests stay quick.
counted="^$QEL_ROOT/($(IFS='|' && echo "${folders[*]}"))/.*"
qel_quietly cmake -S "$QEL_ROOT" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE= \
  -DCMAKE_CXX_FLAGS="-O1 --coverage '-fprofile-filter-files=$counted'" -DQEL_KERNEL_OPTIMISATION=-O1
qel_quietly cmake --build "$build" --target $(printf '%s_tests ' "${tests[@]}")
find "$build" -name '*.gcda' -delete
# Counters are no meeting place for threads.
GTEST_FILTER='-Threads.*:Loading.*' qel_quietly ctest --test-dir "$build" -j "$(nproc)" \
  -R "^($(IFS='|' && echo "${tests[*]}"))$"
report=(gcovr --root "$QEL_ROOT" "${folders[@]/#/--filter=$QEL_ROOT/}"
  --exclude-throw-branches --exclude-unreachable-branches)
"${report[@]}" --json "$build/coverage.json" "$build" >/dev/null
for kind in "" --branches; do
  gcovr --root "$QEL_ROOT" --add-tracefile "$build/coverage.json" $kind | tail -n +5
done
[ $# -eq 0 ] || gcovr --root "$QEL_ROOT" --add-tracefile "$build/coverage.json" --html-details "$1"
