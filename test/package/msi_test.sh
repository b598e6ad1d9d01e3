#!/usr/bin/env bash
# Whole: the Windows Installer package installs for the machine, silently, keeps
# away from the setup program, follows the versions and leaves nothing.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
. "$here/script/lib.sh"
. "$here/test/package/wine_machine.sh"
home="$disk/Program Files/Corvane Tessaly/KOVA Server"
environment='HKLM\System\CurrentControlSet\Control\Session Manager\Environment'
source='HKLM\System\CurrentControlSet\Services\Eventlog\Application\Corvane KOVA Server'
# What a program of Unix sees of Windows Installer's 1603, "failed".
failed=67

# msi CODE OPTION VERSION [PROPERTY...]
msi() {
  local code=$1 option=$2 version=$3
  shift 3
  expect_code "$code" msiexec "$option" "$scratch/$version.msi" /qn \
    "/l*v" "$(windows_path "$scratch/msi.log")" "$@"
  [ -s "$scratch/msi.log" ] || fail "Windows Installer wrote no log"
}

on_path() { registry query "$environment" /v PATH | grep -qF 'KOVA Server\bin'; }

# Where the tool lies, what setup gets in hand, and what developers have.
make_packages() {
  local version
  python3 -B -m zipfile -e "$packed"/KOVAServer-*-win64.zip "$scratch"
  package=$(echo "$scratch"/KOVAServer-*-win64)
  for version in 8.0.0 9.0.0; do
    echo "$version" >"$package/CHANGELOG.md"
    PYTHONPATH=$here/packaging python3 -B -c 'import sys
from msi import make_msi
make_msi(*sys.argv[1:4], 1700000000)' "$scratch/$version.msi" "$package" "$version"
  done
}

expect_version() {
  [ "$(cat "$home/CHANGELOG.md")" = "$1" ] || fail "this is not version $1"
  diff -r "$package" "$home" | grep -v -e ': CHANGELOG.md' \
    -e "^Only in $package: \(include\|lib\|samples\)$" \
    -e '^[<>-]' -e '^[0-9]*c[0-9]*$' -e '^diff .*CHANGELOG.md$' &&
    fail "the files are not those of the package"
  cmp -s "$home/bin/messages/Corvane_EventMessages.dll" \
    "$system/Corvane_EventMessages.dll" || fail "no message library installed"
  has_key "$source" || fail "there is no event source"
}

check_install() {
  msi 0 /i 8.0.0
  expect_version 8.0.0
  on_path || fail "the tool is not on the path"
  wine "$home/bin/kovactl.exe" --version </dev/null 2>/dev/null |
    grep -q '^kovactl [0-9]' || fail "the installed tool does not run"
}

check_versions() {
  msi 0 /i 9.0.0
  expect_version 9.0.0
  msi "$failed" /i 8.0.0
  expect_version 9.0.0
}

# Each refuses where the other has installed.
check_setup_keeps_away() {
  expect_code 2 "$setup" /S
  expect_version 9.0.0
}
check_package_keeps_away() {
  expect_code 0 "$setup" /S
  msi "$failed" /i 9.0.0
  uninstall "$default_folder"
}

need_wine
need_package_tools
"$here/script/package" --product >"$scratch/package.log" 2>&1 ||
  { cat "$scratch/package.log"; fail "packing failed"; }
packed=$KOVA_PACKAGE_FOLDER
setup=$(echo "$packed"/KOVAServer-*-setup.exe)
wine_environment
make_wine_prefix
make_packages
say "Installing, upgrading and refusing"
check_install
check_versions
check_setup_keeps_away
msi 0 /x 9.0.0
[ ! -e "$home" ] && [ ! -e "$system/Corvane_EventMessages.dll" ] ||
  fail "files are left"
! has_key "$source" || fail "the event source is left"
! on_path || fail "the tool is still on the path"
check_package_keeps_away
msi 0 /i 8.0.0 ADDLOCAL=Server
! on_path || fail "the tool is on the path, which was not asked for"
echo "Windows Installer does what it should"
