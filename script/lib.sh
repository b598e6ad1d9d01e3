# shellcheck shell=bash
# Shared by the scripts beside it: where things are, what must be installed,
# how to build, and the Wine prefix that programs run in. Meant to be sourced.
KOVA_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
KOVA_BUILD=$KOVA_ROOT/build

say() { printf '\n== %s\n' "$*"; }
fail() {
  printf 'error: %s\n' "$*" >&2
  exit 1
}

# need_packages WHY PACKAGE...: installs those that are missing, once.
need_packages() {
  local why=$1 missing=() package
  shift
  for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null |
      grep -q '^install ok installed' || missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  say "Installing ${missing[*]} ($why)"
  [ "$(id -u)" = 0 ] || fail "these packages are missing and only root can \
install them; run as root: apt-get install ${missing[*]}"
  if [ -z "${KOVA_APT_UPDATED:-}" ]; then
    apt-get update -qq || fail "apt-get update failed; is there a network?"
    KOVA_APT_UPDATED=1
  fi
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq \
    --no-install-recommends "${missing[@]}" >"$(log_file packages)" 2>&1 ||
    { cat "$(log_file packages)"; fail "installing ${missing[*]} failed"; }
}

need_build_tools() {
  need_packages "compiler, linker and resource compiler" \
    clang-19 lld-19 llvm-19
  if [ "${KOVA_RUNTIME:-}" = ucrt ]; then
    need_packages "headers and libraries for 64-bit Windows with the UCRT" \
      g++-mingw-w64-ucrt64
  else
    need_packages "headers and libraries for 64-bit Windows" \
      g++-mingw-w64-x86-64-posix
  fi
  need_packages "message compiler" binutils-mingw-w64-x86-64
  need_packages "build system" cmake ninja-build
  need_packages "libraries of the tools and tests" \
    googletest libcli11-dev nlohmann-json3-dev
}

need_package_tools() {
  need_packages "packs, lists and checks what is packed" \
    python3-minimal libpython3-stdlib
  need_packages "turns the manual pages into HTML" cmark-gfm
  need_packages "makes the setup program" nsis
  need_packages "makes the Windows Installer package" msitools wixl
}

need_micro_bench() {
  need_packages "measures small pieces, and the parser to compare with" \
    libbenchmark-dev libhttp-parser-dev
}

# Beside what builds and runs the product: the servers it is compared with.
need_bench() {
  need_packages "builds the servers that the product is compared with" \
    libboost-dev
}

need_wine() {
  need_packages "runs Windows programs here" wine wine64
}

# configure_build PRESET FOLDER: when needed, as it is when a list of sources or
# tests has changed, or when KOVA_RUNTIME names another C runtime than before.
configure_build() {
  local log how=(cmake --fresh --preset "$1")
  cd "$KOVA_ROOT" || fail "cannot enter $KOVA_ROOT"
  log=$(log_file "configure-$1")
  if [ -f "$2/build.ninja" ] &&
    { [ "$1" != windows ] || [ -z "${KOVA_RUNTIME:-}" ] ||
      grep -qx "KOVA_RUNTIME:STRING=$KOVA_RUNTIME" "$2/CMakeCache.txt"; }; then
    how=(ninja -C "$2" build.ninja)
  else
    say "Configuring the build $1"
  fi
  flock -o "$KOVA_BUILD/.lock" "${how[@]}" >"$log" 2>&1 ||
    { cat "$log"; fail "configuring failed"; }
}

# build_windows [TARGET...]: configures when needed, then builds. Tests that run
# side by side may come here together.
build_windows() {
  configure_build windows "$KOVA_BUILD"
  say "Building the Windows programs"
  flock -o "$KOVA_BUILD/.lock" cmake --build --preset windows \
    ${1:+--target "$@"} ||
    fail "the build failed; the first error above says where"
}

