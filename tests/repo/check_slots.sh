#!/usr/bin/env bash
# The interfaces of the SDK headers, slot by slot, are those of sdk_slots.txt: what is there must stay
# where it is. After an intended addition: check_slots.sh SOURCE_ROOT >/dev/null; it prints the new
# list to standard output. Usage: check_slots.sh SOURCE_ROOT
set -u
cd "$1" || exit 2
list=tests/repo/sdk_slots.txt
now=$(for header in sdk/include/qel/*.h; do
  sed -E 's://.*$::' "$header" | tr -s '\n ' ' ' |
    grep -oE '(class \w+ : public \w+ \{|class IUnknown \{|virtual [^;{]*(= 0;|\{ return))' |
    # Names of parameters may change, types may not.
    sed -E 's/ (= 0;|\{ return)$//; s/ ?\{$//; s/^virtual /  /; s/([*&]|\w) ?\b\w+([,)])/\1\2/g'
done)
diff <(echo "$now") "$list" >/dev/null && exit 0
echo "$now"
{
  echo "the interfaces have changed (< now, > $list):"
  diff <(echo "$now") "$list"
} >&2
exit 1
