#!/usr/bin/env bash
# Builds what is shipped with the benchmark beside it, and runs all of it or, with --filter, a part.
# All options go to the benchmark; docs/performance.md says how its figures are renewed.
set -eu
QEL_ROOT=$(cd "$(dirname "$0")" && pwd)
. "$QEL_ROOT/scripts/prepare.sh"
qel_install $QEL_BUILD_PACKAGES $QEL_BENCH_PACKAGES
qel_install $QEL_BENCH_PEER_PACKAGES || echo "bench: without OpenCV" >&2
qel_build bench QELMaths qel_bench
exec "$QEL_ROOT/build/release/bin/qel_bench" "$@"
