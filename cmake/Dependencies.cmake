# Protocol Buffers: the build machine's protoc at build time; the target's
# lite runtime and headers of the very same version at link time. For a
# target without system packages (Android) QOR_PROTOBUF_PREFIX names a
# protobuf-lite build for it (<prefix>/include, <prefix>/lib).
set(QOR_PROTOBUF_PREFIX "" CACHE PATH "protobuf-lite build for the target (include/ and lib/); empty: the system's")
find_program(QOR_PROTOC protoc REQUIRED)
if(ANDROID AND NOT QOR_PROTOBUF_PREFIX)
  message(FATAL_ERROR "Android builds need -DQOR_PROTOBUF_PREFIX=<protobuf-lite built for the ABI>")
endif()
if(QOR_PROTOBUF_PREFIX)
  # A toolchain that confines searches to its sysroot must not re-root the
  # user's prefix.
  find_path(QOR_PROTOBUF_INCLUDE google/protobuf/message_lite.h
    PATHS ${QOR_PROTOBUF_PREFIX}/include NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH REQUIRED)
  find_library(QOR_PROTOBUF_LITE NAMES protobuf-lite libprotobuf-lite.a
    PATHS ${QOR_PROTOBUF_PREFIX}/lib ${QOR_PROTOBUF_PREFIX}/lib64
    NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH REQUIRED)
else()
  find_path(QOR_PROTOBUF_INCLUDE google/protobuf/message_lite.h REQUIRED)
  # Debian's runtime-only multiarch package has no unversioned link name.
  find_library(QOR_PROTOBUF_LITE NAMES protobuf-lite libprotobuf-lite.so.32 REQUIRED)
endif()

# Generated code only compiles against headers of protoc's own version; say
# so at configure time rather than with a page of #errors.
execute_process(COMMAND ${QOR_PROTOC} --version OUTPUT_VARIABLE _qor_protoc_out
                OUTPUT_STRIP_TRAILING_WHITESPACE)
string(REGEX MATCH "[0-9]+\\.[0-9]+\\.[0-9]+" QOR_PROTOC_VERSION "${_qor_protoc_out}")
file(STRINGS ${QOR_PROTOBUF_INCLUDE}/google/protobuf/port_def.inc _qor_pb_line
     REGEX "^#define PROTOBUF_VERSION [0-9]+")
string(REGEX MATCH "[0-9]+$" _qor_pb_num "${_qor_pb_line}")
if(_qor_pb_num)
  math(EXPR _qor_pb_major "${_qor_pb_num} / 1000000")
  math(EXPR _qor_pb_minor "${_qor_pb_num} / 1000 % 1000")
  math(EXPR _qor_pb_patch "${_qor_pb_num} % 1000")
  set(QOR_PROTOBUF_HEADERS_VERSION "${_qor_pb_major}.${_qor_pb_minor}.${_qor_pb_patch}")
  if(NOT QOR_PROTOBUF_HEADERS_VERSION VERSION_EQUAL QOR_PROTOC_VERSION)
    message(FATAL_ERROR "protoc ${QOR_PROTOC} is ${QOR_PROTOC_VERSION} but the protobuf headers in "
                        "${QOR_PROTOBUF_INCLUDE} are ${QOR_PROTOBUF_HEADERS_VERSION}: use the same version")
  endif()
endif()

# Android's logger: the NDK's liblog on the target, Debian's android-liblog
# (for the target's multiarch triplet) elsewhere.
if(ANDROID)
  find_library(QOR_LIBLOG log REQUIRED)
  set(QOR_LIBLOG_INCLUDE "")
else()
  find_library(QOR_LIBLOG log PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android NO_DEFAULT_PATH REQUIRED)
  find_path(QOR_LIBLOG_INCLUDE android/log.h PATHS /usr/include/android NO_DEFAULT_PATH REQUIRED)
  get_filename_component(QOR_LIBLOG_DIR ${QOR_LIBLOG} DIRECTORY)
endif()

