#!/usr/bin/env bash
# Whole: the scripts make the Wine prefix that they need, and never touch one
# that is somebody else's. Wine itself is not run: its programs are stand-ins.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
. "$here/script/lib.sh"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# A tree of its own, whose build folder nobody else uses.
tree=$scratch/tree
mkdir -p "$tree" "$scratch/stand-ins"
cp -r "$here/script" "$tree/"
printf '#!/bin/sh\nmkdir -p "$WINEPREFIX"\necho "${0##*/} $*" >>"%s"\n' \
  "$scratch/calls" >"$scratch/stand-ins/wine"
chmod +x "$scratch/stand-ins/wine"
for program in wineboot wineserver cmake; do
  cp "$scratch/stand-ins/wine" "$scratch/stand-ins/$program"
done
export PATH=$scratch/stand-ins:$PATH

# run PREFIX SCRIPT [ARGUMENT...]: the exit code goes to $code, what the script
# says on the error output to $said; an empty PREFIX names none.
run() {
  local prefix=$1 script=$2
  shift 2
  code=0
  rm -f "$scratch/calls"
  said=$(WINEPREFIX=$prefix "$tree/script/$script" "$@" 2>&1 >/dev/null) ||
    code=$?
}
has_called() { grep -qs "^$1" "$scratch/calls"; }

# expect_made PREFIX: it was made, without what was there before.
expect_made() {
  [ "$code" -eq 0 ] || fail "exit code $code: $said"
  has_called wineboot || fail "no prefix was made in $1"
  [ -f "$1/.kova-ready" ] || fail "the prefix $1 is not ready"
}

# expect_refused PREFIX SCRIPT [ARGUMENT...]
expect_refused() {
  run "$@"
  [ "$code" -ne 0 ] || fail "$2 took a prefix that was not made here"
  [ "$(wc -l <<<"$said")" -eq 1 ] || fail "$2 said more than a line: $said"
  [[ $said == *"$1, which was not made here: unset it, or"* ]] ||
    fail "$2 does not say what to do: $said"
  [ ! -e "$scratch/calls" ] || fail "$2 ran $(cat "$scratch/calls")"
}

own=$tree/build/wine
run '' wine program
expect_made "$own"
has_called 'wine program' || fail "the program was not run"
run '' wine program
! has_called wineboot || fail "a finished prefix was made again"
rm "$own/.kova-ready"
touch "$own/half"
run '' wine program
expect_made "$own"
[ ! -e "$own/half" ] || fail "a half-made prefix was used"

other=$scratch/other
run "$other" wine program
expect_made "$other"
run "$other" wine program
! has_called wineboot || fail "a finished prefix elsewhere was made again"
mkdir "$scratch/empty"
run "$scratch/empty" wine program
expect_made "$scratch/empty"

# Somebody else's, also where a link in the build folder leads to it.
mkdir -p "$scratch/theirs"
echo mine >"$scratch/theirs/letter.txt"
ln -s "$scratch/theirs" "$tree/build/link"
for prefix in "$scratch/theirs" "$scratch/theirs/" "$tree/build/link" \
  "$tree/build/../../theirs"; do
  expect_refused "$prefix" wine program
done
for script in run test-clients test-browser; do
  expect_refused "$scratch/theirs" "$script"
done
[ "$(cat "$scratch/theirs/letter.txt")" = mine ] || fail "a file is gone"
[ "$(ls -A "$scratch/theirs")" = letter.txt ] || fail "files were added"
echo "only prefixes that are our own are made and used"
