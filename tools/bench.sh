#!/usr/bin/env bash
# Sets everything up, builds, and runs the benchmark under the project's Wine
# prefix; the figures also go to build/bench/results.json.
#   tools/bench.sh                   the whole benchmark
#   tools/bench.sh --baseline REV    the updates of this tree and of REV side
#                                    by side, each built against its own
#                                    library (REV's benchmark when it has the
#                                    updates mode), run in turn, five times each
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
"$root/tools/setup.sh"
if [ "${1:-}" != "--baseline" ]; then
  exec "$root/tools/winerun" "$root/build/bench/kyguidbench.exe" --json 'Z:'"$root/build/bench/results.json"
fi

revision="${2:?tools/bench.sh --baseline REV}"
base="$root/build-bench-base"
rm -rf "$base"
git -C "$root" worktree add --detach --force "$base/src" "$revision" >/dev/null
trap 'git -C "$root" worktree remove --force "$base/src"' EXIT
# REV's own benchmark when it can measure updates alone, since this tree's
# may need what REV's library does not have yet; else this tree's.
if ! grep -q -- '"--updates"' "$base/src/bench/kyguidbench.cpp" 2>/dev/null; then
  rm -rf "$base/src/bench" && cp -r "$root/bench" "$base/src/bench"
fi
cmake -S "$base/src" -B "$base/build" -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake \
  -DBUILD_TESTING=OFF >/dev/null
cmake --build "$base/build" -j"$(nproc)" --target kyguidbench >/dev/null
for run in 1 2 3 4 5; do
  for side in before after; do
    build="$root/build"
    [ "$side" = before ] && build="$base/build"
    "$root/tools/winerun" "$build/bench/kyguidbench.exe" --updates | tr -d '\r' |
      sed "s/^update/$side/"
  done
done >"$base/runs.txt"
# The median of the five runs' medians, per kind of update and side.
echo "update (UpdateNow), ms: median of 5 runs, each the median of 7; $revision before, this tree after"
echo "disks adapters kind    before    after  after/before"
awk '{ key = $2 " " $3 " " $4; v[$1, key, ++n[$1, key]] = $5; keys[key] }
  function median(side, key,   i, j, t, a, c) {
    c = n[side, key]; for (i = 1; i <= c; i++) a[i] = v[side, key, i]
    for (i = 1; i <= c; i++) for (j = i + 1; j <= c; j++) if (a[j] < a[i]) { t = a[i]; a[i] = a[j]; a[j] = t }
    return a[int((c + 1) / 2)]
  }
  END { for (key in keys) { b = median("before", key); a = median("after", key)
          split(key, k, " "); printf "%5d %8d %-5s %8.2f %8.2f %8.2f\n", k[1], k[2], k[3], b, a, a / b } }' \
  "$base/runs.txt" | sort -k1,1n -k2,2n -k3,3
