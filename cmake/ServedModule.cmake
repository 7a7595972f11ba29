# qor_served_module(<target> <PUBLIC|PRIVATE>): <target> hosts the serving
# side as a serving process does, for tools that are not tests: the test
# module registered in the module registry inside an in-process Java VM
# (tests/support/served_module.h). Needs QOR_HAVE_JVM.
function(qor_served_module target scope)
  target_sources(${target} PRIVATE
    ${CMAKE_SOURCE_DIR}/tests/support/served_module.cpp ${CMAKE_SOURCE_DIR}/tests/support/jvm.cpp)
  target_include_directories(${target} ${scope}
    ${CMAKE_SOURCE_DIR}/tests/support ${CMAKE_SOURCE_DIR}/tools/testmodule)
  target_compile_definitions(${target} ${scope} QOR_TESTMODULE_PATH="$<TARGET_FILE:qortestmodule>")
  target_link_libraries(${target} ${scope} qorpkcs11_core ${JAVA_JVM_LIBRARY})
  target_link_options(${target} ${scope} ${QOR_JVM_LINK_OPTIONS})
  add_dependencies(${target} qortestmodule)
endfunction()
