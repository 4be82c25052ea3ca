# SPDX-License-Identifier: MIT
#
# The format pages of docs/formats as manual pages of section 5. They are made with every build, in docs/man5 of the
# build folder, and installed. Python makes them; without it they are left out.

file(GLOB format_pages CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/docs/formats/*.5.md")
set(format_manuals)

find_package(Python3 COMPONENTS Interpreter QUIET)
if(NOT Python3_Interpreter_FOUND)
    message(STATUS "Python 3 was not found: the manual pages of the formats are left out")
    return()
endif()

set(md2man "${PROJECT_SOURCE_DIR}/docs/md2man.py")
foreach(page IN LISTS format_pages)
    cmake_path(GET page FILENAME name)
    string(REGEX REPLACE "\\.5\\.md$" "" name "${name}")
    set(manual "${PROJECT_BINARY_DIR}/docs/man5/${name}.5")
    add_custom_command(
        OUTPUT "${manual}"
        COMMAND "${CMAKE_COMMAND}" -E make_directory "${PROJECT_BINARY_DIR}/docs/man5"
        COMMAND
            Python3::Interpreter "${md2man}" --section 5 --name "${name}" --source "Tarnwick ${PROJECT_VERSION}"
            --manual "Tarnwick File Formats" "${page}" "${manual}"
        DEPENDS "${page}" "${md2man}"
        COMMENT "Making ${name}.5"
        VERBATIM)
    list(APPEND format_manuals "${manual}")
endforeach()

add_custom_target(docs ALL DEPENDS ${format_manuals})
install(FILES ${format_manuals} DESTINATION share/man/man5 COMPONENT docs)

if(BUILD_TESTING)
    add_test(NAME docs.formats COMMAND Python3::Interpreter "${PROJECT_SOURCE_DIR}/tests/docs/test_formats.py")
    set_tests_properties(
        docs.formats PROPERTIES LABELS docs TIMEOUT 120
                                ENVIRONMENT "TARNWICK=$<TARGET_FILE:tarnwick>;PYTHONDONTWRITEBYTECODE=1")
endif()
