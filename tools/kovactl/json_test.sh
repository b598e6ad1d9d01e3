#!/usr/bin/env bash
# Whole: what every verb writes with --json is as docs/kovactl.schema.json says,
# also when the verb fails, and names the exit code.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
# shellcheck source=../../script/lib.sh
. "$here/script/lib.sh"
# shellcheck source=../../script/check_run.sh
. "$here/script/check_run.sh"

# Reads lines of standard input: a file, the exit code, whether there is a
# report, and the verb. With a member too many an answer must fail, or the schema
# looks at nothing.
readonly kCheck='
import json, sys, jsonschema
schema = json.load(open(sys.argv[1], encoding="utf-8"))
jsonschema.Draft202012Validator.check_schema(schema)
validator = jsonschema.Draft202012Validator(schema)
wrong = []
for line in sys.stdin:
    path, code, form, verb = line.rstrip("\n").split(" ", 3)
    answer = json.load(open(path, encoding="utf-8"))
    wrong += [f"{path}: {list(e.absolute_path)}: {e.message[:500]}"
              for e in validator.iter_errors(answer)]
    if answer["verb"] != verb or answer["exitCode"] != int(code):
        wrong.append("%s: verb %s, exit code %s, not %s" %
                     (path, answer["verb"], answer["exitCode"], code))
    if (form == "report") != (len(answer) > 4):
        wrong.append(f"{path}: a {form} was expected")
    surplus = validator.is_valid({**answer, "surplus": 1})
    if surplus and verb != "check-extension":
        wrong.append(f"{path}: the schema takes everything")
sys.exit("\n".join(wrong) or 0)
'

# check VERB CODE report|bare ARGUMENT...: the verb as JSON has it, and what
# follows it on the command line.
check() {
  local verb=$1 expected=$2 form=$3 code=0 answer
  local words=()
  read -ra words <<<"$verb"
  shift 3
  count=$((count + 1))
  answer=$answers/$count.json
  (cd "$KOVA_BUILD/bin" &&
    wine kovactl.exe "${words[@]}" --json "$@" 2>/dev/null >"$answer") ||
    code=$?
  [ "$code" -eq "$expected" ] || fail "$verb $* gave exit code $code"
  echo "$answer $code $form $verb" >>"$answers/list"
}

check_without_a_server() {
  check status 10 report --port 1 --timeout 1
  check probe 10 report nobody --port 1
  check probe 2 bare
  check printers 9 bare "no such printer"
  check printers 2 bare --fly
  check "settings set" 0 report port 8080
  check "settings get" 0 report
  check "settings reset" 0 report port
  check "settings get" 9 bare fly
  check "log set" 0 report Error LogFile
  check "log add" 0 report Info
  check "log remove" 0 report LogFile
  check "log show" 0 report
  check "log set" 9 bare fly
  check "log set" 0 report default
  check "check-extension" 3 report nowhere
}

# A dump of no streams, as small as it can be.
check_dumps() {
  local folder=$answers/dumps
  mkdir -p "$folder"
  printf 'MDMP\x93\xa7\0\0\0\0\0\0\x20\0\0\0\0\0\0\0\0\xf1\x53\x65%b' \
    '\0\0\0\0\0\0\0\0' >"$folder/KOVAServerCrash_0007.dmp"
  printf '' >"$folder/empty.dmp"
  check dumps 0 report --folder "$folder"
  check "dumps show" 0 report 7 --folder "$folder"
  check "dumps show" 9 bare 8 --folder "$folder"
}

check_with_a_server() {
  start_on_free_port
  check status 0 report
  check probe 0 report "Demo Printer" --expect 200
  check probe 9 report nobody
  check printers 0 report
  kill -INT "$check_server"
  wait "$check_server" || fail "the server did not end well"
  check_server=
}

need_packages "checks JSON against the schema" python3-jsonschema
wine_environment
make_wine_prefix
# shellcheck disable=SC2034 # for check_run.sh
check_log=$(log_file json-test-server)
answers=$KOVA_BUILD/logs/json-test
rm -rf "$answers"
mkdir -p "$answers"
count=0
check_server=
trap '[ -z "$check_server" ] || kill -INT "$check_server" 2>/dev/null || true' \
  EXIT
check_without_a_server
check_dumps
check_with_a_server
# The system's own, which the package is for.
/usr/bin/python3 -c "$kCheck" "$here/docs/kovactl.schema.json" \
  <"$answers/list" || fail "that is not what the schema says"
echo "every verb writes what the schema says"
