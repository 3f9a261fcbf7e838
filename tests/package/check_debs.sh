#!/usr/bin/env bash
# Builds the Debian packages, installs them into an empty tree and uses what is there.
# Usage: check_debs.sh BUILD_FOLDER CPACK; exit code 77 where packages cannot be built.
set -eu
build=$1 cpack=$2
for tool in "$cpack" dpkg-deb dpkg-shlibdeps gzip; do
  command -v "$tool" >/dev/null || { echo "skipped: $tool is missing"; exit 77; }
done
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "$*"; exit 1; }
run() { "$@" >"$work/log" 2>&1 || { cat "$work/log"; fail "failed: $*"; }; }

run "$cpack" --config "$build/CPackConfig.cmake" -G DEB -B "$work/debs"
field() { dpkg-deb -f "$work"/debs/"$1"_*.deb "$2"; }
packages=$(cd "$work/debs" && printf '%s\n' *.deb | sed 's/_.*//' | sort | tr '\n' ' ')
all="qel qel-dev qel-doc qel-host-dev qel-module"
if [ -d "$build/formats" ]; then all="${all/qel-host/qel-formats-extra qel-host}"; fi
if [ -d "$build/python/qel" ]; then all="python3-qel $all"; fi
if grep -q 'CPACK_COMPONENTS_ALL .*;web' "$build/CPackConfig.cmake"; then all="$all qel-web"; fi
[ "$packages" = "$all " ] || fail "not the packages $all: $packages"
version=$(field qel Version)
depends=$(field qel Depends)
[[ $depends == *"qel-module (= $version)"* && $depends == *libc6* && $depends == *libpng16* ]] ||
  fail "qel depends on: $depends"
[[ $(field qel-module Depends) == *libstdc++6* ]] || fail "qel-module misses its libraries"
[ "$(field qel-dev Architecture) $(field qel-doc Architecture)" = "all all" ] ||
  fail "headers and documentation are for all architectures"

# As root with the package manager itself, which sees files that two packages would share. Libraries
# come from this system, since the tree has none.
root=$work/root
if [ "$(id -u)" = 0 ]; then
  mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates"
  touch "$root/var/lib/dpkg/status"
  run dpkg --root="$root" --force-depends --log="$work/dpkg.log" --install "$work"/debs/*.deb
  [ "$(grep -c '^Status: install ok installed' "$root/var/lib/dpkg/status")" = "$(wc -w <<<"$all")" ] ||
    fail "not all packages are installed"
else
  for package in "$work"/debs/*.deb; do run dpkg-deb -x "$package" "$root"; done
fi

printf 'P3 1 1 255 10 20 30\n' >"$work/dot.ppm"
run "$root/usr/bin/qel" run "$work/dot.ppm" -o "$work/out.ppm" negative
[ "$(tail -c 3 "$work/out.ppm" | od -An -tu1 | tr -s ' ')" = " 245 235 225" ] ||
  fail "the packaged tool gave a wrong picture"
run "$root/usr/bin/qel" check --filter entry "$(find "$root" -name QELMaths.so)"
gzip -dc "$root/usr/share/man/man1/qel-median.1.gz" | grep -q '^\.TH "QEL\\-MEDIAN"' ||
  fail "the manual is not there"
if [[ $all == python3-qel* ]]; then
  PYTHONPATH=$root/usr/lib/python3/dist-packages QEL_MODULE=$(find "$root" -name QELMaths.so) \
    run /usr/bin/python3 -B -c '
import numpy, qel
dot = qel.imread("'"$work"'/dot.ppm")
assert qel.negative(dot).tolist() == [[[245, 235, 225]]], qel.negative(dot)'
fi
if [[ $all == *qel-web ]]; then
  grep -q 'id="wasm-text"' "$root/usr/share/doc/qel/docs/operations/../try/qel.html" ||
    fail "the page is not where the documentation links to"
fi
for package in $all; do
  folder=$root/usr/share/doc/$package
  grep -q '^License: Expat' "$folder/copyright" || fail "$package has no copyright"
  gzip -dc "$folder/changelog.Debian.gz" | grep -q "^qel ($version)" || fail "$package: changelog"
done
for link in $(grep -o '](\(docs\|examples\)/[^)]*)' "$root/usr/share/doc/qel/README.md"); do
  [ -e "$root/usr/share/doc/qel/${link:2:-1}" ] || fail "the README's ${link:2:-1} is not packaged"
done

if command -v lintian >/dev/null; then
  run lintian --allow-root --fail-on error "$work"/debs/*.deb
else
  echo "lintian is missing: its rules were not tried"
fi
if [ "$(id -u)" = 0 ]; then
  run dpkg --root="$root" --log="$work/dpkg.log" --purge $all
  left=$(find "$root" -path "$root/usr/*" -type f | head -5)
  [ -z "$left" ] || fail "left behind: $left"
fi
