# cmake --install: the library, its public headers, the Java API jar (when
# built) and a package config, so that a consumer's
#   find_package(KorvanePkcs11Wrapper)
#   target_link_libraries(app PRIVATE Korvane::Pkcs11Wrapper)
# compiles against <qorpkcs11/pkcs11.h> and links the library.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(QOR_CONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/KorvanePkcs11Wrapper)
set(QOR_PUBLIC_HEADER_DIR ${CMAKE_SOURCE_DIR}/native/qorpkcs11)

target_include_directories(KorvanePkcs11Wrapper INTERFACE
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
set_target_properties(KorvanePkcs11Wrapper PROPERTIES EXPORT_NAME Pkcs11Wrapper)
if(NOT ANDROID)
  # Debian's stand-in liblog lives outside the loader's search path.
  set_target_properties(KorvanePkcs11Wrapper PROPERTIES INSTALL_RPATH "${QOR_LIBLOG_DIR}")
endif()

install(TARGETS KorvanePkcs11Wrapper EXPORT KorvanePkcs11WrapperTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(EXPORT KorvanePkcs11WrapperTargets NAMESPACE Korvane::
  DESTINATION ${QOR_CONFIG_DIR})

# The header of the native object interface arrives with the JNI work.
set(QOR_PUBLIC_HEADERS ${QOR_PUBLIC_HEADER_DIR}/pkcs11.h ${QOR_PUBLIC_HEADER_DIR}/pkcs11_params.h)
if(EXISTS ${QOR_PUBLIC_HEADER_DIR}/IQorPkcs11.h)
  list(APPEND QOR_PUBLIC_HEADERS ${QOR_PUBLIC_HEADER_DIR}/IQorPkcs11.h)
endif()
install(FILES ${QOR_PUBLIC_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qorpkcs11)

# The jar goes where Debian keeps jars (<prefix>/share/java); the config
# names it in KorvanePkcs11Wrapper_JAR.
set(QOR_JAR_DIR ${CMAKE_INSTALL_DATADIR}/java)
set(QOR_INSTALLED_JAR "")
if(TARGET qorpkcs11)
  include(UseJava)
  install_jar(qorpkcs11 DESTINATION ${QOR_JAR_DIR})
  install(FILES ${QOR_SOURCES_JAR} ${QOR_JAVADOC_JAR} DESTINATION ${QOR_JAR_DIR})
  set(QOR_INSTALLED_JAR ${QOR_JAR_DIR}/qorpkcs11.jar)

  # The same three jars and a POM laid out as a Maven repository
  # (<prefix>/share/maven-repo, where Debian keeps one), so that Gradle's
  # maven { url "<prefix>/share/maven-repo" } or Maven's file:// repository
  # finds com.qor.smartcard:qorpkcs11:<version>.
  set(QOR_MAVEN_GROUP com.qor.smartcard)
  set(QOR_MAVEN_ARTIFACT qorpkcs11)
  string(REPLACE "." "/" group_path ${QOR_MAVEN_GROUP})
  set(QOR_MAVEN_DIR
      ${CMAKE_INSTALL_DATADIR}/maven-repo/${group_path}/${QOR_MAVEN_ARTIFACT}/${PROJECT_VERSION})
  set(base ${QOR_MAVEN_ARTIFACT}-${PROJECT_VERSION})
  configure_file(${CMAKE_CURRENT_LIST_DIR}/qorpkcs11.pom.in ${CMAKE_BINARY_DIR}/${base}.pom @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/${base}.pom DESTINATION ${QOR_MAVEN_DIR})
  install(FILES ${CMAKE_BINARY_DIR}/lib/qorpkcs11.jar DESTINATION ${QOR_MAVEN_DIR} RENAME ${base}.jar)
  install(FILES ${QOR_SOURCES_JAR} DESTINATION ${QOR_MAVEN_DIR} RENAME ${base}-sources.jar)
  install(FILES ${QOR_JAVADOC_JAR} DESTINATION ${QOR_MAVEN_DIR} RENAME ${base}-javadoc.jar)
endif()

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/KorvanePkcs11WrapperConfig.cmake.in
  ${CMAKE_BINARY_DIR}/KorvanePkcs11WrapperConfig.cmake
  INSTALL_DESTINATION ${QOR_CONFIG_DIR}
  PATH_VARS QOR_JAR_DIR)
# The version file also refuses a consumer whose pointer size differs.
write_basic_package_version_file(${CMAKE_BINARY_DIR}/KorvanePkcs11WrapperConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES
  ${CMAKE_BINARY_DIR}/KorvanePkcs11WrapperConfig.cmake
  ${CMAKE_BINARY_DIR}/KorvanePkcs11WrapperConfigVersion.cmake
  DESTINATION ${QOR_CONFIG_DIR})
