# 32-bit x86 Linux: Debian's i686 cross compiler with the i386 multiarch
# libraries. Pointers are 4 bytes as on the device, and the x86_64 machine
# runs the tests natively.
#   cmake -S . -B build-m32 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/i686-linux-gnu.cmake
# (gcc's -m32 would need gcc-multilib, which Debian will not install beside
# the ARM cross compiler.)
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_C_COMPILER i686-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER i686-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
