# 32-bit ARM Linux: Debian's arm-linux-gnueabihf cross compiler with the
# armhf multiarch libraries; tests run under qemu-arm.
#   cmake -S . -B build-arm -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/arm-linux-gnueabihf.cmake
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
# Loader and libc both from the cross toolchain's sysroot: left to the host's
# ld.so cache, the loader would pick the armhf multiarch libc, a different
# glibc build, and threads crash in pthread_create. Other libraries
# (protobuf-lite, liblog) still come from the armhf multiarch directories.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/arm-linux-gnueabihf
    -E LD_LIBRARY_PATH=/usr/arm-linux-gnueabihf/lib)
