#!/usr/bin/env bash
# Whole: whatever happens to a setup, the machine has the old version or the new
# one, whole; what it refuses or fails at changes nothing.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
. "$here/script/lib.sh"
. "$here/test/package/wine_machine.sh"
home="$disk/Program Files/Corvane Tessaly/KOVA Server"
small='C:\Kova'
environment='HKLM\System\CurrentControlSet\Control\Session Manager\Environment'
log=$scratch/setup.log

# make_setup VERSION: a few files, of which each version changes one, adds one
# and lacks one.
make_setup() {
  local root=$scratch/$1 file
  for file in "${files[@]}"; do
    install -D "$KOVA_BUILD/bin/$file" "$root/bin/$file"
  done
  mkdir -p "$root/docs/$1"
  echo "version $1" >"$root/docs/about.txt"
  echo "version $1" >"$root/docs/$1/only-here.txt"
  [ "$1" != 3.0.0 ] || echo "no program" >"$root/bin/kovactl.exe"
  PYTHONPATH=$here/packaging python3 -B - "$scratch" "$1" <<'PYTHON'
import sys
from installer import make_installer
scratch, version = sys.argv[1:]
make_installer(f"{scratch}/setup-{version}.exe", f"{scratch}/{version}",
               version, 1700000000, lambda *paths: None)
PYTHON
}
files=(KOVAServer.dll kovactl.exe sample-extension/Corvane_V3_NetMon.dll
  messages/Corvane_EventMessages.dll)

# setup CODE VERSION [OPTION...]
setup() {
  local code=$1 version=$2
  shift 2
  expect_code "$code" "$scratch/setup-$version.exe" /S \
    "/LOG=$(windows_path "$log")" "$@"
}
log_says() {
  iconv -f UTF-16 -t UTF-8 "$log" | grep -qF -- "$1" ||
    fail "the log does not say: $1"
}

# expect_files VERSION [FOLDER]: these files, setup's own, and no others.
expect_files() {
  local folder=${2:-$home} own
  (cd "$scratch/$1" && find . -type f) >"$scratch/wanted.txt"
  for own in setup.exe uninstall.exe installed-files.txt; do
    echo "./$own" >>"$scratch/wanted.txt"
  done
  diff <(sort "$scratch/wanted.txt") <(cd "$folder" && find . -type f | sort) ||
    fail "$folder does not have the files of version $1"
  [ -z "$(find "$folder" -type d -empty)" ] ||
    fail "$folder has empty folders: $(find "$folder" -type d -empty)"
  ! diff -r "$scratch/$1" "$folder" | grep -v "^Only in $folder: " ||
    fail "a file in $folder is not that of version $1"
  registry query "$entry" /v DisplayVersion | grep -q " $1\$" ||
    fail "the list of programs does not name version $1"
}

check_bad_folders() {
  local folder
  snapshot before
  for folder in relative C: 'C:\' 'Q:\none' '\\server\share\x' 'C:\a?b' ''; do
    setup 2 2.0.0 "/D=$folder"
    log_says "is not the full path of a folder"
  done
  setup 2 2.0.0 '/d=C:\lower'
  setup 2 2.0.0 '/D=Z:\proc\kova'
  log_says "The folder Z:\\proc\\kova cannot be written."
  snapshot after
  expect_same before after "a refused folder left something"
}

# A limit that the first large file goes beyond, as on a full disk.
check_full_disk() {
  (
    trap '' XFSZ
    ulimit -f 200
    setup 2 2.0.0
  )
  expect_files 1.0.0
}

# Half of the switch is done when it comes to a file that cannot be replaced,
# for a program reads it.
check_failed_switch() {
  local reader
  printf '@"%s" log follow <"%s"\r\n' \
    "$(windows_path "$KOVA_BUILD/bin/kovactl.exe")" \
    "$default_folder\\docs\\about.txt" >"$scratch/read.cmd"
  wine cmd /c "$(windows_path "$scratch/read.cmd")" >"$scratch/reader.log" 2>&1 &
  reader=$!
  until grep -qs '^Following' "$scratch/reader.log"; do
    kill -0 "$reader" 2>/dev/null || fail "nobody reads the file"
    sleep 0.1
  done
  setup 2 2.0.0
  log_says 'about.txt cannot be replaced.'
  log_says 'Version 1.0.0 is in place as before'
  wineserver -k
  wait "$reader" || true
  expect_files 1.0.0
}

# Version 3.0.0 has a text in place of the tool.
check_new_that_does_not_start() {
  setup 2 3.0.0
  log_says 'The new bin\kovactl.exe does not start'
  expect_files 1.0.0
}

