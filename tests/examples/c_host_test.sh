#!/usr/bin/env bash
# The host in examples/c_host.c is C, and gets the negative of its image.
# usage: c_host_test.sh COMPILER SOURCE_FOLDER MODULE
set -eu
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
"$1" -x c -std=c11 -Wall -Wextra -Wpedantic -Werror "$2/examples/c_host.c" -o "$folder/c_host" -ldl
expected=$(for ((i = 0; i < 24; ++i)); do printf "%d " $((255 - 10 * i)); done)
got=$("$folder/c_host" "$3")
[ "$got" = "$expected" ] || { echo "not the negative: $got"; exit 1; }
