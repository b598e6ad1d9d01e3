#!/usr/bin/env bash
# Whole: the samples are built alone against the installed development package,
# and the results run: the host with the server, the extension in it.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
. "$here/script/lib.sh"
. "$here/script/check_run.sh"
scratch=$(mktemp -d)
settings='HKLM\SOFTWARE\Corvane Tessaly\Drivers\Network\@'
host=

finish() {
  [ -z "$host" ] || kill -INT "$host" 2>/dev/null || true
  [ -z "${port_changed:-}" ] || restore_port
  rm -rf "$scratch"
}
trap finish EXIT

# quietly NAME COMMAND...: shows what the command said only if it fails.
quietly() {
  local log=$scratch/$1.log
  shift
  "$@" >"$log" 2>&1 || { cat "$log"; fail "$* failed"; }
}

# Sources that lie beside nothing of the project: a copy of the installed ones.
build_sample() {
  local source=$scratch/package/samples/$1
  [ ! -e "$source/../../CMakeLists.txt" ] || fail "the sample lies in a project"
  quietly "configure-$1" cmake -S "$source" -B "$scratch/$1" -G Ninja \
    --toolchain "$here/cmake/clang-mingw64.cmake" \
    -D CMAKE_BUILD_TYPE=Release -D "CMAKE_PREFIX_PATH=$scratch/package"
  quietly "build-$1" cmake --build "$scratch/$1"
  ! grep -rqF -- "-I$here" "$scratch/$1/build.ninja" ||
    fail "the sample $1 was built with the project's own headers"
}

# A build for this machine must be told no, in words.
check_refusal() {
  local log=$scratch/refusal.log
  mkdir -p "$scratch/native"
  printf '%s\n' 'cmake_minimum_required(VERSION 3.25)' 'project(native C)' \
    'find_package(KOVAServer REQUIRED)' >"$scratch/native/CMakeLists.txt"
  ! cmake -S "$scratch/native" -B "$scratch/native/build" -G Ninja \
    -D "CMAKE_PREFIX_PATH=$scratch/package" >"$log" 2>&1 ||
    fail "the package served a build that is not for Windows"
  tr -s ' \n' ' ' <"$log" | grep -qF 'a library for 64-bit Windows' ||
    { cat "$log"; fail "the refusal does not say why"; }
}

restore_port() {
  if [ -n "$port_before" ]; then
    wine reg add "$settings" /f /v "KOVA Server Port" /t REG_DWORD \
      /d "$port_before" >/dev/null 2>&1 || true
  else
    wine reg delete "$settings" /f /v "KOVA Server Port" >/dev/null 2>&1 || true
  fi
}

set_port() {
  settings+=$(wine cmd /c 'echo %COMPUTERNAME%' 2>/dev/null | tr -d '\r\n')
  port_before=$({ wine reg query "$settings" /v "KOVA Server Port" \
    2>/dev/null || true; } | sed -nE 's/.*REG_DWORD +(0x[0-9a-f]+).*/\1/p')
  port_changed=1
  wine reg add "$settings" /f /v "KOVA Server Port" /t REG_DWORD /d "$1" \
    >/dev/null 2>&1 || fail "cannot set the server's port"
}

# The server's own answer shows that the host started it.
run_host() {
  local answer='' code=0
  port=$(random_free_port)
  set_port "$port"
  wine "$scratch/host/sample_host.exe" 60 </dev/null >"$scratch/host.log" 2>&1 &
  host=$!
  until grep -qs '^The server was started' "$scratch/host.log"; do
    kill -0 "$host" 2>/dev/null ||
      fail "the host ended early: $(cat "$scratch/host.log")"
    sleep 0.1
  done
  answer=$(curl -s --noproxy '*' -m 20 -o /dev/null -w '%{http_code}' \
    "http://127.0.0.1:$port/") || true
  kill -INT "$host"
  wait "$host" || code=$?
  host=
  [ "$answer" = 400 ] || fail "the host's server gave status '$answer', not 400"
  [ "$code" -eq 0 ] || fail "the host ended with exit code $code"
  grep -q '^The server was stopped' "$scratch/host.log" ||
    fail "the host did not stop the server"
}

# The sample extension that was built alone answers for the printer.
run_extension() {
  check_log=$scratch/extension.log
  start_on_free_port --package "Z:${scratch//\//\\}\\extension"
  check_answers
  stop_server
}

need_build_tools
need_wine
need_packages "sends requests" curl
build_windows KOVAServer kovactl sample_extension event_messages
wine_environment
make_wine_prefix
for part in runtime development; do
  quietly "install-$part" cmake --install "$KOVA_BUILD" --component "$part" \
    --prefix "$scratch/package"
done
say "Building the samples against the installed package"
build_sample extension
build_sample host
check_refusal
say "Running what was built"
run_host
run_extension
echo "the installed package builds hosts and extensions"
