#!/usr/bin/env bash
# Whole: an interrupted run ends well and puts the settings back. A console
# control event needs a console, which a test program has not; under Wine the
# signal SIGINT stands for it.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/../../.." && pwd)
# shellcheck source=../../../script/lib.sh
. "$here/script/lib.sh"
# shellcheck source=../../../script/check_run.sh
. "$here/script/check_run.sh"

readonly kKey='HKLM\SOFTWARE\Corvane Tessaly\Drivers\Network\@'
readonly kValue='KOVA Server Port'

# Type and data, or nothing: whether the key is there does not count.
port_value() {
  wine reg query "$key" /v "$kValue" 2>/dev/null | tr -d '\r' |
    sed -n 's/.* \(REG_\)/\1/p' || true
}

# starts a run, interrupts it, compares the setting.
run_and_interrupt() {
  local before code=0 port during
  before=$(port_value)
  port=$(random_free_port)
  # The program opens its log when it begins, which is later than this test's
  # first look at it.
  : >"$log"
  wine "$KOVA_BUILD/bin/kovactl.exe" run --port "$port" \
    --dll "$KOVA_BUILD/test-bin/fake-server/KOVAServer.dll" \
    </dev/null >"$log" 2>&1 &
  server=$!
  until grep -q '^The server listens' "$log"; do
    kill -0 "$server" 2>/dev/null || fail "the run ended early: $(cat "$log")"
    sleep 0.1
  done
  during=$(port_value)
  grep -qi "REG_DWORD *0x$(printf '%x' "$port")" <<<"$during" ||
    fail "the port was not set for the run: $during"
  kill -INT "$server"
  wait "$server" || code=$?
  server=
  [ "$code" -eq 0 ] || fail "an interrupted run gave exit code $code"
  grep -q '^Stopped in' "$log" || fail "the server was not stopped"
  [ "$(port_value)" = "$before" ] ||
    fail "the port setting was '$before' and is '$(port_value)'"
}

wine_environment
make_wine_prefix
server=
trap '[ -z "$server" ] || kill -INT "$server" 2>/dev/null || true' EXIT
log=$(log_file ctrl-c-test)
key=$kKey$(wine cmd /c 'echo %COMPUTERNAME%' 2>/dev/null | tr -d '\r\n')
wine reg delete "$key" /v "$kValue" /f >/dev/null 2>&1 || true
run_and_interrupt
wine reg add "$key" /v "$kValue" /t REG_BINARY /d 0a0b0c /f >/dev/null
[ -n "$(port_value)" ] || fail "the setting could not be made"
run_and_interrupt
wine reg delete "$key" /v "$kValue" /f >/dev/null
echo "an interrupted run puts the settings back"
