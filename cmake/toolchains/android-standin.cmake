# The Android branch of the build without the NDK, which Debian does not
# package: ANDROID is set as the NDK's toolchain file sets it, clang compiles
# 32-bit ARM Thumb-2 code as for armeabi-v7a (linking against Debian's armhf
# libraries), and a stand-in sysroot in the build tree holds what the NDK's
# holds: <jni.h>, <android/log.h> and liblog.so (Debian's armhf build of
# Android's liblog). A stand-in protobuf-lite prefix is made beside it.
#   cmake -S . -B build-android -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/android-standin.cmake \
#         -DQOR_PROTOBUF_PREFIX=$PWD/build-android/android-standin-protobuf -DQOR_BUILD_TESTS=OFF
# CMAKE_SYSTEM_NAME stays Linux: "Android" makes CMake go looking for an NDK.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7-a)
set(ANDROID TRUE)
set(ANDROID_ABI armeabi-v7a)
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET arm-linux-gnueabihf)
set(CMAKE_CXX_COMPILER_TARGET arm-linux-gnueabihf)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

set(_standin ${CMAKE_BINARY_DIR}/android-standin-sysroot)
set(_protobuf ${CMAKE_BINARY_DIR}/android-standin-protobuf)
file(GLOB _jni_h /usr/lib/jvm/*/include/jni.h)
list(GET _jni_h 0 _jni_h)
get_filename_component(_jdk_include ${_jni_h} DIRECTORY)
file(MAKE_DIRECTORY ${_standin}/usr/include ${_standin}/usr/lib ${_protobuf}/include ${_protobuf}/lib)
foreach(_link
    "/usr/include/android/android|${_standin}/usr/include/android"
    "${_jdk_include}/jni.h|${_standin}/usr/include/jni.h"
    "${_jdk_include}/linux/jni_md.h|${_standin}/usr/include/jni_md.h"
    "/usr/lib/arm-linux-gnueabihf/android/liblog.so|${_standin}/usr/lib/liblog.so"
    "/usr/include/google|${_protobuf}/include/google"
    "/usr/lib/arm-linux-gnueabihf/libprotobuf-lite.so.32|${_protobuf}/lib/libprotobuf-lite.so")
  string(REPLACE "|" ";" _pair "${_link}")
  list(GET _pair 0 _from)
  list(GET _pair 1 _to)
  if(NOT EXISTS ${_to})
    file(CREATE_LINK ${_from} ${_to} SYMBOLIC)
  endif()
endforeach()

set(CMAKE_C_FLAGS_INIT "-march=armv7-a -mthumb")
set(CMAKE_CXX_FLAGS_INIT "-march=armv7-a -mthumb")
# The NDK's compiler finds its sysroot headers by itself; this one is told.
set(CMAKE_C_STANDARD_INCLUDE_DIRECTORIES ${_standin}/usr/include)
set(CMAKE_CXX_STANDARD_INCLUDE_DIRECTORIES ${_standin}/usr/include)

# Searches stay inside the sysroot, as the NDK's toolchain file keeps them.
set(CMAKE_FIND_ROOT_PATH ${_standin})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
