#!/usr/bin/env bash
# Builds the module for every processor level with GCC and Clang at -O0 to -O3, and compares what every
# operation of every build leaves behind. `scripts/same_bytes.sh COMPILER-OPTIMISATION...` (such as
# `clang++-O2`) builds these only.
set -eu
QEL_ROOT=$(cd "$(dirname "$0")/.." && pwd)
. "$QEL_ROOT/scripts/prepare.sh"
qel_install $QEL_BUILD_PACKAGES $QEL_TEST_PACKAGES clang
if [ $# -eq 0 ]; then
  set -- g++-O{0,1,2,3} clang++-O{0,1,2,3}
fi
qel_build release same_bytes test_modules
folders=("$QEL_ROOT/build/release/tests/modules")
for variant in "$@"; do
  build="$QEL_ROOT/build/same_bytes/$variant"
  qel_quietly cmake -S "$QEL_ROOT" -B "$build" -G Ninja -DCMAKE_CXX_COMPILER="${variant%-O*}" \
    -DCMAKE_CXX_FLAGS="-O${variant##*-O}" -DQEL_KERNEL_OPTIMISATION="-O${variant##*-O}"
  qel_quietly cmake --build "$build" --target test_modules
  folders+=("$build/tests/modules")
done
exec "$QEL_ROOT/build/release/tests/same_bytes" "${folders[@]}"
