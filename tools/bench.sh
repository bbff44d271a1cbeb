#!/usr/bin/env bash
# Sets everything up, builds, and runs the benchmark under the project's Wine
# prefix; the figures also go to build/bench/results.json.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
"$root/tools/setup.sh"
exec "$root/tools/winerun" "$root/build/bench/kyguidbench.exe" --json 'Z:'"$root/build/bench/results.json"
