# What `cmake --install` puts in place, by install component, and the Debian package `cpack -G DEB` makes
# of each component:
#   runtime (libkolvari-pkcs7-1)
#     lib/libkolvari-pkcs7.so.1.0.0, .so.1   the plug-in, SONAME libkolvari-pkcs7.so.1
#   dev (libkolvari-pkcs7-dev)
#     include/kolvari/zarv.h                 the public header
#     lib/libkolvari-pkcs7.so                the link to the plug-in
#     lib/libkolvari-pkcs7.a                 the same library, static (needs -pthread and -ldl)
#     lib/cmake/KolvariPkcs7/                find_package(KolvariPkcs7): KolvariPkcs7::plugin,
#                                            KolvariPkcs7::static, KolvariPkcs7::headers
#     lib/pkgconfig/kolvari-pkcs7.pc         pkg-config --cflags --libs kolvari-pkcs7
#   tool (kolvari)
#     bin/kolvari, share/man/man1/kolvari.1.gz   the command-line tool and its manual page
# Each package has share/doc/PACKAGE/ with the copyright file and the changelog Debian policy asks for.
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

set(KOLVARI_DEB_RUNTIME libkolvari-pkcs7-1)
set(KOLVARI_DEB_DEV libkolvari-pkcs7-dev)
set(KOLVARI_DEB_TOOL kolvari)

install(FILES ${PROJECT_SOURCE_DIR}/include/kolvari/zarv.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kolvari
  COMPONENT dev)
