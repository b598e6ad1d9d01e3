#!/usr/bin/env bash
# Whole: the same sources, built in another folder, give the same images,
# import library and symbols byte for byte, and none of these names a folder of
# the machine that built it.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
. "$here/script/lib.sh"
elsewhere=$(mktemp -d)
trap 'rm -rf "$elsewhere"' EXIT
# Longer and deeper than the first, so that no length happens to be the same.
copy=$elsewhere/another/folder/for/the/same/sources
mkdir -p "$copy"

need_build_tools
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
echo "two builds in two folders gave the same ${#KOVA_IMAGE_FILES[@]} files"
