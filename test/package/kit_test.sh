#!/usr/bin/env bash
# Whole: the test kit, laid out in a path with blanks and letters beyond ASCII,
# runs from Windows' command line, twice in a row and after a run that was
# cut off, and leaves the machine as it was. Of its programs only some are in
# it, for they run by themselves elsewhere.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
. "$here/script/lib.sh"
scratch=$(mktemp -d)
# A machine that the server has never run on.
export WINEPREFIX=$scratch/wine
folder="$scratch/two words, größer 漢"
kit="$folder/KOVAServer-1.2.3-tests"
sources='HKEY_LOCAL_MACHINE\System\CurrentControlSet\Services\Eventlog'

finish() {
  wineserver -k 2>/dev/null || true
  wineserver -w 2>/dev/null || true
  rm -rf "$scratch"
}
trap finish EXIT

# run_kit OPTION...: what it says goes to $said, its exit code to $code.
run_kit() {
  local command="Z:${kit//\//\\}\\run-tests.cmd"
  code=0
  said=$(wine cmd /c "$command" "$@" 2>"$scratch/errors" </dev/null |
    tr -d '\r') || code=$?
}
# expect CODE LAST-LINE
expect() {
  if [ "$code" -ne "$1" ] || ! [[ $(tail -n 1 <<<"$said") =~ ^$2$ ]]; then
    fail "ended with $code, not $1, and '$said'"
  fi
}
# Without the empty folders that the spooler makes for its first driver.
export_key() {
  rm -f "$scratch/export.reg"
  wine regedit /E "Z:${scratch//\//\\}\\export.reg" "$1" >/dev/null 2>&1
  [ ! -e "$scratch/export.reg" ] ||
    iconv -f UTF-16 -t UTF-8 "$scratch/export.reg" |
    sed -E '/\\(Drivers|Version-3)\]\r?$/d; /^\r?$/d'
}
# What tests could change, as text.
snapshot() {
  (cd "$WINEPREFIX/drive_c" && find . -path './users/*/Temp/*' -prune -o -print |
    sort)
  export_key "$sources"
  export_key 'HKEY_LOCAL_MACHINE\Software\Corvane Tessaly'
  export_key 'HKEY_LOCAL_MACHINE\System\CurrentControlSet\Control\Print'
}
expect_as_before() {
  snapshot >"$scratch/after"
  cmp -s "$scratch/before" "$scratch/after" ||
    fail "the machine is not as before: $(diff -a "$scratch"/{before,after})"
  [ ! -e "$kit/before.txt" ] || fail "what the machine had is still kept"
}

need_wine
need_package_tools
wine_environment
make_wine_prefix
mkdir -p "$folder"
python3 -B "$here/packaging/kit.py" --source "$here" --build "$KOVA_BUILD" \
  --output "$folder" --version 1.2.3 --epoch 1700000000 --unpacked \
  --programs kit_tests log_tests whole_logging_tests
[ -s "$kit/licences/googletest.txt" ] || fail "there is no licence of GoogleTest"
snapshot >"$scratch/before"

for _ in 1 2; do
  run_kit --quick
  expect 0 '[0-9]+ passed, 0 failed, 0 skipped'
  expect_as_before
done
for file in system summary log_tests whole_logging_tests; do
  [ -s "$kit/results/$file.txt" ] || fail "the results lack $file.txt"
done
computer=$(wine cmd /c 'echo %COMPUTERNAME%' 2>/dev/null | tr -d '\r\n')
! grep -rqiF "$computer" "$kit/results" || fail "the results name the machine"

# Cut off in the middle, of tests that would go on for ever, with what they had
# made until then.
masks='HKLM\Software\Corvane Tessaly\Drivers\DebugLogMasks'
rm "$kit/results/whole_logging_tests.txt"
GTEST_REPEAT=-1 wine "$kit/kit/kit.exe" --only whole_logging_tests \
  >"$scratch/cut" 2>&1 </dev/null &
run=$!
until grep -qs '\[       OK \]' "$kit/results/whole_logging_tests.txt"; do
  kill -0 "$run" 2>/dev/null || fail "the run ended: $(cat "$scratch/cut")"
  sleep 0.02
done
kill -KILL "$run"
wait "$run" 2>/dev/null || true
[ -e "$kit/before.txt" ] || fail "nobody knows what the machine had"
wine reg query "$masks" >/dev/null 2>&1 || fail "nothing is left to put back"
run_kit --restore
expect 0 'An earlier run was cut off: putting the machine back'
expect_as_before

# A machine that the server is used on.
wine reg add 'HKLM\Software\Corvane Tessaly\Drivers\Network' /f >/dev/null 2>&1
run_kit --quick
expect 2 'Nothing was run: the server was installed or has run on this machine'
[ ! -e "$kit/before.txt" ] || fail "a machine that was refused was touched"
echo "the kit runs, and leaves the machine as it was"
