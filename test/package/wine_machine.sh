# shellcheck shell=bash
# A machine of Wine's own to install on, and looks at it: for tests that change
# the whole machine. Meant to be sourced after lib.sh.
scratch=$(mktemp -d)
export WINEPREFIX=$scratch/wine
export KOVA_PACKAGE_FOLDER=$scratch/packed
disk=$WINEPREFIX/drive_c
# shellcheck disable=SC2034
system=$disk/windows/system32
entry='HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall\KOVAServer'
# shellcheck disable=SC2034
default_folder='C:\Program Files\Corvane Tessaly\KOVA Server'

finish() {
  wineserver -k 2>/dev/null || true
  wineserver -w 2>/dev/null || true
  rm -rf "$scratch"
}
trap finish EXIT

windows_path() { printf 'Z:%s' "${1//\//\\}"; }
wine_quietly() { wine "$@" </dev/null >"$scratch/wine.log" 2>&1; }
registry() { wine reg "$@" 2>/dev/null </dev/null | tr -d '\r'; }
has_key() { wine_quietly reg query "$1"; }

# expect_code WANTED COMMAND...: WANTED is what a program of Unix can see of the
# code, its lowest 8 bits.
expect_code() {
  local wanted=$1 code=0
  shift
  wine_quietly "$@" || code=$?
  [ "$code" -eq "$wanted" ] || fail "$* ended with code $code, not $wanted"
}

# export_key KEY: the key and all below it, as text.
export_key() {
  rm -f "$scratch/export.reg"
  wine_quietly regedit /E "$(windows_path "$scratch/export.reg")" "$1" ||
    fail "cannot export $1"
  iconv -f UTF-16 -t UTF-8 "$scratch/export.reg" | tr -d '\r'
}

# snapshot NAME: every file and everything in the registry that setting up a
# program could touch.
snapshot() {
  {
    (cd "$disk" && find . -path './users/*/Temp/*' -prune -o \
      -type d -printf '%p/\n' -o -type f -printf '%p %s\n' | sort)
    export_key 'HKEY_LOCAL_MACHINE\Software'
    export_key 'HKEY_LOCAL_MACHINE\System\CurrentControlSet\Services'
    export_key 'HKEY_CURRENT_USER'
  } >"$scratch/$1.txt"
}
expect_same() {
  diff "$scratch/$1.txt" "$scratch/$2.txt" || fail "$3"
}

# uninstall FOLDER [OPTION...]: the code tells how it went, and the program that
# ran is gone a moment later.
uninstall() {
  local folder=$1 left
  shift
  left=$disk/$(tr '\\' / <<<"${folder#C:\\}")/uninstall.exe
  expect_code 0 "$folder\\uninstall.exe" /S "$@"
  ! has_key "$entry" || fail "the uninstaller did not wait for its end"
  for _ in $(seq 600); do
    [ -e "$left" ] || return 0
    sleep 0.1
  done
  fail "$left is left"
}
