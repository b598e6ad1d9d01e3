#!/usr/bin/env bash
# Whole: the installer puts on a machine what the package holds and registers
# what the server would; the uninstaller takes back just that. In a Wine prefix
# of its own, for both change the whole machine.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
. "$here/script/lib.sh"
. "$here/script/check_run.sh"
. "$here/test/package/wine_machine.sh"
sources='HKLM\System\CurrentControlSet\Services\Eventlog\Application'
printers='HKLM\System\CurrentControlSet\Control\Print\Printers'
masks='HKLM\Software\Corvane Tessaly\Drivers\DebugLogMasks'

# Wine quotes an argument with a blank in it, which /D= does not allow.
install_to() { expect_code 0 "$setup" /S "/D=$1"; }

# run_server FOLDER [OPTION...]
run_server() {
  wine_quietly "$1\\kovactl.exe" run --seconds 1 \
    --port "$(random_free_port)" "${@:2}" || {
    cat "$scratch/wine.log"
    fail "the server in $1 does not run"
  }
}

source_values() {
  export_key "${sources/HKLM/HKEY_LOCAL_MACHINE}\\$1"
}

# The sources as the server makes them, which are then removed again. The log
# mask and a setting stay, as an administrator's would.
learn_from_server() {
  local name
  run_server "Z:${package//\//\\}\\bin"
  for name in "Corvane KOVA Server" DispatcherUtil; do
    source_values "$name" >"$scratch/server-$name.txt"
    grep -q TypesSupported "$scratch/server-$name.txt" ||
      fail "the server made no source $name"
    wine_quietly reg delete "$sources\\$name" /f
  done
  rm -rf "$disk/Log Files"
  wine_quietly reg add "$masks" /f /v "Another logger" /t REG_DWORD /d 1
}

check_files() {
  local file
  (cd "$package" && find . -type f | sort) >"$scratch/packed.txt"
  while read -r file; do
    cmp "$package/$file" "$1/$file" || fail "$file is not what was packed"
  done <"$scratch/packed.txt"
  cmp "$package/bin/messages/Corvane_EventMessages.dll" \
    "$system/Corvane_EventMessages.dll" || fail "no message library installed"
}

check_registry() {
  local name listed
  for name in "Corvane KOVA Server" DispatcherUtil; do
    source_values "$name" | diff "$scratch/server-$name.txt" - ||
      fail "the source $name is not what the server would have made"
  done
  has_key "$sources\\Another logger" || fail "a logger got no source"
  listed=$(registry query "$entry")
  for name in "DisplayName.*KOVA Server" "DisplayVersion.*[0-9]\.[0-9]" \
    "Publisher.*Corvane Tessaly" "QuietUninstallString.*uninstall.exe\" /S" \
    "EstimatedSize.*0x"; do
    grep -q "$name" <<<"$listed" || fail "the list of programs lacks $name"
  done
  ! has_key "${entry/Software/Software\\Wow6432Node}" ||
    fail "the 32-bit registry was written"
}

check_installed() {
  check_files "$disk/Program Files/Corvane Tessaly/KOVA Server"
  check_registry
  wine "$1\\bin\\kovactl.exe" --version 2>/dev/null </dev/null |
    grep -q '^kovactl [0-9]' || fail "the installed tool does not run"
  run_server "$1\\bin"
}

# A later installation replaces the earlier one, wherever that is.
check_replaced() {
  install_to 'C:\Kova'
  [ ! -e "$disk/Program Files/Corvane Tessaly" ] ||
    fail "the earlier installation is left"
  check_files "$disk/Kova"
  check_registry
}

# What is in use stays as it is, all of it.
check_refusal() {
  local tool='C:\Kova\bin\kovactl.exe' host
  wine "$tool" run --port "$(random_free_port)" </dev/null \
    >"$scratch/host.log" 2>&1 &
  host=$!
  until grep -qs '^The server listens' "$scratch/host.log"; do
    kill -0 "$host" 2>/dev/null ||
      fail "the server ended early: $(cat "$scratch/host.log")"
    sleep 0.1
  done
  expect_code 2 'C:\Kova\uninstall.exe' /S
  expect_code 2 "$setup" /S
  kill -INT "$host"
  wait "$host" || fail "the server did not survive the refusals"
  check_files "$disk/Kova"
  check_registry
}

# Somebody else's source, message library and file in the folder.
check_others_are_left() {
  local other=$disk/Kova/notes.txt
  wine_quietly reg add "$sources\\DispatcherUtil" /f /v TypesSupported \
    /t REG_DWORD /d 1
  echo other >"$system/Corvane_EventMessages.dll"
  mkdir -p "$disk/Kova"
  echo mine >"$other"
  snapshot others
  install_to 'C:\Kova'
  [ "$(cat "$system/Corvane_EventMessages.dll")" = other ] ||
    fail "somebody else's message library was replaced"
  uninstall 'C:\Kova'
  snapshot after-others
  expect_same others after-others "what belonged to others has changed"
}

check_purge() {
  install_to 'C:\Kova'
  run_server 'C:\Kova\bin' --demo
  has_key "$printers\\Demo Printer" || fail "there is no demonstration printer"
  has_key "$sources\\Corvane KOVA Server" || fail "there is nothing to purge"
  mkdir -p "$disk/ProgramData/Corvane/Drivers/Dump"
  echo dump >"$disk/ProgramData/Corvane/Drivers/Dump/KOVAServerCrash_0007.dmp"
  uninstall 'C:\Kova' /PURGE
  ! has_key "$printers\\Demo Printer" ||
    fail "the demonstration printer is left"
  registry query "$masks" >"$scratch/masks.txt"
  grep -q "Another logger" "$scratch/masks.txt" ||
    fail "another logger's mask was purged"
  ! grep -q "Corvane KOVA Server" "$scratch/masks.txt" ||
    fail "the server's mask was not purged"
  ! has_key 'HKLM\Software\Corvane Tessaly\Drivers\Network' ||
    fail "the server's settings were not purged"
  [ ! -e "$disk/ProgramData/Corvane" ] && [ ! -e "$disk/Log Files" ] ||
    fail "the server's files were not purged"
}

need_wine
need_package_tools
"$here/script/package" --product >"$scratch/package.log" 2>&1 ||
  { cat "$scratch/package.log"; fail "packing failed"; }
wine_environment
make_wine_prefix
python3 -B -m zipfile -e "$KOVA_PACKAGE_FOLDER"/KOVAServer-*-win64.zip "$scratch"
package=$(echo "$scratch"/KOVAServer-*-win64)
setup=$(echo "$KOVA_PACKAGE_FOLDER"/KOVAServer-*-setup.exe)
say "Learning what the server registers"
learn_from_server
snapshot before
say "Installing, replacing and refusing"
expect_code 0 "$setup" /S /COMPONENTS=development
check_installed "$default_folder"
check_replaced
check_refusal
say "Uninstalling"
rm -rf "$disk/Log Files"
uninstall 'C:\Kova'
snapshot after
expect_same before after "uninstalling left or took something else"
check_others_are_left
check_purge
echo "installer and uninstaller leave what they should"
