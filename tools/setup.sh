#!/usr/bin/env bash
# Prepares a fresh Debian machine (as root) and builds everything: installs
# what is missing, creates the project's Wine prefix in .wine/, builds the
# Windows binaries in build/ and the sanitizer build of the pure code in
# build-native/. Safe to run again; it only does what is still needed.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"

packages=(cmake make g++-mingw-w64-x86-64 wine64 googletest clang clang-format libssl-dev)
missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" ||
    missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "setup: installing ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update
  apt-get install -y --no-install-recommends "${missing[@]}"
fi

if [ ! -f "$root/.wine/system.reg" ]; then
  echo "setup: creating the Wine prefix in $root/.wine"
  WINEDLLOVERRIDES="mscoree,mshtml=" tools/winerun wineboot -i >/dev/null 2>&1 || true
  # The registry files are written when the prefix's wineserver exits.
  WINEPREFIX="$root/.wine" /usr/lib/wine/wineserver -w 2>/dev/null || true
  [ -f "$root/.wine/system.reg" ] || { echo "setup: the Wine prefix was not created" >&2; exit 1; }
fi

cmake -S . -B build -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake >/dev/null
cmake --build build -j"$(nproc)"

# The code without Windows headers, natively under the address and
# undefined-behaviour sanitizers.
cmake -S . -B build-native -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_CXX_FLAGS="-fsanitize=address,undefined -fno-sanitize-recover=all" >/dev/null
cmake --build build-native -j"$(nproc)"
