#!/usr/bin/env bash
# Whole: the same sources, built in another folder, give the same images,
# import library, symbols and packages byte for byte, and none of these names a
# folder of the machine that built it.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
. "$here/script/lib.sh"
elsewhere=$(mktemp -d)
trap 'rm -rf "$elsewhere"' EXIT
# Longer and deeper than the first, so that no length happens to be the same.
copy=$elsewhere/another/folder/for/the/same/sources
mkdir -p "$copy"

# One commit, as far as the packages are told.
export SOURCE_DATE_EPOCH=1700000000
export KOVA_COMMIT=0123456789abcdef0123456789abcdef01234567

# pack ROOT ENVIRONMENT...: packs with other habits of the user.
pack() {
  local root=$1
  shift
  env "$@" KOVA_PACKAGE_FOLDER="$elsewhere/of$root" "$root/script/package" \
    --product >"$elsewhere/log" 2>&1 ||
    { cat "$elsewhere/log"; fail "packing in $root failed"; }
}

need_build_tools
need_package_tools
build_windows "${KOVA_IMAGE_TARGETS[@]}"
git -C "$here" ls-files -z --cached --others --exclude-standard |
  tar -C "$here" --null -T - --ignore-failed-read -c | tar -C "$copy" -x
say "Building the images in another folder"
{
  cd "$copy"
  cmake --preset windows &&
    cmake --build --preset windows --target "${KOVA_IMAGE_TARGETS[@]}"
} >"$elsewhere/log" 2>&1 || { cat "$elsewhere/log"; fail "the build failed"; }

for file in "${KOVA_IMAGE_FILES[@]}"; do
  cmp "$copy/build/$file" "$KOVA_BUILD/$file" ||
    fail "$file differs when it is built elsewhere"
  ! grep -qaF -e "$here/" -e "$copy/" "$copy/build/$file" "$KOVA_BUILD/$file" ||
    fail "$file names the folder that it was built in"
done
say "Packing both"
(umask 022 && pack "$here" TZ=UTC LC_ALL=C.UTF-8)
(umask 077 && pack "$copy" TZ=Asia/Tokyo LC_ALL=C)
diff "$elsewhere/of$here/SHA256SUMS" "$elsewhere/of$copy/SHA256SUMS" ||
  fail "the packages differ when they are made elsewhere"
echo "two builds in two folders gave the same ${#KOVA_IMAGE_FILES[@]} files"
