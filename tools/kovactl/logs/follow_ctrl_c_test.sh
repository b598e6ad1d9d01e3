#!/usr/bin/env bash
# Whole: an interrupted "kovactl log follow" ends well and frees the buffer for
# the next one. A console control event needs a console, which a test program
# has not; under Wine the signal SIGINT stands for it.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/../../.." && pwd)
# shellcheck source=../../../script/lib.sh
. "$here/script/lib.sh"

follow_and_interrupt() {
  local code=0
  # The program opens its log when it begins, which is later than this test's
  # first look at it.
  : >"$log"
  wine "$KOVA_BUILD/bin/kovactl.exe" log follow </dev/null >"$log" 2>&1 &
  follower=$!
  until grep -q '^Following' "$log"; do
    kill -0 "$follower" 2>/dev/null || fail "it ended early: $(cat "$log")"
    sleep 0.1
  done
  kill -INT "$follower"
  wait "$follower" || code=$?
  follower=
  [ "$code" -eq 0 ] || fail "an interrupted follow gave exit code $code"
  grep -q 'lines\? shown' "$log" || fail "no last line: $(cat "$log")"
}

wine_environment
make_wine_prefix
# One that is left would keep the buffer from the next run's.
follower=
trap '[ -z "$follower" ] || kill -INT "$follower" 2>/dev/null || true' EXIT
log=$(log_file follow-ctrl-c-test)
follow_and_interrupt
follow_and_interrupt
echo "an interrupted follow ends well"
