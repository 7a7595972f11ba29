#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, ASan + UBSan, build-fuzz/) and runs
# each for the given number of seconds (default 60), keeping the corpus it
# grows in build-fuzz/tools/fuzz/corpus/. Prints one line of figures per
# target; fails if any target found a crash, a leak or a hang.
#   scripts/fuzz.sh [seconds]          FUZZ_BUILD_DIR overrides build-fuzz
#   FUZZ_M32=1 scripts/fuzz.sh [seconds]   the same at 32 bits, in build-fuzz-m32
#   FUZZ_TARGETS="replies processor" ...   only these targets
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-60}
cross=()
default_dir=build-fuzz
if [ "${FUZZ_M32:-0}" = 1 ]; then
  cross=(-DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/toolchains/i686-linux-gnu-clang.cmake")
  default_dir=build-fuzz-m32
fi
dir=${FUZZ_BUILD_DIR:-$default_dir}
jobs=$(nproc 2>/dev/null || echo 2)

CC=clang CXX=clang++ cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DQOR_FUZZ=ON -DQOR_BUILD_TESTS=OFF "${cross[@]}" >/dev/null
cmake --build "$dir" --target fuzz -j"$jobs"

fuzz="$dir/tools/fuzz"
logs="$fuzz/logs"
mkdir -p "$logs"
failed=0
printf '%-10s %12s %9s %6s %7s %8s %8s %s\n' target executions exec/s cov features corpus rss_mb result
for flags_file in "$fuzz"/flags-*.txt; do
  name=$(basename "$flags_file" .txt)
  name=${name#flags-}
  if [ -n "${FUZZ_TARGETS:-}" ] && [[ " $FUZZ_TARGETS " != *" $name "* ]]; then continue; fi
  log="$logs/$name.log"
  mkdir -p "$fuzz/corpus/$name"
  result=ok
  inputs=("$fuzz/corpus/$name" "$fuzz/seeds/$name")
  [ -d "tools/fuzz/regressions/$name" ] && inputs+=("tools/fuzz/regressions/$name")
  # shellcheck disable=SC2046  # the flags file holds one flag per word
  "$fuzz/fuzz_$name" $(cat "$flags_file") -max_total_time="$seconds" -print_final_stats=1 \
    -artifact_prefix="$fuzz/crash-$name-" "${inputs[@]}" >"$log" 2>&1 ||
    { result="FAILED (see $log)"; failed=1; }
  stat() { sed -n "s/^stat::$1: *//p" "$log" | tail -1; }
  last=$(grep -E '^#[0-9]+' "$log" | tail -1)
  cov=$(sed -n 's/.* cov: \([0-9]*\).*/\1/p' <<<"$last")
  ft=$(sed -n 's/.* ft: \([0-9]*\).*/\1/p' <<<"$last")
  corpus=$(sed -n 's/.* corp: \([0-9]*\).*/\1/p' <<<"$last")
  printf '%-10s %12s %9s %6s %7s %8s %8s %s\n' "$name" "$(stat number_of_executed_units)" \
    "$(stat average_exec_per_sec)" "${cov:--}" "${ft:--}" "${corpus:--}" "$(stat peak_rss_mb)" "$result"
done
exit $failed
