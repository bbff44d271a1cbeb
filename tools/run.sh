#!/usr/bin/env bash
# Sets everything up, builds, updates and prints this machine's GUID through the
# shipped KyGuid64.dll under the project's Wine prefix.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
"$root/tools/setup.sh"
"$root/kyguid" update
exec "$root/kyguid" read
