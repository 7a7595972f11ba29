#!/usr/bin/env bash
# The one test command: set up; build normally, with ASan+UBSan, for 32-bit
# x86 (also with ASan+UBSan) and for 32-bit ARM, and configure+build the
# Android branch with a stand-in toolchain; build the fuzzers with clang at
# 64 and at 32 bits; run ctest in the five test builds (ARM under qemu-arm)
# and a short run of each fuzzer at both widths.
# Stops at the first failure; the last line is ctest's summary.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh

jobs=$(nproc 2>/dev/null || echo 2)
build() { # dir, extra cmake args...
  local dir=$1 t0=$SECONDS; shift
  cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
  cmake --build "$dir" -j"$jobs"
  echo "test.sh: $dir built in $((SECONDS - t0)) s" >&2
}
toolchain() { echo "-DCMAKE_TOOLCHAIN_FILE=$PWD/cmake/toolchains/$1.cmake"; }

build build
build build-asan -DQOR_SANITIZE=ON
# 4-byte pointers as on the device. The 32-bit x86 builds host the i386 Java
# VM that setup.sh unpacks, so they run every test except those of the LP64
# platform ABI translation modules. The ARM build runs no Java VM (under
# qemu one would cost more than the rest of the run), so it also leaves out
# the JAVA_VM targets and the JUnit classes.
build build-m32 "$(toolchain i686-linux-gnu)"
build build-m32-asan "$(toolchain i686-linux-gnu)" -DQOR_SANITIZE=ON
build build-arm "$(toolchain arm-linux-gnueabihf)"
# No NDK here: this keeps the Android branch of the build configuring and
# compiling (clang, ARM, ANDROID set, NDK-like sysroot and protobuf prefix).
build build-android "$(toolchain android-standin)" -DQOR_BUILD_TESTS=OFF \
  -DQOR_PROTOBUF_PREFIX="$PWD/build-android/android-standin-protobuf"
# The libFuzzer targets (clang, instrumented, their own build): a few
# seconds of each runs as a ctest test.
CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DQOR_FUZZ=ON -DQOR_BUILD_TESTS=OFF >/dev/null
cmake --build build-fuzz --target fuzz -j"$jobs"
# The same targets at the device's pointer width (clang's i386 runtimes, the
# i386 Java VM); their smoke runs replay every seed and regression input.
CC=clang CXX=clang++ cmake -S . -B build-fuzz-m32 -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DQOR_FUZZ=ON -DQOR_BUILD_TESTS=OFF "$(toolchain i686-linux-gnu-clang)" >/dev/null
cmake --build build-fuzz-m32 --target fuzz -j"$jobs"

ctest --test-dir build-m32 -j"$jobs" --output-on-failure --timeout 300
ctest --test-dir build-m32-asan -j"$jobs" --output-on-failure --timeout 600
ctest --test-dir build-arm -j"$jobs" --output-on-failure --timeout 600
ctest --test-dir build-fuzz/tools/fuzz -j"$jobs" --output-on-failure
ctest --test-dir build-fuzz-m32/tools/fuzz -j"$jobs" --output-on-failure
ctest --test-dir build -j"$jobs" --output-on-failure --timeout 300
ctest --test-dir build-asan -j"$jobs" --output-on-failure --timeout 600
