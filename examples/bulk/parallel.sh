#!/usr/bin/env bash
# Shares the files of a list among processes of the tool, started by GNU parallel, and joins their
# manifests to one:
#
#   parallel.sh LIST 'out/{stem}.png' 8 negative "light brightness=20"
#
# With PARALLEL="--sshlogin node1,node2 --workdir ." in the environment they run on these machines,
# which must see the same folders. Run again after an interruption, it goes on where it was.
set -eu
list=$1 output=$2 shards=$3
shift 3
status=0
seq "$shards" | parallel --quote "${QEL:-qel}" run --files-from "$list" -o "$output" \
  --shard "{}/$shards" --jobs 1 --json "$list.{}.json" --resume "$@" || status=1
for shard in $(seq "$shards"); do cat "$list.$shard.json"; done >"$list.json"
exit "$status"
