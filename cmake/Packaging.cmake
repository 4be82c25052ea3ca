# SPDX-License-Identifier: MIT
#
# Packages, and what other builds need to use an installed program.
#
# `cmake --install` and the archive have the tree of Install.cmake, which can be put anywhere:
#
#   <prefix>/bin/tarnwick, <prefix>/kor/dat/        the program and its catalogues
#   <prefix>/share/man, .../bash-completion, ...    where a host looks when <prefix> is one of its own
#   <prefix>/share/cmake/tarnwick/                  find_package(tarnwick)
#   <prefix>/docs/                                  texts, and the sample and the example that they speak of
#
# The Debian package puts the version directory to /usr/lib/tarnwick, so that no /usr/kor is needed; a symbolic link
# stands in /usr/bin. What the host looks for goes to /usr/share (PackageTree.cmake). find_package(tarnwick) takes the
# program from `bin` three folders above itself in either tree.
#
# `cpack --config build/<preset>/CPackConfig.cmake` makes both. With SOURCE_DATE_EPOCH set, equal trees make equal
# packages.

include(CMakePackageConfigHelpers)

set(TARN_INSTALL_CMAKE share/cmake/tarnwick)
set(package_folder "${PROJECT_BINARY_DIR}/package")

configure_package_config_file(
    "${PROJECT_SOURCE_DIR}/cmake/tarnwick-config.cmake.in" "${package_folder}/tarnwick-config.cmake"
    INSTALL_DESTINATION "${TARN_INSTALL_CMAKE}"
    NO_CHECK_REQUIRED_COMPONENTS_MACRO)
# The program runs on the host that builds, whatever machine the using project builds for.
write_basic_package_version_file("${package_folder}/tarnwick-config-version.cmake" COMPATIBILITY SameMajorVersion
                                 ARCH_INDEPENDENT)
install(
    FILES "${package_folder}/tarnwick-config.cmake" "${package_folder}/tarnwick-config-version.cmake"
          "${PROJECT_SOURCE_DIR}/cmake/TarnwickConvert.cmake"
    DESTINATION "${TARN_INSTALL_CMAKE}"
    COMPONENT program)

# The cookbook with the files that its commands use, which lie to each other as in the repository.
install(FILES "${PROJECT_SOURCE_DIR}/docs/cookbook.md" DESTINATION "${TARN_INSTALL_DOCS}" COMPONENT docs)
install(DIRECTORY "${PROJECT_SOURCE_DIR}/examples" "${PROJECT_SOURCE_DIR}/samples" DESTINATION "${TARN_INSTALL_DOCS}"
        COMPONENT docs)
install(PROGRAMS "${PROJECT_SOURCE_DIR}/contrib/compare-dumps" DESTINATION "${TARN_INSTALL_DOCS}/contrib"
        COMPONENT docs)

string(TOLOWER "${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR}" package_host)
set(CPACK_GENERATOR TGZ DEB)
set(CPACK_PACKAGE_NAME tarnwick)
set(CPACK_PACKAGE_VENDOR "The Tarnwick authors")
set(CPACK_PACKAGE_CONTACT "The Tarnwick authors <authors@tarnwick.invalid>")
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGE_FILE_NAME "tarnwick-${PROJECT_VERSION}-${package_host}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "symbol file reformatter for small microcontrollers")
set(CPACK_PACKAGE_DESCRIPTION
    "Tarnwick runs after linking. It takes a linker's map file, a compiler's
symbol databases and a hex image, and writes what debuggers, simulators and
programmers read: ELF with DWARF, COFF, a legacy symbol file, Intel HEX and
S-records. It prints ELF, COFF and UBROF files, too.")
set(CPACK_RESOURCE_FILE_LICENSE "${PROJECT_SOURCE_DIR}/LICENSE")
set(CPACK_MONOLITHIC_INSTALL TRUE)
set(CPACK_STRIP_FILES TRUE)
set(CPACK_VERBATIM_VARIABLES TRUE)
set(CPACK_PRE_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/PackageTree.cmake")

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
# What the program needs is read from the program; where that can't be done, the package names the libraries of a
# usual build.
find_program(TARN_DPKG_SHLIBDEPS dpkg-shlibdeps)
find_program(TARN_FILE file)
mark_as_advanced(TARN_DPKG_SHLIBDEPS TARN_FILE)
if(TARN_DPKG_SHLIBDEPS AND TARN_FILE)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS TRUE)
else()
    set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6, libgcc-s1, libstdc++6")
endif()

# Each generator reads this before it installs. The archive has no prefix.
set(CPACK_PROJECT_CONFIG_FILE "${package_folder}/generator.cmake")
file(WRITE "${CPACK_PROJECT_CONFIG_FILE}"
     [[
if(CPACK_GENERATOR STREQUAL "DEB")
    set(CPACK_PACKAGING_INSTALL_PREFIX "/usr/lib/tarnwick")
endif()
]])

include(CPack)
