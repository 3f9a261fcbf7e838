#!/usr/bin/env bash
# Writes the pages and pictures of docs/operations anew. `ctest -R docs` tells when that is due.
set -eu
QEL_ROOT=$(cd "$(dirname "$0")" && pwd)
. "$QEL_ROOT/scripts/prepare.sh"
qel_install $QEL_BUILD_PACKAGES
qel_build release QELMaths qel_docs
exec "$QEL_ROOT/build/release/bin/qel_docs" "$QEL_ROOT/docs/operations"
