# The PKCS#11 constants of the Java API, made from the project's header at
# configure time: the names are the header's #define lines of the prefixes
# below; every value comes from compiling the header on this machine, so the
# header is the one place a value is written.
#   qor_java_constants(<output java file> <output check rows> <headers>...)
# The check rows (X(name, value) per constant, from the Java source itself)
# let a C++ test compare each Java value with the header's.
set(QOR_CONSTANT_PREFIXES CKA CKM CKO CKK CKC CKF CKU CKS CKR CKH CKN CKD CKG CKZ CKP)
set(QOR_CONSTANT_SINGLES CK_UNAVAILABLE_INFORMATION CK_EFFECTIVELY_INFINITE CK_INVALID_HANDLE)

function(qor_java_constants java_out rows_out)
  set(defines "")
  foreach(header IN LISTS ARGN)
    file(STRINGS ${header} found REGEX "^#define CK[A-Z]*_[A-Z0-9_]+ ")
    list(APPEND defines ${found})
  endforeach()
  set(names "")
  foreach(line IN LISTS defines)
    string(REGEX REPLACE "^#define (CK[A-Z]*_[A-Z0-9_]+) .*" "\\1" name "${line}")
    string(REGEX REPLACE "_.*" "" prefix "${name}")
    if(prefix IN_LIST QOR_CONSTANT_PREFIXES OR name IN_LIST QOR_CONSTANT_SINGLES)
      list(APPEND names ${name})
    endif()
  endforeach()

  set(rows "")
  foreach(name IN LISTS names)
    string(APPEND rows "    {\"${name}\", static_cast<CK_ULONG>(${name})},\n")
  endforeach()
  set(dir ${CMAKE_CURRENT_BINARY_DIR}/constants)
  file(MAKE_DIRECTORY ${dir})
  configure_file(${CMAKE_CURRENT_LIST_DIR}/constants/generate.cpp.in ${dir}/generate.cpp @ONLY)

  # Compiled for this machine even in a cross build: it only prints values.
  find_program(QOR_HOST_CXX NAMES c++ g++ clang++ NO_CMAKE_FIND_ROOT_PATH REQUIRED)
  execute_process(
    COMMAND ${QOR_HOST_CXX} -std=c++17 -I${CMAKE_SOURCE_DIR}/native ${dir}/generate.cpp -o ${dir}/generate
    RESULT_VARIABLE built ERROR_VARIABLE why)
  if(NOT built EQUAL 0)
    message(FATAL_ERROR "Java constants: the generator does not compile:\n${why}")
  endif()
  execute_process(COMMAND ${dir}/generate ${java_out} RESULT_VARIABLE ran)
  if(NOT ran EQUAL 0)
    message(FATAL_ERROR "Java constants: the generator failed")
  endif()
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
               ${ARGN} ${CMAKE_CURRENT_LIST_DIR}/constants/generate.cpp.in)

  # X(name, value) as the Java source states them.
  file(STRINGS ${java_out} fields REGEX "public static final long CK[A-Z]*_")
  set(check "")
  foreach(field IN LISTS fields)
    string(REGEX REPLACE ".* (CK[A-Z]*_[A-Z0-9_]+) = (0x[0-9A-F]+)L;.*" "X(\\1, \\2)\n" row "${field}")
    string(APPEND check "${row}")
  endforeach()
  file(WRITE ${rows_out} "${check}")
endfunction()
