# Protocol Buffers: protoc at build time, the lite runtime at link time.
find_package(Protobuf REQUIRED)
find_program(QOR_PROTOC protoc REQUIRED)
find_library(QOR_PROTOBUF_LITE NAMES protobuf-lite libprotobuf-lite REQUIRED)

# Android's logger: the NDK's liblog on the target, Debian's android-liblog on the host.
if(ANDROID)
  find_library(QOR_LIBLOG log REQUIRED)
  set(QOR_LIBLOG_INCLUDE "")
else()
  find_library(QOR_LIBLOG log PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android NO_DEFAULT_PATH REQUIRED)
  find_path(QOR_LIBLOG_INCLUDE android/log.h PATHS /usr/include/android NO_DEFAULT_PATH REQUIRED)
  get_filename_component(QOR_LIBLOG_DIR ${QOR_LIBLOG} DIRECTORY)
endif()

# JNI headers for the natives; libjvm only for tests that host a VM.
if(NOT ANDROID)
  if(NOT DEFINED JAVA_HOME AND NOT DEFINED ENV{JAVA_HOME} AND EXISTS /usr/lib/jvm/java-17-openjdk-amd64)
    set(JAVA_HOME /usr/lib/jvm/java-17-openjdk-amd64)
  endif()
  find_package(JNI REQUIRED COMPONENTS JVM)
  find_package(Java 17 COMPONENTS Development)
endif()

find_package(Threads REQUIRED)
