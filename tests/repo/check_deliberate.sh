#!/usr/bin/env bash
# Every `Deliberate:` tag has its row in docs/deliberate-behaviour.md, and every row names a test that
# there is. Usage: check_deliberate.sh SOURCE_ROOT
set -u
cd "$1" || exit 2
list=docs/deliberate-behaviour.md
failures=0
complain() {
  echo "$1"
  failures=$((failures + 1))
}

for file in $(grep -rlE '// Deliberate:' sdk image component module color filter maths transform | sort); do
  tags=$(grep -cE '// Deliberate:' "$file")
  rows=$(grep -cE "^\| \`$file\` \|" "$list")
  [ "$tags" -eq "$rows" ] || complain "$file has $tags Deliberate: tags, $list has $rows rows for it"
done
while IFS= read -r file; do
  [ -f "$file" ] && grep -q '// Deliberate:' "$file" ||
    complain "$list names $file, which has no Deliberate: tag"
done < <(sed -nE 's/^\| `([^`]+\.(cpp|h))` \|.*/\1/p' "$list" | sort -u)
while IFS= read -r test; do
  grep -rqE "TEST(_P|_F)?\(${test%.*}, ${test#*.}\)" tests --include='*_test.cpp' ||
    complain "$list names the test $test, which there is not"
done < <(sed -nE 's/.*\| `([A-Za-z]+\.Keeps[A-Za-z0-9]*)` \|$/\1/p' "$list" | sort -u)
untested=$(grep -E '^\| `' "$list" | grep -vcE '\| `[A-Za-z]+\.Keeps[A-Za-z0-9]*` \|$')
[ "$untested" -eq 0 ] || complain "$untested rows of $list name no Keeps... test"
exit $((failures > 0))
