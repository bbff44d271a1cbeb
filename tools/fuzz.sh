#!/usr/bin/env bash
# Builds the fuzz targets (build-native/fuzz) and runs each for the given
# number of seconds (default 300). Exits non-zero when a target crashed;
# the crashing input is left in build-native/fuzz/findings/<target>/.
# Prints one line per target: "fuzz <target> runs=<executions> crashes=<n>".
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
seconds="${1:-300}"
cd "$root"
if [ ! -f build-native/CMakeCache.txt ]; then
  cmake -S . -B build-native -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
    -DCMAKE_CXX_FLAGS="-fsanitize=address,undefined -fno-sanitize-recover=all" >/dev/null
fi
targets=(fuzz_sanitize_disk_strings fuzz_storage_descriptor fuzz_identify_strings
  fuzz_descriptor_string fuzz_flip_and_code fuzz_convert_to_string fuzz_remove_blanks
  fuzz_md5_differential fuzz_machine_file)
cmake --build build-native -j2 --target "${targets[@]}" >/dev/null
failed=0
for target in "${targets[@]}"; do
  dir="build-native/fuzz/findings/$target"
  corpus="build-native/fuzz/corpus/$target"
  mkdir -p "$dir" "$corpus"
  log="$dir/fuzz.log"
  rc=0
  # The MD5 target wants inputs past several blocks, a machine file room for
  # hex lines of whole descriptors; the others are bounded by what a driver
  # or a profile line can hand over.
  maxlen=4096
  [ "$target" = fuzz_md5_differential ] && maxlen=16384
  [ "$target" = fuzz_machine_file ] && maxlen=65536
  "build-native/fuzz/$target" -max_total_time="$seconds" -max_len="$maxlen" -timeout=10 \
    -rss_limit_mb=1024 -print_final_stats=1 -artifact_prefix="$dir/" "$corpus" \
    >"$log" 2>&1 || rc=$?
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  crashes=0
  [ $rc -ne 0 ] && crashes=1 && failed=1
  echo "fuzz $target runs=${runs:-0} crashes=$crashes"
  [ $rc -ne 0 ] && tail -40 "$log" >&2
done
exit $failed
