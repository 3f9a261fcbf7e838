#!/usr/bin/env bash
# Writes the pages and pictures of docs/operations, and the README's pictures; files that are right
# already stay. `ctest -R docs` tells when pages are due.
set -eu
QEL_ROOT=$(cd "$(dirname "$0")" && pwd)
. "$QEL_ROOT/scripts/prepare.sh"
qel_install $QEL_BUILD_PACKAGES
qel_build release qel QELMaths qel_docs
bin="$QEL_ROOT/build/release/bin"
"$bin/qel_docs" "$QEL_ROOT/docs/operations"

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
# put_picture NAME: into docs/pictures, unless the one there has these pixels already.
put_picture() {
  local there="$QEL_ROOT/docs/pictures/$1"
  "$bin/qel" diff "$scratch/$1" "$there" --limit 1 >/dev/null 2>&1 || cp "$scratch/$1" "$there"
}
"$bin/qel" demo -o "$scratch/demo" >/dev/null
shown=(scene colorize rotate circle emboss edge contour transform add-scale)
words=()
for name in "${shown[@]}"; do words+=("$scratch/demo/$name.png" --caption "$name"); done
"$bin/qel" sheet "${words[@]}" --size 270 -o "$scratch/demo.png"
"$bin/qel" methods "$scratch/demo/scene.png" --left 30 --top 15 --size 24 -o "$scratch/methods.png"
put_picture demo.png
put_picture methods.png
