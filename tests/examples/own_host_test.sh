#!/usr/bin/env bash
# The host in examples/own_host.cpp gets from the module what the tool gets for the same picture.
# usage: own_host_test.sh OWN_HOST MODULE QEL
set -eu
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
"$1" "$2" >"$folder/own.ppm"
awk 'function v(i) { return int(i * i / 97) % 256 }
     BEGIN { print "P3 64 48 255"
             for (i = 0; i < 64 * 48 * 3; i += 3) print v(i + 2), v(i + 1), v(i) }' >"$folder/before.ppm"
"$3" run "$folder/before.ppm" -o "$folder/tool.ppm" "light brightness=20 contrast=10" "median size=3"
"$3" diff "$folder/own.ppm" "$folder/tool.ppm"
