#!/usr/bin/env bash
# Whole: dumps of real crashes, opened with lldb: exception code, faulting
# thread, module, and by the build's symbols the functions on its stack.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
. "$here/script/lib.sh"
kept=$(mktemp -d)
trap 'rm -rf "$kept"' EXIT

make_dumps() {
  KOVA_KEPT_DUMPS="Z:$kept" "$here/script/wine" \
    "$KOVA_BUILD/test-bin/whole_crash_tests.exe" \
    --gtest_filter='*/null:*/overflow:*/library:*/sample'
}

# read_dump DUMP [FOLDER SYMBOLS]: what lldb says of a dump. FOLDER holds the
# extension of that crash, SYMBOLS is the name of its symbols. lldb takes an
# image for the one that the dump only names if it may search for it before the
# dump is opened.
read_dump() {
  local symbols=$KOVA_BUILD/symbols extension=()
  [ $# -eq 1 ] || extension=(
    -o "target symbols add -s Corvane_V3_NetMon.dll $symbols/$3.pdb")
  timeout 120 lldb-19 --no-lldbinit --batch \
    -o "settings set target.exec-search-paths $KOVA_BUILD/bin ${2:-}" \
    -o "target create --core $kept/$1.dmp" \
    -o "target symbols add -s KOVAServer.dll $symbols/KOVAServer.pdb" \
    "${extension[@]}" -o 'thread list' -o 'bt' 2>&1 | tee "$kept/$1.txt"
}

# expect DUMP PATTERN: a line of what lldb said matches.
expect() {
  grep -qE "$2" "$kept/$1.txt" || fail "nothing in $1.dmp matches: $2"
}

# check_crash DUMP CODE FUNCTION: one thread has faulted, with that code, in
# that function, inside the guard.
check_crash() {
  local faulting
  faulting=$(grep -cE "^\* thread #[0-9]+: tid = .*$2" "$kept/$1.txt" || true)
  [ "$faulting" = 1 ] || fail "$1.dmp has $faulting faulting threads, not 1"
  expect "$1" "stop reason = Exception $2"
  expect "$1" "^ *\* frame #0: .*$3"
  expect "$1" 'KOVAServer\.dll`kova::RunGuarded.* at guard\.cpp:'
}

make_dumps
read_dump library
check_crash library 0xc0000005 \
  'KOVAServer\.dll`kova::Listener::StartAcceptThread'
read_dump null "$KOVA_BUILD/test-bin/extensions/scripted" \
  test_extension_scripted
check_crash null 0xc0000005 \
  'Corvane_V3_NetMon\.dll`kova::test::WriteToNull'
expect null 'KOVAServer\.dll`.*Network_ClientThread::'
read_dump overflow "$KOVA_BUILD/test-bin/extensions/scripted" \
  test_extension_scripted
check_crash overflow 0xc00000fd \
  'Corvane_V3_NetMon\.dll`kova::test::.*Recurse'
read_dump sample "$KOVA_BUILD/bin/sample-extension" sample_extension
check_crash sample 0xc0000005 \
  'Corvane_V3_NetMon\.dll`sample::.* at printer_facts\.cpp:'
echo "dumps: all as expected"
