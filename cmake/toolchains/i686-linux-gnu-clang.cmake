# 32-bit x86 Linux with clang, for the libFuzzer targets at the device's
# pointer width (clang's i386 fuzzer and sanitizer runtimes; the i686 cross
# toolchain's libraries and headers):
#   CC=clang CXX=clang++ cmake -S . -B build-fuzz-m32 -DQOR_FUZZ=ON -DQOR_BUILD_TESTS=OFF \
#     -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/i686-linux-gnu-clang.cmake
include(${CMAKE_CURRENT_LIST_DIR}/i686-linux-gnu.cmake)
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET i686-linux-gnu)
set(CMAKE_CXX_COMPILER_TARGET i686-linux-gnu)
