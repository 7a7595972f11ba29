# cmake -DBUILD_DIR= -DWORK_DIR= -DEXAMPLE_DIR= [-DTOOLCHAIN=] [-DEMULATOR=] -P consume.cmake
# Installs BUILD_DIR into WORK_DIR/prefix, checks the installed layout, and
# builds and runs the consumer example against that prefix.
set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGN}\n${out}")
  endif()
  set(out "${out}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

foreach(f include/qorpkcs11/pkcs11.h include/qorpkcs11/pkcs11_params.h)
  if(NOT EXISTS ${prefix}/${f})
    message(FATAL_ERROR "not installed: ${f}")
  endif()
endforeach()
file(GLOB_RECURSE libs ${prefix}/lib*/libKorvanePkcs11Wrapper.so)
file(GLOB_RECURSE configs ${prefix}/lib*/KorvanePkcs11WrapperConfig.cmake)
if(NOT libs OR NOT configs)
  message(FATAL_ERROR "library or package config missing under ${prefix}")
endif()

set(args -S ${EXAMPLE_DIR} -B ${WORK_DIR}/build -DCMAKE_PREFIX_PATH=${prefix})
if(TOOLCHAIN)
  list(APPEND args -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN})
endif()
run(${CMAKE_COMMAND} ${args})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
run(${EMULATOR} ${WORK_DIR}/build/consumer)
message("${out}")
