# SPDX-License-Identifier: MIT
#
# The three kinds of folder this project has. Each takes every source of the calling folder, and notices at the next build
# when one was added or taken away.

# tarn_library(NAME [dependency ...]): the folder is a static library. Its main.cpp, if any, belongs to a program.
function(tarn_library name)
    file(GLOB sources CONFIGURE_DEPENDS "*.cpp")
    list(FILTER sources EXCLUDE REGEX "/main\\.cpp$")
    if(sources)
        add_library(${name} STATIC ${sources})
        target_link_libraries(${name} PUBLIC ${ARGN})
    else()
        add_library(${name} INTERFACE) # a folder of headers alone
        target_link_libraries(${name} INTERFACE ${ARGN})
    endif()
endfunction()

# tarn_unit_tests(NAME LIBRARY): the folder's *_test.cpp make one GoogleTest program, linked with the library under test.
# Every TEST becomes the ctest test unit.<folder>.<suite>.<name>.
function(tarn_unit_tests name library)
    file(GLOB sources CONFIGURE_DEPENDS "*_test.cpp")
    if(NOT sources)
        message(STATUS "${name}: no tests in ${CMAKE_CURRENT_SOURCE_DIR}")
        return()
    endif()
    add_executable(${name} ${sources})
    target_link_libraries(${name} PRIVATE ${library} GTest::gtest_main)
    # Most of a build's time goes into the tests. They are compiled fast; what they test is compiled as in any build.
    target_compile_options(${name} PRIVATE -O0)
    target_precompile_headers(${name} PRIVATE <gtest/gtest.h>)
    cmake_path(GET CMAKE_CURRENT_SOURCE_DIR FILENAME folder)
    # The tests are listed when ctest runs: a test program that crashes at its start is then a failing test and not a
    # failing build. The time allowed for it suits the slowest build, the one with sanitizers.
    gtest_discover_tests(
        ${name}
        DISCOVERY_MODE PRE_TEST
        DISCOVERY_TIMEOUT 120
        TEST_PREFIX "unit.${folder}."
        PROPERTIES TIMEOUT 120 LABELS unit)
endfunction()

# tarn_python_tests(KIND SECONDS [VARIABLE=value ...]): every test_<name>.py of the folder is the ctest test <KIND>.<name> with
# this label, and may take so long. It runs the program named by TARNWICK, and leaves with 77 and a reason when the host has
# not what it needs.
function(tarn_python_tests kind seconds)
    file(GLOB scripts CONFIGURE_DEPENDS "test_*.py")
    foreach(script IN LISTS scripts)
        cmake_path(GET script STEM name)
        string(REGEX REPLACE "^test_" "${kind}." test "${name}")
        add_test(NAME "${test}" COMMAND Python3::Interpreter "${script}")
        set_tests_properties(
            "${test}"
            PROPERTIES
                LABELS "${kind}"
                TIMEOUT "${seconds}"
                SKIP_RETURN_CODE 77
                ENVIRONMENT
                "TARNWICK=$<TARGET_FILE:tarnwick>;TARNWICK_SAMPLES=${PROJECT_SOURCE_DIR}/samples;PYTHONDONTWRITEBYTECODE=1;${ARGN}"
        )
    endforeach()
endfunction()
