#!/usr/bin/env bash
# Sets everything up, builds, and runs every test under the project's Wine
# prefix. Exits non-zero when a test fails or when no test ran.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"
tools/setup.sh

echo "== every source as the project's .clang-format lays it out"
git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run -Werror

echo "== pure code, native, with sanitizers"
(cd build-native && ctest -j"$(nproc)" --output-on-failure --no-tests=error)

echo "== fuzz targets, briefly (tools/fuzz.sh runs them longer)"
tools/fuzz.sh 5

echo "== everything, under Wine"

# One wineserver for the whole run (tools/winerun starts it, with its
# service processes detached from ctest's pipes), ended afterwards.
export WINEPREFIX="$root/.wine"
trap '/usr/lib/wine/wineserver -k 2>/dev/null || true' EXIT
tools/winerun cmd /c exit </dev/null >/dev/null 2>&1 || true

cd build
ctest -j"$(nproc)" --output-on-failure --no-tests=error --timeout 300
