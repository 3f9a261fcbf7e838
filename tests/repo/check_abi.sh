#!/usr/bin/env bash
# The binary interface that a compiler makes of the SDK headers is that of sdk_abi.xml. Where libabigail
# or GCC is missing, there is nothing to compare with: exit code 77.
# After an intended addition: check_abi.sh --write SOURCE_ROOT. Usage: check_abi.sh SOURCE_ROOT
set -u
write=
[ "${1-}" = --write ] && write=yes && shift
cd "$1/tests/repo" || exit 2
for tool in abidw abidiff g++; do
  command -v "$tool" >/dev/null || { echo "skipped: there is no $tool" >&2; exit 77; }
done
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
g++ -std=c++20 -g -femit-class-debug-always -fPIC -shared -I../../sdk/include sdk_abi.cpp \
  -o "$folder/sdk.so" || exit 2
describe() {
  abidw --no-corpus-path --no-comp-dir-path --no-show-locs --no-elf-needed "$folder/sdk.so"
}
if [ -n "$write" ]; then
  describe >sdk_abi.xml
  exit
fi
# Slots that move count as harmless there, since nothing of the library itself changes.
abidiff --harmless sdk_abi.xml "$folder/sdk.so" >"$folder/changes"
if grep -q '\[C\]\|[1-9][0-9]* \(Changed\|Removed\|Added\)' "$folder/changes"; then
  cat "$folder/changes" >&2
  exit 1
fi
