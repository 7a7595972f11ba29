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
# The i386 JRE that scripts/setup.sh unpacks: with it the tests that host a
# Java VM, and the Java binding's JUnit classes, run at this pointer width.
if(EXISTS ${CMAKE_CURRENT_LIST_DIR}/../../.jdk-i386/usr/lib/jvm/java-17-openjdk-i386/lib/server/libjvm.so)
  get_filename_component(QOR_TARGET_JAVA_HOME
    ${CMAKE_CURRENT_LIST_DIR}/../../.jdk-i386/usr/lib/jvm/java-17-openjdk-i386 ABSOLUTE)
endif()
