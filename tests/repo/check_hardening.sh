#!/usr/bin/env bash
# Module and tool carry the checks that they are built with, as far as the files show it.
# Usage: check_hardening.sh MODULE TOOL COMPILE_COMMANDS
set -u
module=$1 tool=$2 commands=$3
failures=0
expect() {  # expect WHAT COMMAND...: the command must succeed
  local what=$1
  shift
  "$@" >/dev/null || { echo "missing: $what"; failures=$((failures + 1)); }
}
has() {  # has PATTERN COMMAND...: the command's output must match
  local pattern=$1
  shift
  "$@" 2>/dev/null | grep -E "$pattern"
}

for file in "$module" "$tool"; do
  name=$(basename "$file")
  expect "$name: bound at load" has 'BIND_NOW|FLAGS.*NOW' readelf -dW "$file"
  expect "$name: relocations read-only" has GNU_RELRO readelf -lW "$file"
  expect "$name: stack not executable" has 'GNU_STACK.* RW ' readelf -lW "$file"
  expect "$name: stack canaries" has __stack_chk_fail readelf --dyn-syms -W "$file"
  expect "$name: bounded copies" has '__mem(cpy|move|set)_chk|__v?snprintf_chk' \
    readelf --dyn-syms -W "$file"
done
expect "tool: loaded at any address" has 'FLAGS_1.*PIE' readelf -dW "$tool"
expect "tool: library assertions" has __glibcxx_assert_fail readelf --dyn-syms -W "$tool"
expect "module: marked targets of jumps" has endbr64 \
  objdump -d --disassemble=InitializeModule "$module"
expect "tool: marked targets of jumps" has endbr64 objdump -d --disassemble=main "$tool"
for target in module filter pictures cli; do
  expect "$target: stack touched page by page" has 'fstack-clash-protection' \
    grep -F " -o $target/CMakeFiles/qel_$target.dir/" "$commands"
done
exit $((failures > 0))
