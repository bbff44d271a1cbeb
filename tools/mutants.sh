#!/usr/bin/env bash
# Shows what the tests are worth: applies each deliberate fault listed in
# tools/mutants.tsv to the library, one at a time, builds, runs the tests
# until the first failure, restores the file and says whether the fault was
# caught ("killed") or not ("survived").
#
#   tools/mutants.sh            every fault of the list
#   tools/mutants.sh M03 M17    only these
#
# Needs what tools/test.sh sets up; run that first. A fault whose text no
# longer stands exactly once in its file is reported as "stale", one that
# does not compile as "broken"; neither counts as killed. The working tree is
# left as it was found, and rebuilt.
set -uo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"
list="$root/tools/mutants.tsv"
jobs="$(nproc)"
export WINEPREFIX="$root/.wine"

[ -d build ] && [ -d build-native ] || { echo "mutants: run tools/test.sh first" >&2; exit 2; }

wanted=" $* "
backup="$(mktemp)"
current=""
restore() {
  if [ -n "$current" ]; then
    cp "$backup" "$current"
    current=""
  fi
}
trap 'restore; rm -f "$backup"; /usr/lib/wine/wineserver -k 2>/dev/null || true' EXIT
trap 'exit 130' INT TERM

# The file's only occurrence of $1 replaced by $2; fails unless there is
# exactly one.
replace_once() {
  S="$2" R="$3" perl -0777 -i -pe '
    my $count = () = /\Q$ENV{S}\E/g;
    die "count $count\n" unless $count == 1;
    s/\Q$ENV{S}\E/$ENV{R}/;' "$1" 2>/dev/null
}

build() {
  cmake --build build -j"$jobs" >/dev/null 2>&1 && cmake --build build-native -j"$jobs" >/dev/null 2>&1
}

# The first failing test's name, or nothing when every test passed. The
# likely catchers run first, then everything.
first_failure() {
  local hint="$1" log
  log="$(mktemp)"
  {
    (cd build-native && ctest --stop-on-failure -j"$jobs" --no-tests=ignore) &&
      (cd build && ctest --stop-on-failure -j"$jobs" --timeout 300 --no-tests=ignore -R "$hint") &&
      (cd build && ctest --stop-on-failure -j"$jobs" --timeout 300 -E "$hint")
  } >"$log" 2>&1
  grep -m1 -E '\*\*\*Failed|\*\*\*Timeout|\*\*\*Exception|Failed  ' "$log" |
    sed -E 's/^.*Test +#[0-9]+: ([^ ]+).*$/\1/'
  rm -f "$log"
}

tools/winerun cmd /c exit </dev/null >/dev/null 2>&1 || true
killed=0 survived=0 stale=0 broken=0 total=0
while IFS=$'\t' read -r id file search replacement hint what; do
  [[ -z "$id" || "$id" == \#* ]] && continue
  [[ "$wanted" == "  " || "$wanted" == *" $id "* ]] || continue
  total=$((total + 1))
  cp "$file" "$backup"
  current="$file"
  if ! replace_once "$file" "$search" "$replacement"; then
    restore
    stale=$((stale + 1))
    printf '%s stale     %s (%s)\n' "$id" "$what" "$file"
    continue
  fi
  if ! build; then
    restore
    broken=$((broken + 1))
    printf '%s broken    %s (%s)\n' "$id" "$what" "$file"
    continue
  fi
  catcher="$(first_failure "$hint")"
  restore
  if [ -n "$catcher" ]; then
    killed=$((killed + 1))
    printf '%s killed    %s, by %s\n' "$id" "$what" "$catcher"
  else
    survived=$((survived + 1))
    printf '%s SURVIVED  %s (%s)\n' "$id" "$what" "$file"
  fi
done <"$list"

build || echo "mutants: the restored tree does not build" >&2
echo "mutants: $killed/$total killed, $survived survived, $stale stale, $broken broken"
[ "$survived" -eq 0 ] && [ "$stale" -eq 0 ] && [ "$broken" -eq 0 ]
