#!/usr/bin/env bash
# Kernels multiply whole vectors: GCC makes instructions of plain loops over lanes only where it likes
# what stands around them, and lanes taken out one by one cost five times as much, with the same bytes.
# Usage: check_vectors.sh OBJECT...
set -uo pipefail
singly=$(objdump -d --no-show-raw-insn -C "$@" | awk '
  /^[0-9a-f]+ </ { name = $0; sub(/^[0-9a-f]+ /, "", name) }
  /\tv?pextr[bw] / { taken[name]++ }
  /\timul / { products[name]++ }
  END { for (name in taken) if (taken[name] >= 8 && products[name] >= 8) print name }
') || { echo "check_vectors.sh: the objects cannot be read"; exit 1; }
[ -z "$singly" ] || { echo "lanes multiplied one by one in: $singly"; exit 1; }