# JNI headers for the natives (the NDK sysroot has them on Android; the JDK's
# are the same for every architecture). libjvm only serves tests that host a
# VM, and only when it runs on the target: QOR_HAVE_JVM says whether it does.
# A cross build has one when its toolchain names a Java home of the target
# (QOR_TARGET_JAVA_HOME: the i386 JRE); else it leaves those tests out.
# QOR_TARGET_JAVA runs Java programs on the target.
set(QOR_HAVE_JVM OFF)
if(NOT ANDROID)
  if(NOT DEFINED JAVA_HOME AND NOT DEFINED ENV{JAVA_HOME} AND EXISTS /usr/lib/jvm/java-17-openjdk-amd64)
    set(JAVA_HOME /usr/lib/jvm/java-17-openjdk-amd64)
  endif()
  find_package(JNI COMPONENTS JVM)
  if(NOT JAVA_INCLUDE_PATH OR NOT JAVA_INCLUDE_PATH2)
    message(FATAL_ERROR "JNI headers not found (install a JDK or set JAVA_HOME)")
  endif()
  set(JNI_INCLUDE_DIRS ${JAVA_INCLUDE_PATH} ${JAVA_INCLUDE_PATH2})
  set(QOR_JVM_LINK_OPTIONS "")
  if(CMAKE_CROSSCOMPILING)
    set(JAVA_JVM_LIBRARY "")
    if(QOR_TARGET_JAVA_HOME)
      set(JAVA_JVM_LIBRARY ${QOR_TARGET_JAVA_HOME}/lib/server/libjvm.so)
      # Debian's i386 libjvm leaves one assembler stub (_SafeFetch32_impl)
      # undefined; the java launcher binds lazily and never needs it, and
      # neither do the tests.
      set(QOR_JVM_LINK_OPTIONS -Wl,--allow-shlib-undefined)
    endif()
  endif()
  if(JAVA_JVM_LIBRARY)
    include(CheckCXXSourceCompiles)
    include(CMakePushCheckState)
    cmake_push_check_state(RESET)
    set(CMAKE_REQUIRED_INCLUDES ${JNI_INCLUDE_DIRS})
    set(CMAKE_REQUIRED_LIBRARIES ${JAVA_JVM_LIBRARY})
    set(CMAKE_REQUIRED_LINK_OPTIONS ${QOR_JVM_LINK_OPTIONS})
    set(CMAKE_REQUIRED_QUIET ON)
    check_cxx_source_compiles([[
      #include <jni.h>
      int main() {
        JavaVM* vm; void* env; JavaVMInitArgs args{};
        return JNI_CreateJavaVM(&vm, &env, &args);
      }]] QOR_JVM_LINKS)
    cmake_pop_check_state()
    if(QOR_JVM_LINKS)
      set(QOR_HAVE_JVM ON)
    endif()
  endif()
  # A native build has the JDK whose headers it uses: losing its VM tests
  # quietly would hide a broken setup.
  if(NOT CMAKE_CROSSCOMPILING AND NOT QOR_HAVE_JVM)
    message(FATAL_ERROR "no usable libjvm (${JAVA_JVM_LIBRARY}) in this JDK")
  endif()
endif()
message(STATUS "Java VM for the target: ${QOR_HAVE_JVM}")
# javac and jar run on the build machine; the jar suits every target.
find_package(Java 17 COMPONENTS Development)
if(QOR_TARGET_JAVA_HOME)
  set(QOR_TARGET_JAVA ${QOR_TARGET_JAVA_HOME}/bin/java)
else()
  set(QOR_TARGET_JAVA ${Java_JAVA_EXECUTABLE})
endif()

# The translation modules (tools/abi) speak the platform's LP64 PKCS#11 ABI;
# a 32-bit build has no platform module of that ABI to load.
set(QOR_HAVE_PLATFORM_ABI OFF)
if(CMAKE_SIZEOF_VOID_P EQUAL 8)
  set(QOR_HAVE_PLATFORM_ABI ON)
endif()

find_package(Threads REQUIRED)