# What goes into the packages, by target and by the files that these make.
# shellcheck disable=SC2034
KOVA_IMAGE_TARGETS=(KOVAServer kovactl sample_extension event_messages)
# shellcheck disable=SC2034
KOVA_IMAGE_FILES=(bin/KOVAServer.dll bin/KOVAServer.lib bin/kovactl.exe
  bin/sample-extension/Corvane_V3_NetMon.dll
  bin/messages/Corvane_EventMessages.dll
  symbols/KOVAServer.pdb symbols/kovactl.pdb symbols/sample_extension.pdb)

log_file() {
  mkdir -p "$KOVA_BUILD/logs"
  printf '%s/logs/%s.log' "$KOVA_BUILD" "$1"
}

# Names the prefix to use; one that holds what is not ours is refused, before
# anything is built for it.
wine_environment() {
  export WINEPREFIX=${WINEPREFIX:-$KOVA_BUILD/wine}
  export WINEDEBUG=${WINEDEBUG:--all}
  export WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-mscoree,mshtml=}
  check_wine_prefix
}

# Whether the prefix lies in the build folder, wherever links lead.
is_own_prefix() {
  [[ $(realpath -m "$WINEPREFIX") == "$(realpath -m "$KOVA_BUILD")"/* ]]
}

# Somebody's prefix was not prepared for what runs here, and must not be.
check_wine_prefix() {
  [ ! -f "$WINEPREFIX/.kova-ready" ] && [ -e "$WINEPREFIX" ] || return 0
  is_own_prefix || [ -z "$(ls -A "$WINEPREFIX" 2>&1)" ] || fail "WINEPREFIX \
names $WINEPREFIX, which was not made here: unset it, or name a new folder"
}

# So many tests may run at once, each with a prefix and ports of its own.
# shellcheck disable=SC2034
KOVA_PLACES=12
# A prefix as Wine makes it, which the tests copy, for that is faster.
KOVA_FRESH_PREFIX=$KOVA_BUILD/test-wine/fresh

# Makes the prefix once; a half-made one of the build folder is made anew.
make_wine_prefix() {
  [ -f "$WINEPREFIX/.kova-ready" ] && return 0
  check_wine_prefix
  ! is_own_prefix || rm -rf "$WINEPREFIX"
  mkdir -p "$(dirname "$WINEPREFIX")"
  if [ -f "$KOVA_FRESH_PREFIX/.kova-ready" ]; then
    copy_wine_prefix "$WINEPREFIX.new"
    mv -T "$WINEPREFIX.new" "$WINEPREFIX"
  else
    boot_wine_prefix
  fi
}

# copy_wine_prefix FOLDER: what no program changes, Windows' own 700 MB, is
# linked, not copied, where both lie on one disk.
copy_wine_prefix() {
  rm -rf "$1"
  cp -al "$KOVA_FRESH_PREFIX" "$1" 2>/dev/null ||
    cp -a "$KOVA_FRESH_PREFIX/." "$1" || fail "copying the Wine prefix failed"
  (cd "$KOVA_FRESH_PREFIX" && find . -type f \
    \( ! -path './drive_c/windows/*' -o -name '*.ini' \) \
    -exec cp -p --remove-destination {} "$1/{}" \;) ||
    fail "copying the Wine prefix failed"
}

boot_wine_prefix() {
  local log
  log=$(log_file "wineboot-$(basename "$WINEPREFIX")")
  say "Making the Wine prefix (about 15 s, once)" >&2
  wineboot -i >"$log" 2>&1 || { cat "$log"; fail "making the Wine prefix failed"; }
  # A child that crashes on purpose must end, not wait for a debugger.
  wine reg add 'HKLM\Software\Microsoft\Windows NT\CurrentVersion\AeDebug' \
    /v Debugger /t REG_SZ /d '' /f >>"$log" 2>&1 ||
    fail "preparing the Wine prefix failed; see $log"
  wineserver -w
  touch "$WINEPREFIX/.kova-ready"
}

# Wine's server holds a descriptor per connection for every program, and the
# host one, too.
raise_limit() {
  local wanted=20000
  [ "$(ulimit -n)" = unlimited ] || [ "$(ulimit -n)" -ge "$wanted" ] ||
    ulimit -n "$wanted" || fail "cannot raise the limit of open files to \
$wanted (ulimit -Hn says $(ulimit -Hn))"
}
