#!/usr/bin/env bash
# The one test command: set up, build normally and with ASan+UBSan, run ctest
# in both. Stops at the first failure; the last line is ctest's summary.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh

jobs=$(nproc 2>/dev/null || echo 2)
build() { # dir, extra cmake args...
  local dir=$1; shift
  cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
  cmake --build "$dir" -j"$jobs"
}

build build
build build-asan -DQOR_SANITIZE=ON

ctest --test-dir build -j"$jobs" --output-on-failure --timeout 300
ctest --test-dir build-asan -j"$jobs" --output-on-failure --timeout 600