# The core's own archive is never installed (its rule is outside every install): the exported static target
# names the path where the sealed archive below is installed.
install(TARGETS kolvari-pkcs7 kolvari_core kolvari_headers EXPORT KolvariPkcs7Targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT kolvari_unsealed EXCLUDE_FROM_ALL)
install(EXPORT KolvariPkcs7Targets NAMESPACE ${KOLVARI_PACKAGE_NAME}:: DESTINATION ${KOLVARI_CMAKE_DIR}
  COMPONENT dev)
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
install(FILES ${KOLVARI_SEALED_ARCHIVE} DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/KolvariPkcs7Config.cmake.in
  ${PROJECT_BINARY_DIR}/KolvariPkcs7Config.cmake INSTALL_DESTINATION ${KOLVARI_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/KolvariPkcs7ConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/KolvariPkcs7Config.cmake ${PROJECT_BINARY_DIR}/KolvariPkcs7ConfigVersion.cmake
  DESTINATION ${KOLVARI_CMAKE_DIR} COMPONENT dev)

# The pkg-config file finds its prefix from its own place, so a tree installed under any prefix (or unpacked
# from the Debian package) needs no editing.
file(RELATIVE_PATH KOLVARI_PC_TO_PREFIX /${KOLVARI_PKGCONFIG_DIR} /)
string(REGEX REPLACE "/$" "" KOLVARI_PC_TO_PREFIX "${KOLVARI_PC_TO_PREFIX}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/kolvari-pkcs7.pc.in ${PROJECT_BINARY_DIR}/kolvari-pkcs7.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kolvari-pkcs7.pc DESTINATION ${KOLVARI_PKGCONFIG_DIR} COMPONENT dev)

# Debian wants manual pages and changelogs compressed with gzip -9, without a time stamp (-n), so that
# the packages are the same bytes on every build.
set(KOLVARI_DEB_DIR ${PROJECT_BINARY_DIR}/deb)
function(kolvari_gzip source output)
  add_custom_command(OUTPUT ${output}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${KOLVARI_DEB_DIR}
    COMMAND gzip -9nc ${source} > ${output}
    DEPENDS ${source} VERBATIM)
endfunction()

if(KOLVARI_TOOLS)
  # The tool loads the plug-in beside it, else by its SONAME: the run path finds the installed one under
  # any prefix (under /usr the loader's own search finds it as well).
  set_target_properties(kolvari PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  install(TARGETS kolvari RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
  kolvari_gzip(${PROJECT_SOURCE_DIR}/docs/kolvari.1 ${KOLVARI_DEB_DIR}/kolvari.1.gz)
  add_custom_target(kolvari_manual ALL DEPENDS ${KOLVARI_DEB_DIR}/kolvari.1.gz)
  install(FILES ${KOLVARI_DEB_DIR}/kolvari.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tool)
endif()
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${KOLVARI_DEB_DEV}
  COMPONENT dev)

# share/doc/PACKAGE/copyright and changelog.gz of each package (a native package's changelog name).
set(KOLVARI_DEB_COMPONENTS runtime dev)
if(KOLVARI_TOOLS)
  list(APPEND KOLVARI_DEB_COMPONENTS tool)
endif()
set(KOLVARI_DEB_CHANGELOGS)
foreach(component ${KOLVARI_DEB_COMPONENTS})
  string(TOUPPER ${component} upper)
  set(KOLVARI_DEB_PACKAGE ${KOLVARI_DEB_${upper}})
  configure_file(${PROJECT_SOURCE_DIR}/docs/debian/changelog.in ${KOLVARI_DEB_DIR}/${KOLVARI_DEB_PACKAGE}.changelog
    @ONLY)
  set(changelog ${KOLVARI_DEB_DIR}/${KOLVARI_DEB_PACKAGE}.changelog.gz)
  kolvari_gzip(${KOLVARI_DEB_DIR}/${KOLVARI_DEB_PACKAGE}.changelog ${changelog})
  list(APPEND KOLVARI_DEB_CHANGELOGS ${changelog})
  set(docdir ${CMAKE_INSTALL_DATADIR}/doc/${KOLVARI_DEB_PACKAGE})
  install(FILES ${PROJECT_SOURCE_DIR}/docs/debian/copyright DESTINATION ${docdir} COMPONENT ${component})
  install(FILES ${changelog} DESTINATION ${docdir} RENAME changelog.gz COMPONENT ${component})
endforeach()
add_custom_target(kolvari_changelogs ALL DEPENDS ${KOLVARI_DEB_CHANGELOGS})

# Three Debian packages, one per component. The runtime package holds the plug-in alone, so a host that only
# loads it needs nothing but libc and libstdc++; its shlibs file and ldconfig trigger come from CPack. The
# tool's dependencies (libssl3, libcurl, libqpdf, ...) are found by dpkg-shlibdeps; the plug-in it loads
# with dlopen is named by hand.
# cpack packs the tree as built (build it first) rather than building every test, fuzz target and benchmark
# of the tree before it installs the three components.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)
set(CPACK_PACKAGE_NAME kolvari-pkcs7)
set(CPACK_PACKAGE_VENDOR "Kolvari")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Kolvari maintainers <maintainers@kolvari.invalid>")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${CPACK_PACKAGE_CONTACT}")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL ${KOLVARI_DEB_COMPONENTS})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${KOLVARI_DEB_RUNTIME})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# dpkg runs ldconfig once after the packages of a run are installed, through the ldconfig trigger.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/docs/debian/triggers)
# Extended descriptions in lines under 80 characters, as lintian wants.
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "PKCS #7 / CMS SignedData encoder plug-in for external signing
A shared library a signing application loads to build PKCS #7 / CMS
SignedData in DER while it keeps keys, hashing and signing to itself.")
set(CPACK_DEBIAN_DEV_PACKAGE_NAME ${KOLVARI_DEB_DEV})
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${KOLVARI_DEB_RUNTIME} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEV_DESCRIPTION "PKCS #7 / CMS SignedData encoder: development files
The header of the Kolvari PKCS #7 encoder interface, the link to the
plug-in, the static library (its internal names local), the CMake
package and the pkg-config file.")
set(CPACK_DEBIAN_TOOL_PACKAGE_NAME ${KOLVARI_DEB_TOOL})
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "${KOLVARI_DEB_RUNTIME} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_TOOL_DESCRIPTION "sign and inspect PKCS #7 / CMS signatures with the Kolvari plug-in
The kolvari command-line tool: signs files and PDFs through the plug-in
with key files, PKCS #12 files or PKCS #11 tokens, adds time stamps and
revocation data, verifies signatures and decodes DER.")
set(CPACK_GENERATOR DEB)
include(CPack)

# The package check installs into a staging prefix, builds examples/ against it, verifies the example's
# signature and builds the .deb. A sanitized build would need the sanitizer flags in the example too, so the
# check runs in the plain build only.
if(KOLVARI_TESTS AND KOLVARI_TOOLS AND NOT KOLVARI_SANITIZE)
  add_test(NAME package_check COMMAND bash ${PROJECT_SOURCE_DIR}/tests/package/check.sh
    ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR})
endif()
