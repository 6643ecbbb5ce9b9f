# What `cmake --install` puts in place, and the Debian package `cpack -G DEB` makes of it:
#   include/kolvari/zarv.h                   the public header
#   lib/libkolvari-pkcs7.so.1.0.0 (+ links)  the plug-in, SONAME libkolvari-pkcs7.so.1
#   lib/libkolvari-pkcs7.a                   the same library, static (needs -pthread and -ldl)
#   bin/kolvari                              the command-line tool
#   lib/cmake/KolvariPkcs7/                  find_package(KolvariPkcs7): KolvariPkcs7::plugin,
#                                            KolvariPkcs7::static, KolvariPkcs7::headers
#   lib/pkgconfig/kolvari-pkcs7.pc           pkg-config --cflags --libs kolvari-pkcs7
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(KOLVARI_PACKAGE_NAME KolvariPkcs7)
set(KOLVARI_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/${KOLVARI_PACKAGE_NAME})
set(KOLVARI_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The header alone, for hosts that load the plug-in with dlopen and link nothing of ours.
add_library(kolvari_headers INTERFACE)
target_include_directories(kolvari_headers INTERFACE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
set_target_properties(kolvari_headers PROPERTIES EXPORT_NAME headers)
target_link_libraries(kolvari-pkcs7 INTERFACE kolvari_headers)
target_link_libraries(kolvari_core INTERFACE kolvari_headers)
set_target_properties(kolvari-pkcs7 PROPERTIES EXPORT_NAME plugin)
set_target_properties(kolvari_core PROPERTIES EXPORT_NAME static)

install(FILES ${PROJECT_SOURCE_DIR}/include/kolvari/zarv.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kolvari)
# The core's own archive is never installed (its rule is outside every install): the exported static target
# names the path where the sealed archive below is installed.
install(TARGETS kolvari-pkcs7 kolvari_core kolvari_headers EXPORT KolvariPkcs7Targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT kolvari_unsealed EXCLUDE_FROM_ALL)
install(EXPORT KolvariPkcs7Targets NAMESPACE ${KOLVARI_PACKAGE_NAME}:: DESTINATION ${KOLVARI_CMAKE_DIR})
# The static library as installed: the core's objects linked into one relocatable object whose hidden symbols
# (everything but the ZARV_ interface) are made local, so that a host linking it statically meets none of the
# library's internal names (currentTime, openFile, ...) and none can clash with a name of its own. It is
# installed under the name the exported target names. The build tree keeps the plain archive, which the
# tests, the tools and the plug-in link. The section
# groups of inline and template code become plain sections in the one object: a host that instantiates the
# same standard templates keeps its own copies, and ours stay whole instead of being dropped from under the
# references that the merged object makes to them.
set(KOLVARI_SEALED_DIR ${PROJECT_BINARY_DIR}/sealed)
set(KOLVARI_SEALED_ARCHIVE ${KOLVARI_SEALED_DIR}/$<TARGET_FILE_NAME:kolvari_core>)
add_custom_command(OUTPUT ${KOLVARI_SEALED_DIR}/kolvari-pkcs7.stamp
  COMMAND ${CMAKE_COMMAND} -E make_directory ${KOLVARI_SEALED_DIR}
  COMMAND ${CMAKE_LINKER} -r --force-group-allocation -o ${KOLVARI_SEALED_DIR}/kolvari-pkcs7.o
          --whole-archive $<TARGET_FILE:kolvari_core> --no-whole-archive
  COMMAND ${CMAKE_OBJCOPY} --localize-hidden ${KOLVARI_SEALED_DIR}/kolvari-pkcs7.o
  COMMAND ${CMAKE_COMMAND} -E rm -f ${KOLVARI_SEALED_ARCHIVE}
  COMMAND ${CMAKE_AR} rcs ${KOLVARI_SEALED_ARCHIVE} ${KOLVARI_SEALED_DIR}/kolvari-pkcs7.o
  COMMAND ${CMAKE_COMMAND} -E touch ${KOLVARI_SEALED_DIR}/kolvari-pkcs7.stamp
  DEPENDS kolvari_core
  COMMENT "Making the installed static library: internal names local")
add_custom_target(kolvari_sealed_archive ALL DEPENDS ${KOLVARI_SEALED_DIR}/kolvari-pkcs7.stamp)
install(FILES ${KOLVARI_SEALED_ARCHIVE} DESTINATION ${CMAKE_INSTALL_LIBDIR})

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/KolvariPkcs7Config.cmake.in
  ${PROJECT_BINARY_DIR}/KolvariPkcs7Config.cmake INSTALL_DESTINATION ${KOLVARI_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/KolvariPkcs7ConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/KolvariPkcs7Config.cmake ${PROJECT_BINARY_DIR}/KolvariPkcs7ConfigVersion.cmake
  DESTINATION ${KOLVARI_CMAKE_DIR})

# The pkg-config file finds its prefix from its own place, so a tree installed under any prefix (or unpacked
# from the Debian package) needs no editing.
file(RELATIVE_PATH KOLVARI_PC_TO_PREFIX /${KOLVARI_PKGCONFIG_DIR} /)
string(REGEX REPLACE "/$" "" KOLVARI_PC_TO_PREFIX "${KOLVARI_PC_TO_PREFIX}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/kolvari-pkcs7.pc.in ${PROJECT_BINARY_DIR}/kolvari-pkcs7.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kolvari-pkcs7.pc DESTINATION ${KOLVARI_PKGCONFIG_DIR})

if(KOLVARI_TOOLS)
  # The tool loads the plug-in by its SONAME when it is not beside it; the run path finds the installed one.
  set_target_properties(kolvari PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  install(TARGETS kolvari RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/kolvari-pkcs7)

# One Debian package holds everything above; the tool's dependencies (libssl3 for libcrypto, libstdc++6,
# libc6) are found by dpkg-shlibdeps.
set(CPACK_PACKAGE_NAME kolvari-pkcs7)
set(CPACK_PACKAGE_VENDOR "Kolvari")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "PKCS #7 / CMS SignedData encoder plug-in for external signing")
set(CPACK_PACKAGE_DESCRIPTION "A shared library a signing application loads to build PKCS #7 / CMS \
SignedData in DER while it keeps keys, hashing and signing to itself; with its header, static library, CMake \
package, pkg-config file and the kolvari command-line tool.")
set(CPACK_PACKAGE_CONTACT "Kolvari maintainers <maintainers@kolvari.invalid>")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${CPACK_PACKAGE_CONTACT}")
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_GENERATOR DEB)
include(CPack)

# The package check installs into a staging prefix, builds examples/ against it, verifies the example's
# signature and builds the .deb. A sanitized build would need the sanitizer flags in the example too, so the
# check runs in the plain build only.
if(KOLVARI_TESTS AND KOLVARI_TOOLS AND NOT KOLVARI_SANITIZE)
  add_test(NAME package_check COMMAND bash ${PROJECT_SOURCE_DIR}/tests/package/check.sh
    ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR})
endif()