# kill_setup WHEN: ends a setup, as a power cut would, once the file WHEN is
# there or the setup is over.
kill_setup() {
  local setup
  wine "$scratch/setup-2.0.0.exe" /S </dev/null >"$scratch/wine.log" 2>&1 &
  setup=$!
  until [ -e "$home/$1" ] || ! kill -0 "$setup" 2>/dev/null; do :; done
  kill -9 "$setup" 2>/dev/null || true
  wait "$setup" 2>/dev/null || true
  expect_code 0 "$home/bin/kovactl.exe" --version
}

# However far it came, the uninstaller and the next setup cope with it.
check_killed_setups() {
  local state
  for state in .setup-new/bin/kovactl.exe .setup-old/planned.txt \
    .setup-old/begun.txt .setup-old/over.txt; do
    setup 0 1.0.0 /DOWNGRADE
    kill_setup "$state"
    setup 0 2.0.0
    expect_files 2.0.0
  done
  setup 0 1.0.0 /DOWNGRADE
  kill_setup .setup-old/begun.txt
  uninstall "$default_folder"
  [ ! -e "$disk/Program Files/Corvane Tessaly" ] ||
    fail "a killed setup left files that the uninstaller does not remove"
}

# The state in the middle of a switch, at which no test can aim.
check_half_switched() {
  local old="$home/.setup-old"
  setup 0 1.0.0
  mkdir -p "$old/docs" "$home/.setup-new/docs"
  mv "$home/docs/about.txt" "$old/docs/about.txt"
  echo half >"$home/docs/about.txt"
  echo new >"$home/docs/new.txt"
  echo new >"$home/.setup-new/docs/left.txt"
  echo 'docs\left.txt' >"$home/.setup-new/files.txt"
  printf 'docs\\about.txt\r\ndocs\\new.txt\r\n' >"$old/begun.txt"
  setup 2 3.0.0
  expect_files 1.0.0
}

check_versions() {
  setup 0 2.0.0
  expect_files 2.0.0
  setup 2 1.0.0
  log_says 'Version 2.0.0 is installed, which is newer than 1.0.0'
  expect_files 2.0.0
  say "Repairing"
  rm "$home/docs/about.txt"
  echo damaged >"$home/bin/KOVAServer.dll"
  expect_code 0 "$home/setup.exe" /S
  expect_files 2.0.0
  setup 0 1.0.0 /DOWNGRADE "/D=$small"
  expect_files 1.0.0 "$disk/Kova"
  [ ! -e "$disk/Program Files/Corvane Tessaly" ] ||
    fail "the installation in the earlier folder is left"
  uninstall "$small"
}

machine_path() {
  registry query "$environment" /v PATH | sed -n 's/.*REG_EXPAND_SZ *//p'
}

# A path longer than what the setup program takes as a text stays whole.
check_components() {
  local before
  before=$(printf '%%SystemRoot%%\\system32;%%SystemRoot%%%s' \
    "$(printf ';C:\\Folder%04d' {1..200})")
  wine_quietly reg add "$environment" /f /v PATH /t REG_EXPAND_SZ /d "$before"
  setup 2 1.0.0 /COMPONENTS=path,nonsense
  log_says 'There is no component "nonsense"'
  setup 0 1.0.0
  [ "$(machine_path)" = "$before;$default_folder\\bin" ] ||
    fail "the tool is not on the path as it should be"
  setup 0 2.0.0
  [ "$(machine_path)" = "$before;$default_folder\\bin" ] ||
    fail "the tool is not on the path once after an upgrade"
  setup 0 2.0.0 /COMPONENTS=firewall
  [ "$(machine_path)" = "$before" ] || fail "the tool is still on the path"
  log_says 'Opening the firewall for TCP port 5130'
  setup 0 2.0.0 /COMPONENTS=path "/D=$small"
  [ "$(machine_path)" = "$before;$small\\bin" ] ||
    fail "the path does not lead to the new folder"
  uninstall "$small"
  [ "$(machine_path)" = "$before" ] || fail "the tool is left on the path"
}

# The list of files lies in a folder that others may be able to write.
check_list_leads_nowhere() {
  setup 0 1.0.0
  echo mine >"$disk/mine.txt"
  printf '..\\..\\..\\mine.txt\r\nC:\\mine.txt\r\n' >>"$home/installed-files.txt"
  uninstall "$default_folder"
  [ -e "$disk/mine.txt" ] || fail "a file outside the folder was deleted"
}

need_wine
need_package_tools
build_windows "${KOVA_IMAGE_TARGETS[@]}"
wine_environment
make_wine_prefix
say "Making three versions"
for version in 1.0.0 2.0.0 3.0.0; do
  make_setup "$version"
done
say "Installing, and failing to"
setup 0 1.0.0
expect_files 1.0.0
check_bad_folders
check_full_disk
check_failed_switch
check_new_that_does_not_start
check_versions
say "Ending setups in the middle"
check_half_switched
check_killed_setups
check_list_leads_nowhere
say "Choosing components"
check_components
echo "every failed setup left a whole version"
