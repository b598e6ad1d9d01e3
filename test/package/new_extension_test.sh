#!/usr/bin/env bash
# Whole: a new extension's folder builds as it is against the installed package,
# with both compilers, is found sound, and runs natively under a fuzzer; so does
# the sample.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
. "$here/script/lib.sh"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
package=$scratch/package

# quietly NAME COMMAND...: shows what the command said only if it fails.
quietly() {
  local log=$scratch/$1.log
  shift
  "$@" >"$log" 2>&1 || { cat "$log"; fail "$* failed"; }
}

# build FOLDER BUILD [OPTION...]
build() {
  quietly configure cmake -S "$1" -B "$2" -G Ninja \
    -D "CMAKE_PREFIX_PATH=$package" "${@:3}"
  quietly build cmake --build "$2"
}

# build_and_check FOLDER TOOLCHAIN
build_and_check() {
  build "$1" "$1/build" --toolchain "$2.cmake"
  quietly check cmake --build "$1/build" --target check
  grep -q '^0 faults, 0 warnings' "$scratch/check.log" ||
    { cat "$scratch/check.log"; fail "what $2 built of $1 is not sound"; }
}

# drives PROGRAM: it lives through the request of its folder.
drives() {
  quietly drive "$1" "$scratch/mine-c/request.http"
  grep -q 'Executed .*request.http' "$scratch/drive.log" ||
    { cat "$scratch/drive.log"; fail "$1 did not run the request"; }
}

# The sample, without the print spooler, which only Windows has.
drive_sample() {
  local source=$package/samples/extension
  cat >"$scratch/no_spooler.cpp" <<'CPP'
#include "printer_facts.h"
sample::PrinterFacts sample::FindPrinter(const std::string& name,
                                         const std::string&) {
  return {name, {}, {}, {}, {}, 0};
}
CPP
  clang-19 -g -fsanitize=address,undefined,fuzzer -I "$package/include" \
    -c "$package/samples/driver/drive_extension.c" -o "$scratch/driver.o"
  clang++-19 -std=c++20 -g -fsanitize=address,undefined,fuzzer \
    -I "$package/include" -I "$source" "$source/extension.cpp" \
    "$source/answer.cpp" "$source/status_page.cpp" "$scratch/no_spooler.cpp" \
    "$scratch/driver.o" -o "$scratch/sample"
  drives "$scratch/sample"
  quietly fuzz "$scratch/sample" -runs=2000 -verbosity=0
}

# What reads behind its request is seen.
drive_fault() {
  quietly new wine "$package/bin/kovactl.exe" new-extension faulty --c
  sed -i 's/^  if (answer == NULL) return NULL;/&\
  if (((const char*)request)[requestLengthBytes] == 0) keepOpen = NULL;/' \
    "$scratch/faulty/extension.c"
  build "$scratch/faulty" "$scratch/faulty/drive"
  ! "$scratch/faulty/drive/drive" "$scratch/mine-c/request.http" \
    >"$scratch/fault.log" 2>&1 || fail "a byte read too many was not seen"
  grep -q 'heap-buffer-overflow' "$scratch/fault.log" ||
    { cat "$scratch/fault.log"; fail "the driver does not say what is wrong"; }
}

# The driver without a fuzzer, by another compiler.
drive_with_gcc() {
  gcc -g -fsanitize=address,undefined -D KOVA_DRIVER_MAIN \
    -I "$package/include" "$scratch/mine-c/extension.c" \
    "$package/samples/driver/drive_extension.c" -o "$scratch/gcc-drive"
  quietly gcc-drive "$scratch/gcc-drive" "$scratch/mine-c/request.http"
}

need_build_tools
need_packages "sanitizers and fuzzer" libclang-rt-19-dev g++
need_wine
build_windows KOVAServer kovactl sample_extension event_messages
wine_environment
make_wine_prefix
for part in runtime development; do
  quietly "install-$part" cmake --install "$KOVA_BUILD" --component "$part" \
    --prefix "$package"
done
cd "$scratch"
quietly new wine "$package/bin/kovactl.exe" new-extension mine-c --c
quietly new wine "$package/bin/kovactl.exe" new-extension mine-cpp
say "Building new extensions and checking them"
build_and_check mine-c mingw-w64
build_and_check mine-cpp clang
say "Running extensions natively"
export CC=clang-19 CXX=clang++-19
for language in c cpp; do
  build "mine-$language" "mine-$language/drive"
  drives "mine-$language/drive/drive"
done
drive_sample
drive_fault
drive_with_gcc
echo "new extensions build, are sound, and run natively"
