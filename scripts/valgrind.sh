#!/usr/bin/env bash
# Valgrind memcheck over one end-to-end run: the soak tool's client proxies
# → abstract socket → transport server → processor → test module in a
# serving process of its own (which hosts a Java VM for the module registry),
# a few thousand mixed calls. Both processes run under memcheck; the VM's own
# reports are suppressed (tests/valgrind.supp). Fails on any other invalid
# read or write, use of uninitialised memory, or memory definitely lost.
#   scripts/valgrind.sh [calls=3000]        VALGRIND_BUILD_DIR overrides build
set -euo pipefail
cd "$(dirname "$0")/.."

calls=${1:-3000}
dir=${VALGRIND_BUILD_DIR:-build}
jobs=$(nproc 2>/dev/null || echo 2)
cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$dir" --target qor_soak -j"$jobs"

logs="$dir/valgrind"
rm -rf "$logs"
mkdir -p "$logs"
# Every error that is printed (not suppressed) counts.
valgrind --tool=memcheck --smc-check=all-non-file --track-origins=yes --error-limit=no --num-callers=64 \
  --leak-check=full --errors-for-leak-kinds=definite --show-leak-kinds=definite \
  --suppressions=tests/valgrind.supp --log-file="$logs/memcheck.%p.log" \
  "$dir/tools/soak/qor_soak" "$calls" --report-only

failed=0
for log in "$logs"/memcheck.*.log; do
  pid=${log##*memcheck.}; pid=${pid%.log}
  errors=$(grep -cE "^==$pid== (Invalid (read|write|free)|Conditional jump|Use of uninitialised|Syscall param|Mismatched free|Source and destination overlap)" "$log" || true)
  lost=$(sed -n "s/^==$pid==    definitely lost: \([0-9,]*\) bytes.*/\1/p" "$log")
  suppressed=$(sed -n "s/^==$pid== ERROR SUMMARY: .*suppressed: \([0-9]*\) from.*/\1/p" "$log")
  parent=$(sed -n "s/^==$pid== Parent PID: //p" "$log")
  role=calling; [ -e "$logs/memcheck.$parent.log" ] && role=serving
  printf '%-8s process %-8s errors %-4s definitely lost %-6s (suppressed VM reports: %s)\n' \
    "$role" "$pid" "$errors" "${lost:-n/a}" "${suppressed:-n/a}"
  if [ "$errors" != 0 ] || { [ -n "$lost" ] && [ "$lost" != 0 ]; }; then failed=1; fi
done
[ $failed = 0 ] && echo "valgrind: clean" || echo "valgrind: errors, see $logs"
exit $failed
