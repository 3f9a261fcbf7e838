#!/usr/bin/env bash
# The module exports two functions and depends on the C++ library, libm and libdl only; objects built
# for one processor level define no weak symbols, which the linker could share between levels.
# Usage: check_symbols.sh MODULE OBJECT...
set -u
module=$1
shift
failures=0
complain() {
  echo "$1"
  failures=$((failures + 1))
}

exported=$(nm -D --defined-only "$module" | awk '{print $3}' | sort | tr '\n' ' ')
[ "$exported" = "CreateFunction InitializeModule " ] || complain "$module exports: $exported"

foreign=$(readelf -d "$module" | sed -nE 's/.*\(NEEDED\).*\[(.*)\]/\1/p' |
  grep -vE '^(libstdc\+\+|libm|libdl|libgcc_s|libc|libasan|libubsan|libtsan|ld-linux-x86-64)\.so')
[ -z "$foreign" ] || complain "$module depends on: $foreign"
readelf -d "$module" | grep -q 'BIND_NOW\|FLAGS.*NOW' || complain "$module is not bound at load"
readelf -lW "$module" | grep -q 'GNU_RELRO' || complain "$module has no RELRO segment"
# Operations keep nothing between calls; the first use of a thread's own memory may also end the process.
readelf -lW "$module" | grep -q ' TLS ' && complain "$module has variables of threads"

weak=$(nm -AC "$@" | awk '$2 ~ /^[WVu]$/ {
  object = $1
  $1 = ""
  if ($0 !~ /asan|ubsan|tsan|DW.ref/) print object $0
}')
[ -z "$weak" ] || complain "objects define shared symbols: $weak"
exit $((failures > 0))
