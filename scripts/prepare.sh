# Sourced by ./run, ./test and ./bench.sh: installs what a build needs and is missing, quietly when
# all is there.

# Debian packages by what they are for.
QEL_BUILD_PACKAGES="g++ cmake ninja-build pkg-config libpng-dev libjpeg62-turbo-dev libtiff-dev libwebp-dev libgif-dev liblcms2-dev libfmt-dev nettle-dev libfontconfig-dev libfreetype-dev"
# Without these the plug-ins for more picture formats are left out, or the Python package.
QEL_PLUGIN_PACKAGES="libheif-dev libjxl-dev"
QEL_PYTHON_PACKAGES="python3-dev python3-numpy pybind11-dev"
QEL_TEST_PACKAGES="libgtest-dev abigail-tools fonts-dejavu-core $QEL_PLUGIN_PACKAGES $QEL_PYTHON_PACKAGES python3-pytest python3-hypothesis python3-dask python3-distributed mypy python3-pil python3-venv python3-pip python3-wheel python3-setuptools zsh fish parallel"
QEL_FUZZ_PACKAGES="clang libclang-rt-14-dev"
QEL_EMULATION_PACKAGES="libsimde-dev"
QEL_AARCH64_PACKAGES="g++-aarch64-linux-gnu qemu-user googletest"
QEL_WEB_PACKAGES="emscripten node-acorn nodejs python3"
QEL_WEB_TEST_PACKAGES="chromium"
QEL_BENCH_PACKAGES="libbenchmark-dev"
QEL_BENCH_PEER_PACKAGES="libopencv-dev"

# qel_install PACKAGE...: installs the packages that dpkg does not know as installed.
qel_install() {
  local missing=() package
  for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' ||
      missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return
  local become=()
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || {
      echo "qel: these packages are missing, and there is neither root nor sudo to install them:" >&2
      echo "     apt-get install ${missing[*]}" >&2
      return 1
    }
    become=(sudo)
  fi
  echo "Installing with apt-get: ${missing[*]}" >&2
  "${become[@]}" apt-get update -qq >&2 &&
    DEBIAN_FRONTEND=noninteractive "${become[@]}" apt-get install -y -qq \
      --no-install-recommends "${missing[@]}" >/dev/null
}

# qel_build_web: builds the page into build/wasm/web, where the links of docs/operations find it.
qel_build_web() {
  qel_install $QEL_WEB_PACKAGES
  # Where Debian's emscripten finds the parser that it shrinks JavaScript with.
  NODE_PATH=/usr/share/nodejs qel_build wasm
  ln -sfn ../build/wasm/web "$QEL_ROOT/docs/try"
}

# qel_quietly COMMAND...: runs a command and shows its output only if it fails.
qel_quietly() {
  local log
  log=$(mktemp) || return 1
  if "$@" >"$log" 2>&1; then
    rm -f "$log"
  else
    local code=$?
    cat "$log" >&2
    rm -f "$log"
    echo "qel: failed: $*" >&2
    return $code
  fi
}

# qel_build PRESET [TARGET...]: configures and builds from the root of the checkout.
qel_build() {
  local preset=$1
  shift
  (cd "$QEL_ROOT" && qel_quietly cmake --preset "$preset" &&
    qel_quietly cmake --build --preset "$preset" ${1:+--target "$@"})
}
