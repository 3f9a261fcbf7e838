#!/usr/bin/env bash
# Installs the project into an empty folder and builds foreign programs against it, once through
# CMake and once through pkg-config; then runs the installed tool.
# Usage: check_package.sh BUILD_FOLDER SOURCE_FOLDER CXX
set -eu
build=$1 source=$2 cxx=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "$*"; exit 1; }
run() { "$@" >"$work/log" 2>&1 || { cat "$work/log"; fail "failed: $*"; }; }

run cmake --install "$build" --prefix "$work/usr"
examples=$work/usr/share/doc/qel/examples
run cmake -S "$source" -B "$work/foreign" -DCMAKE_PREFIX_PATH="$work/usr" \
  -DCMAKE_CXX_COMPILER="$cxx" -DEXAMPLES="$examples"
run cmake --build "$work/foreign"
module=$(cat "$work/foreign/module_dir")/QELMaths.so
run "$work/foreign/foreign" "$module"
run "$work/foreign/minimal_host" "$module"

PKG_CONFIG_PATH=$(dirname "$(find "$work/usr" -name qel.pc)")
export PKG_CONFIG_PATH
[ "$(pkg-config --variable=moduledir qel)/QELMaths.so" -ef "$module" ] ||
  fail "pkg-config and CMake do not tell the same folder of the module"
flags=$(pkg-config --cflags qel)
for header in "$work"/usr/include/qel/*.h; do
  for standard in 17 20; do
    echo "#include <qel/$(basename "$header")>" >"$work/one.cpp"
    run "$cxx" -std=c++$standard -Wall -Wextra -Wpedantic -Werror -fsyntax-only $flags "$work/one.cpp"
  done
done
run "$cxx" -std=c++20 "$examples/minimal_host.cpp" -o "$work/minimal_host" \
  $(pkg-config --cflags --libs qel-host)
run "$work/minimal_host" "$module"

for file in man/man1/qel.1 man/man1/qel-negative.1 bash-completion/completions/qel \
  zsh/site-functions/_qel fish/vendor_completions.d/qel.fish; do
  [ -s "$work/usr/share/$file" ] || fail "share/$file is not installed"
done

printf 'P3 1 1 255 10 20 30\n' >"$work/dot.ppm"
run "$work/usr/bin/qel" run "$work/dot.ppm" -o "$work/out.ppm" negative
[ "$(tail -c 3 "$work/out.ppm" | od -An -tu1 | tr -s ' ')" = " 245 235 225" ] ||
  fail "the installed tool gave a wrong picture"
