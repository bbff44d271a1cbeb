#!/usr/bin/env bash
# The long runs of the reliability tests under Wine: concurrency for the
# given seconds (default 120) and the given number of kills of each kind
# of identity (default 300; a third after Guid.db was deleted),
# then the hostile-file corpus. Prints the figures the README's table quotes.
# Usage: tools/stress.sh [seconds] [kills]
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"
export WINEPREFIX="$root/.wine"
trap '/usr/lib/wine/wineserver -k 2>/dev/null || true' EXIT
cmake --build build -j2 --target kyguid_dll_tests >/dev/null
export KYGUID_STRESS_SECONDS="${1:-120}" KYGUID_KILLS="${2:-300}"
cd build/tests/dll
../../../tools/winerun ./kyguid_dll_tests.exe \
  --gtest_filter='DllTest.ReadersSee*:Identity/KillTest.*:HostileFilesTest.*' 2>&1 |
  grep -E '^(concurrency|kills|hostile)|FAILED|PASSED|Failure' || true
