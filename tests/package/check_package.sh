#!/usr/bin/env bash
# Installs the project into an empty folder and builds foreign programs against it, once through
# CMake and once through pkg-config; then runs the installed tool.
# Usage: check_package.sh BUILD_FOLDER SOURCE_FOLDER CXX
set -eu
build=$1 source=$2 cxx=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
run() { "$@" >"$work/log" 2>&1 || { cat "$work/log"; echo "failed: $*"; exit 1; }; }

run cmake --install "$build" --prefix "$work/usr"
run cmake -S "$source" -B "$work/foreign" -DCMAKE_PREFIX_PATH="$work/usr" -DCMAKE_CXX_COMPILER="$cxx"
run cmake --build "$work/foreign"
run "$work/foreign/foreign" "$(find "$work/usr" -name QELMaths.so)"

PKG_CONFIG_PATH=$(dirname "$(find "$work/usr" -name qel.pc)")
export PKG_CONFIG_PATH
flags=$(pkg-config --cflags qel)
for header in "$work"/usr/include/qel/*.h; do
  for standard in 17 20; do
    echo "#include <qel/$(basename "$header")>" >"$work/one.cpp"
    run "$cxx" -std=c++$standard -Wall -Wextra -Wpedantic -Werror -fsyntax-only $flags "$work/one.cpp"
  done
done

for file in man/man1/qel.1 man/man1/qel-negative.1 bash-completion/completions/qel \
  zsh/site-functions/_qel fish/vendor_completions.d/qel.fish; do
  [ -s "$work/usr/share/$file" ] || { echo "share/$file is not installed"; exit 1; }
done

printf 'P3 1 1 255 10 20 30\n' >"$work/dot.ppm"
run "$work/usr/bin/qel" run "$work/dot.ppm" -o "$work/out.ppm" negative
[ "$(tail -c 3 "$work/out.ppm" | od -An -tu1 | tr -s ' ')" = " 245 235 225" ] ||
  { echo "the installed tool gave a wrong picture"; exit 1; }
