#!/usr/bin/env bash
# Runs one test for CTest: run_test.sh NAME COMMAND...
# Its output goes to build/logs/NAME.log, its numbers of tests passed, failed
# and skipped to build/logs/NAME.count. It has a Wine prefix and ports that no
# other test has meanwhile; one that does not end is ended after ten minutes.
set -uo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
. "$here/script/lib.sh"
name=$1
shift
log=$(log_file "$name")
counts=${log%.log}.count
rm -f "$counts"

# take_place: a number of its own, for as long as this script runs. Descriptor 9
# must not reach what it starts: Wine's server outlives the test.
take_place() {
  local place
  mkdir -p "$KOVA_BUILD/test-wine"
  for place in $(seq "$KOVA_PLACES"); do
    exec 9>"$KOVA_BUILD/test-wine/$place.lock"
    if flock -n 9; then
      export WINEPREFIX=$KOVA_BUILD/test-wine/$place
      export KOVA_FIRST_PORT=$((19000 + place * 1000))
      return
    fi
  done
  fail "more than $KOVA_PLACES tests at once"
}

# In seconds: some four times what the longest test takes on two quiet cores.
limit=1200

# run COMMAND...: in a prefix that is made anew if its last test failed or was
# cut off, for it then holds settings that somebody left.
run() {
  wine_environment
  if [ -e "$WINEPREFIX.unclean" ]; then
    wineserver -k 2>/dev/null
    rm -rf "$WINEPREFIX"
  fi
  touch "$WINEPREFIX.unclean"
  [ "$1" != wine ] || make_wine_prefix
  exec timeout -k 10 "$limit" "$@"
}

# count PATTERN: the number in the first line of the log that it matches.
count() {
  local number
  number=$(sed -nE "s/.*$1.*/\1/p" "$log" | head -n 1)
  echo "${number:-0}"
}

# Wine's server kills a process that has ended for it and that a busy machine
# keeps for a second longer. It had written its summary by then.
was_killed_at_its_end() {
  [ "$code" -eq 137 ] && [ "$SECONDS" -lt "$limit" ] && [ "$good" -gt 0 ] &&
    [ "$bad" -eq 0 ]
}

# Sets good, bad and skip. A GoogleTest program that ends without a summary, or
# badly in spite of a good one, is one failure; so is any other command that
# does not exit 0, but 77: skipped.
judge() {
  good=$(count '\[  PASSED  \] ([0-9]+) tests?')
  bad=$(count '\[  FAILED  \] ([0-9]+) tests?, listed')
  skip=$(count '\[  SKIPPED \] ([0-9]+) tests?, listed')
  if [[ $name == *_tests* ]]; then
    [ $((good + bad + skip)) -gt 0 ] || bad=1
    was_killed_at_its_end && code=0
  else
    good=0 bad=0 skip=0
    [ "$code" -ne 0 ] || good=1
    [ "$code" -ne 77 ] || skip=1
  fi
  [ "$code" -eq 0 ] || [ $((bad + skip)) -gt 0 ] || bad=1
}

take_place
code=0
(run "$@") >"$log" 2>&1 </dev/null 9>&- || code=$?
[ "$code" -ne 124 ] || echo "error: ended, for it took $limit s" >>"$log"
judge
echo "$good $bad $skip" >"$counts"
if [ "$bad" -eq 0 ]; then
  rm "$WINEPREFIX.unclean"
  exit "$code"
fi
wineserver -k 2>/dev/null
tail -n 120 "$log"
exit 1
