#!/usr/bin/env bash
# Compares what updates leave behind, byte for byte, between this tree and
# another revision (default: the last commit): builds tools/byteprobe against
# both and diffs their outputs. Exits non-zero when they differ.
#   tools/byteprobe.sh [REVISION]
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
revision="${1:-HEAD}"
"$root/tools/setup.sh" >/dev/null
base="$root/build-probe-base"
rm -rf "$base"
git -C "$root" worktree add --detach --force "$base/src" "$revision" >/dev/null
trap 'git -C "$root" worktree remove --force "$base/src"' EXIT
# The probe itself is this tree's, so both sides run the same stories.
rm -rf "$base/src/tools/byteprobe"
cp -r "$root/tools/byteprobe" "$base/src/tools/byteprobe"
sed -i '/byteprobe/d' "$base/src/tools/CMakeLists.txt"
echo 'add_subdirectory(byteprobe)' >>"$base/src/tools/CMakeLists.txt"
cmake -S "$base/src" -B "$base/build" -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake \
  -DBUILD_TESTING=OFF >/dev/null
cmake --build "$base/build" -j"$(nproc)" --target byteprobe >/dev/null
cmake --build "$root/build" -j"$(nproc)" --target byteprobe >/dev/null

run() {  # build folder, output file; both in one folder, as paths are logged
  rm -rf "$base/work"
  "$root/tools/winerun" "$1/tools/byteprobe/byteprobe.exe" "Z:$base/work" >"$2"
  rm -rf "$base/work"
}
run "$base/build" "$base/before.txt"
run "$root/build" "$base/after.txt"
echo "byteprobe: $(wc -l <"$base/after.txt") lines"
diff -u "$base/before.txt" "$base/after.txt" && echo "byteprobe: identical to $revision"
