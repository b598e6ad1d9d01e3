#!/usr/bin/env bash
# Whole: the packed ZIP files hold what they should, and what they hold runs
# from where they are unpacked.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
. "$here/script/lib.sh"
. "$here/script/check_run.sh"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
export KOVA_PACKAGE_FOLDER=$scratch/packed

# The one file of that name pattern; a second one would be a leftover.
the_one() {
  local found
  mapfile -t found < <(compgen -G "$KOVA_PACKAGE_FOLDER/$1")
  [ ${#found[@]} -eq 1 ] || fail "${#found[@]} files $1, not one"
  echo "${found[0]}"
}

# Order, times, modes and names, which the same bytes would not show to be good.
check_entries() {
  python3 -B - "$1" <<'PY'
import sys, zipfile
entries = zipfile.ZipFile(sys.argv[1]).infolist()
names = [entry.filename for entry in entries]
assert names == sorted(names), "not sorted"
assert len({entry.date_time for entry in entries}) == 1, "several times"
modes = {entry.external_attr >> 16 for entry in entries}
assert modes <= {0o100644, 0o100755}, "strange modes"
assert all(name.isascii() and "\\" not in name for name in names), names
assert len({name.split("/")[0] for name in names}) == 1, "not one folder"
PY
}

# Every part of the package that somebody would miss.
check_contents() {
  local file
  for file in bin/KOVAServer.dll bin/kovactl.exe \
    bin/messages/Corvane_EventMessages.dll lib/KOVAServer.lib \
    bin/sample-extension/Corvane_V3_NetMon.dll include/kova/server.h \
    include/kova/extension.h include/kova/extension_http.h \
    include/kova/extension_http_parts.h lib/cmake/KOVAServer/KOVAServerConfig.cmake \
    samples/driver/drive_extension.c samples/extension/CMakeLists.txt \
    samples/host/host.cpp README.md \
    README.html CHANGELOG.md docs/packaging.md docs/packaging.html \
    licences/GPL-3.txt THIRD-PARTY-NOTICES.txt; do
    [ -s "$package/$file" ] || fail "the package lacks $file"
  done
  # Whoever unpacks it has no source tree.
  ! grep -lE 'script/wine|build/bin' "$package"/README.md \
    "$package"/docs/{administration,crash-dumps,event-log,extensions,kovactl}.md ||
    fail "a page for users shows commands that the package does not have"
  ! grep -rlE --include='*.md' --include='*.txt' --include='*.cmake' \
    --include='*.json' -e "$here" "$package" ||
    fail "a file of the package names a folder of this machine"
}

# Those that script/check-images knows, and no other.
check_images() {
  local setup headers
  diff <(cd "$package" && find . -iname '*.exe' -o -iname '*.dll' | sort) \
    <(printf './bin/%s\n' KOVAServer.dll kovactl.exe \
      messages/Corvane_EventMessages.dll \
      sample-extension/Corvane_V3_NetMon.dll) ||
    fail "there are other images in the package than expected"
  "$here/script/check-images"
  setup=$(the_one 'KOVAServer-*-win64-setup.exe')
  headers=$(llvm-readobj-19 --file-headers "$setup")
  [[ $headers == *IMAGE_FILE_MACHINE_AMD64* ]] ||
    fail "a 32-bit Windows would start the installer"
  [[ $headers == *IMAGE_DLL_CHARACTERISTICS_NX_COMPAT* ]] ||
    fail "the installer lacks NX_COMPAT"
}

# By a certificate made for the purpose.
make_certificate() {
  openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj "/CN=Packaging test" \
    -addext extendedKeyUsage=codeSigning -addext keyUsage=digitalSignature \
    -keyout "$scratch/key.pem" -out "$scratch/certificate.pem" 2>/dev/null
  openssl pkcs12 -export -inkey "$scratch/key.pem" \
    -in "$scratch/certificate.pem" -passout pass:secret \
    -out "$scratch/certificate.p12"
  echo secret >"$scratch/password"
}

expect_signed() {
  osslsigncode verify -CAfile "$scratch/certificate.pem" -in "$1" \
    >"$scratch/verify.log" 2>&1 ||
    { cat "$scratch/verify.log"; fail "$1 is not signed well"; }
}

# The uninstaller lies in the setup program: only the number tells of it.
check_signing() {
  local image signed
  make_certificate
  "$here/script/package" --product --sign "$scratch/certificate.p12" \
    "$scratch/password" >"$scratch/sign.log" 2>&1 ||
    { cat "$scratch/sign.log"; return 1; }
  python3 -B -m zipfile -e "$(the_one 'KOVAServer-*-win64.zip')" \
    "$scratch/signed"
  while read -r image; do
    expect_signed "$image"
  done < <(find "$scratch/signed" -name '*.dll' -o -name '*.exe')
  expect_signed "$(the_one 'KOVAServer-*-win64-setup.exe')"
  expect_signed "$(the_one 'KOVAServer-*-win64.msi')"
  signed=$(grep -c '^Succeeded' "$scratch/sign.log")
  [ "$signed" -eq 7 ] || fail "$signed files were signed, not 7"
}

run_tool() {
  local said
  # The line ends of a Windows program.
  said=$(wine "$package/bin/kovactl.exe" --version 2>/dev/null | tr -d '\r')
  [[ $said =~ ^kovactl\ [0-9]+\.[0-9]+\.[0-9]+$ ]] ||
    fail "kovactl --version says '$said'"
  wine "$package/bin/kovactl.exe" run --seconds 1 --port "$(random_free_port)" \
    </dev/null >"$scratch/run.log" 2>&1 ||
    { cat "$scratch/run.log"; fail "the packed server does not run"; }
  grep -q '^Stopped in' "$scratch/run.log" || fail "the server did not stop"
}

need_wine
need_package_tools
need_packages "signs images, for a test" osslsigncode openssl
check_signing
"$here/script/package" --product
wine_environment
make_wine_prefix
(cd "$KOVA_PACKAGE_FOLDER" && sha256sum --check --quiet SHA256SUMS)
for pattern in 'KOVAServer-*-win64.zip' 'KOVAServer-*-win64-symbols.zip'; do
  archive=$(the_one "$pattern")
  check_entries "$archive"
  python3 -B -m zipfile -e "$archive" "$scratch"
done
package=$(echo "$scratch"/KOVAServer-*-win64)
check_contents
check_images
python3 -B "$here/test/package/bill_test.py" "$package" "$package-symbols" \
  "$KOVA_PACKAGE_FOLDER"
run_tool
echo "the packages hold what they should"
