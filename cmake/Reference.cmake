# SPDX-License-Identifier: MIT
#
# What is made from the program's own tables: the manual page tarnwick(1), completion for bash, zsh and fish, and the
# reference of messages. A small program prints them; they are made with every build, and installed.
#
# docs/messages.md is kept in the repository, so that people can read it there. After a change to the catalogue or to
# the causes, make it anew with the target `update-messages`; a test compares.

add_executable(
    tarnwick-reference docs/reference/main.cpp docs/reference/manual.cpp docs/reference/completion.cpp
    docs/reference/messages.cpp docs/reference/message_causes.cpp)
target_link_libraries(tarnwick-reference PRIVATE tarn_core)

# md2man.py, which makes manual pages, wants Python; without it there is no manual page.
find_package(Python3 COMPONENTS Interpreter QUIET)

set(reference_folder "${PROJECT_BINARY_DIR}/reference")
set(reference_outputs)

# reference_output(FILE part...): what the program prints for the part becomes a file.
function(reference_output file)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "PART;DEPENDS")
    add_custom_command(
        OUTPUT "${reference_folder}/${file}"
        COMMAND "${CMAKE_COMMAND}" -E make_directory "${reference_folder}"
        COMMAND tarnwick-reference ${arg_PART} > "${reference_folder}/${file}"
        DEPENDS tarnwick-reference ${arg_DEPENDS}
        COMMENT "Making ${file}"
        VERBATIM)
    set(reference_outputs "${reference_outputs};${reference_folder}/${file}" PARENT_SCOPE)
endfunction()

set(reference_page "${PROJECT_SOURCE_DIR}/docs/tarnwick.1.md")
reference_output(tarnwick.bash PART bash)
reference_output(_tarnwick PART zsh)
reference_output(tarnwick.fish PART fish)
reference_output(messages.md PART messages)
reference_output(tarnwick.1.md PART page "${reference_page}" DEPENDS "${reference_page}")

if(Python3_Interpreter_FOUND)
    set(md2man "${PROJECT_SOURCE_DIR}/docs/md2man.py")
    add_custom_command(
        OUTPUT "${reference_folder}/tarnwick.1"
        COMMAND
            Python3::Interpreter "${md2man}" --section 1 --name tarnwick --source "Tarnwick ${PROJECT_VERSION}"
            "${reference_folder}/tarnwick.1.md" "${reference_folder}/tarnwick.1"
        DEPENDS "${reference_folder}/tarnwick.1.md" "${md2man}"
        COMMENT "Making tarnwick.1"
        VERBATIM)
    list(APPEND reference_outputs "${reference_folder}/tarnwick.1")
    install(FILES "${reference_folder}/tarnwick.1" DESTINATION share/man/man1 COMPONENT docs)
endif()

add_custom_target(reference ALL DEPENDS ${reference_outputs})
add_custom_target(
    update-messages
    COMMAND "${CMAKE_COMMAND}" -E copy "${reference_folder}/messages.md" "${PROJECT_SOURCE_DIR}/docs/messages.md"
    DEPENDS "${reference_folder}/messages.md"
    VERBATIM)

install(FILES "${reference_folder}/tarnwick.bash" DESTINATION share/bash-completion/completions RENAME tarnwick
        COMPONENT docs)
install(FILES "${reference_folder}/_tarnwick" DESTINATION share/zsh/site-functions COMPONENT docs)
install(FILES "${reference_folder}/tarnwick.fish" DESTINATION share/fish/vendor_completions.d COMPONENT docs)
install(FILES "${PROJECT_SOURCE_DIR}/docs/messages.md" DESTINATION docs COMPONENT docs)

if(BUILD_TESTING AND Python3_Interpreter_FOUND)
    add_test(NAME docs.reference
             COMMAND Python3::Interpreter "${PROJECT_SOURCE_DIR}/tests/docs/test_reference.py")
    set_tests_properties(
        docs.reference
        PROPERTIES
            LABELS docs
            TIMEOUT 120
            ENVIRONMENT
            "TARNWICK=$<TARGET_FILE:tarnwick>;TARNWICK_REFERENCE=${reference_folder};TARNWICK_SOURCE=${PROJECT_SOURCE_DIR};PYTHONDONTWRITEBYTECODE=1"
    )
endif()
