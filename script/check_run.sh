# shellcheck shell=bash
# Runs the server on a free port, sends it requests and compares the answers.
# Meant to be sourced after lib.sh; most of it needs the Wine prefix.

# What a run needs, by the paths of the files to build.
# shellcheck disable=SC2034
KOVA_RUN_TARGETS=(bin/KOVAServer.dll bin/kovactl.exe
  bin/sample-extension/Corvane_V3_NetMon.dll)

# Options of every server that is started here.
KOVA_RUN_OPTIONS=(--verbose --seconds 300)

check_failed() {
  [ -z "${check_server:-}" ] || kill -INT "$check_server" 2>/dev/null || true
  printf 'check failed: %s (the server'\''s log: %s)\n' "$*" "$check_log" >&2
  exit 1
}

# A port that nothing listens on just now, and that no client gets as its own;
# that may change, so whoever uses it tries another one if it did. Tests that
# run side by side have a thousand ports each.
random_free_port() {
  local port
  while true; do
    if [ -n "${KOVA_FIRST_PORT:-}" ]; then
      port=$((KOVA_FIRST_PORT + RANDOM % 1000))
    else
      port=$((20000 + RANDOM % 12000))
    fi
    (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null || break
  done
  echo "$port"
}

# start_server PORT [OPTION...]: 0 once the server listens, else kovactl's exit
# code.
start_server() {
  local port=$1
  shift
  : >"$check_log"
  wine "$KOVA_BUILD/bin/kovactl.exe" run --demo --port "$port" \
    "${KOVA_RUN_OPTIONS[@]}" "$@" </dev/null >"$check_log" 2>&1 &
  check_server=$!
  while kill -0 "$check_server" 2>/dev/null; do
    ! grep -q '^The server listens' "$check_log" || return 0
    sleep 0.1
  done
  local code=0
  wait "$check_server" || code=$?
  check_server=
  return "$code"
}

# start_on_free_port [OPTION...]: further options of "kovactl run".
# shellcheck disable=SC2120
start_on_free_port() {
  local attempt code
  for attempt in 1 2 3 4 5; do
    check_port=$(random_free_port)
    code=0
    start_server "$check_port" "$@" || code=$?
    [ "$code" -ne 0 ] || return 0
    # 5: another program took the port meanwhile.
    [ "$code" -eq 5 ] ||
      check_failed "the server did not start, exit code $code"
  done
  check_failed "no free port in $attempt attempts"
}

# ask NAME CURL-ARGUMENT...: sends one request; the answer's status goes to
# $status, its body to the file $body, what is needed for it to $connects.
ask() {
  local name=$1 result
  shift
  body=$KOVA_BUILD/logs/check-answer-$name.txt
  result=$(curl -sS --noproxy '*' -m 20 -o "$body" \
    -w '%{http_code} %{num_connects}' "$@") ||
    check_failed "no answer to the request $name"
  status=${result% *}
  connects=${result##* }
}

expect_status() {
  [ "$status" = "$2" ] ||
    check_failed "the request $1 got status $status, not $2"
}

expect_text() {
  grep -qF -- "$2" "$body" || check_failed "the answer to $1 lacks: $2"
}

check_answers() {
  local url=http://127.0.0.1:$check_port
  ask printer "$url/?printer=Demo+Printer"
  expect_status printer 200
  expect_text printer '<h1 id="name">Demo Printer</h1>'
  expect_text printer '<dd id="share">demo</dd>'
  expect_text printer 'GET /?printer=Demo+Printer HTTP/1.1'
  ask share "$url/any/path?SHARE=DEMO"
  expect_status share 200
  expect_text share '<h1 id="name">Demo Printer</h1>'
  ask post -d 'text=hello%20world&x=<y>' "$url/?share=demo"
  expect_status post 200
  [ "$(cat "$body")" = 'text=hello%20world&x=<y>' ] ||
    check_failed "the answer to post is not what was posted"
  ask unrouted "$url/"
  expect_status unrouted 400
  ask unknown "$url/?printer=No+Such+Printer"
  expect_status unknown 400
}

# One connection for two requests, if the answer keeps it open.
check_kept_connection() {
  local url="http://127.0.0.1:$check_port/?printer=Demo+Printer&keep=1"
  ask kept "$url" --next -sS --noproxy '*' -m 20 -o /dev/null \
    -w ' %{http_code} %{num_connects}' "$url"
  [ "$status $connects" = "200 1 200 0" ] ||
    check_failed "a kept connection was not used again ($status $connects)"
}

# Interrupts the server and waits until it has ended well.
stop_server() {
  local code=0
  kill -INT "$check_server"
  wait "$check_server" || code=$?
  check_server=
  [ "$code" -eq 0 ] || check_failed "the server ended with exit code $code"
  check_stopped=$(grep -o '^Stopped in [0-9]* ms' "$check_log") ||
    check_failed "the server did not say that it stopped"
}

# Two for the unknown printer: its library's path and its interface.
check_error_lines() {
  local lines
  lines=$(grep -c '^Error ' "$check_log") || true
  [ "$lines" -eq 2 ] || check_failed "$lines lines on channel Error, not 2"
}

check_run() {
  check_log=$(log_file check-run)
  say "Starting the server on a free port"
  start_on_free_port
  say "Sending requests to port $check_port"
  check_answers
  check_kept_connection
  say "Stopping the server"
  stop_server
  check_error_lines
  printf 'check passed: every answer as expected; %s\n' "$check_stopped"
}
