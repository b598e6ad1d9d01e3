#!/usr/bin/env bash
# Whole: script/stage runs a command in the other system, with the tree and a
# build folder of its own, and leaves nothing behind, however it ends. The other
# system is a stand-in that has this machine's programs.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
. "$here/script/lib.sh"

# A mount of its own, which goes with this script.
if [ -z "${KOVA_STAND_IN:-}" ]; then
  unshare --mount true 2>/dev/null || { echo "skipped: no root here"; exit 77; }
  KOVA_STAND_IN=1 exec unshare --mount "$0"
fi
scratch=$(mktemp -d -p "$KOVA_BUILD")
trap 'umount -l "$scratch/stage/13/usr"; rm -rf --one-file-system "$scratch"' \
  EXIT
tree=$scratch/tree
root=$scratch/stage/13
export KOVA_STAGE_FOLDER=$scratch/stage

mkdir -p "$tree" "$root"/{usr,etc,proc,sys,dev,tmp,root}
cp -r "$here/script" "$tree/"
mount --rbind /usr "$root/usr"
for folder in bin sbin lib lib64; do ln -s "usr/$folder" "$root/$folder"; done
echo stand-in >"$root/etc/hostname"

# stage COMMAND...: the exit code goes to $code, what it says to $said.
stage() {
  code=0
  said=$("$tree/script/stage" 13 "$@" 2>&1) || code=$?
}
expect() { [ "$said" = "$1" ] || fail "the command said '$said', not '$1'"; }

# No process is left in the namespace of mounts that the file names.
expect_all_gone() {
  local left
  for _ in {1..300}; do
    left=$(readlink /proc/[0-9]*/ns/mnt 2>/dev/null | grep -cxFf "$1") || true
    [ "$left" -gt 0 ] || return 0
    sleep 0.1
  done
  fail "$left processes and their mounts are left"
}

# shellcheck disable=SC2016
stage sh -c 'cat /etc/hostname; pwd; ls -A /tmp; echo "$HOME $#"; exit 3' - 1 2
[ "$code" -eq 3 ] || fail "the command's exit code 3 became $code: $said"
expect "stand-in
$tree
/root 2"
# shellcheck disable=SC2016
OUTSIDE=1 stage sh -c 'echo "$OUTSIDE"; echo built >build/file; echo >/tmp/file'
expect ''
[ "$(cat "$tree/build/stage/13/file")" = built ] ||
  fail "what was built is not where it should be"
stage ls -A /tmp
expect ''
[ ! -e "$tree/build/stage/13.tmp" ] || fail "the other /tmp is left"

# What the command leaves running ends, and may put its things in order.
mnt=$tree/build/stage/13/mnt
stage sh -c 'readlink /proc/self/ns/mnt >build/mnt
  (trap "echo ended >build/ended; exit" TERM
   echo >build/waits
   while :; do sleep 0.1; done) >/dev/null 2>&1 &
  until [ -e build/waits ]; do sleep 0.1; done'
[ "$code" -eq 0 ] || fail "exit code $code: $said"
[ -e "$tree/build/stage/13/ended" ] || fail "what was left was not told to end"
expect_all_gone "$mnt"

for signal in TERM HUP KILL; do
  rm "$mnt"
  "$tree/script/stage" 13 sh -c 'readlink /proc/self/ns/mnt >build/new
    mv build/new build/mnt; sleep 600' >/dev/null 2>&1 &
  until [ -e "$mnt" ]; do sleep 0.1; done
  kill -"$signal" $!
  expect_all_gone "$mnt"
done
! grep -F "$root/" /proc/mounts | grep -vqF "$root/usr" ||
  fail "something is left mounted"

for arguments in '' 11 13; do
  # shellcheck disable=SC2086
  ! said=$("$tree/script/stage" $arguments 2>&1) || fail "took '$arguments'"
  [[ $said == *'see script/stage --help' ]] || fail "no help for '$arguments'"
done
echo "the other system comes and goes"
