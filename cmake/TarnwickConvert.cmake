# SPDX-License-Identifier: MIT
#
# tarnwick_convert(
#     TARGET <target>                       of the calling folder; the conversion runs after each of its links
#     MAP <file>                            the linker's map file
#     [HEX <file>...]                       hex images
#     PROCESSOR <name>[,<word>...]          as behind -p
#     CODE_SPACES <number>...               the map file's memory spaces
#     DATA_SPACES <number>...
#     [EEPROM_SPACES <number>...]
#     [DWARF_ADDRESS_SIZE <bytes>]          an ELF output needs this, or
#     [NO_DWARF]                            to be without debugging sections
#     OUTPUTS <format> <file> [<format> <file>]...
#                                           formats that are written: elf, vcoff, orbell, ihex, s19
#     [WORKING_DIRECTORY <folder>]          the folder that relative names count from, those of the objects in the map
#                                           file among them; CMAKE_CURRENT_BINARY_DIR otherwise
#     [OPTIONS <option>...])                further options of the program
#
# The outputs are byproducts of the target: other rules may depend on them. A conversion that fails makes the build
# fail, and the build tool runs link and conversion again the next time.

include_guard(GLOBAL)

function(tarnwick_convert)
    set(flags NO_DWARF)
    set(single TARGET MAP PROCESSOR DWARF_ADDRESS_SIZE WORKING_DIRECTORY)
    set(multiple HEX CODE_SPACES DATA_SPACES EEPROM_SPACES OUTPUTS OPTIONS)
    cmake_parse_arguments(PARSE_ARGV 0 arg "${flags}" "${single}" "${multiple}")

    if(DEFINED arg_UNPARSED_ARGUMENTS)
        message(FATAL_ERROR "tarnwick_convert: unknown arguments: ${arg_UNPARSED_ARGUMENTS}")
    endif()
    foreach(needed IN ITEMS TARGET MAP PROCESSOR CODE_SPACES DATA_SPACES OUTPUTS)
        if("${arg_${needed}}" STREQUAL "")
            message(FATAL_ERROR "tarnwick_convert: ${needed} is missing")
        endif()
    endforeach()
    if(NOT TARGET "${arg_TARGET}")
        message(FATAL_ERROR "tarnwick_convert: there is no target ${arg_TARGET}")
    endif()
    if("${arg_WORKING_DIRECTORY}" STREQUAL "")
        set(arg_WORKING_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}")
    endif()

    set(command "-p${arg_PROCESSOR}")
    foreach(kind IN ITEMS CODE DATA EEPROM)
        if(DEFINED arg_${kind}_SPACES)
            string(TOLOWER "${kind}" option)
            list(JOIN arg_${kind}_SPACES "," spaces)
            list(APPEND command "--${option}-spaces=${spaces}")
        endif()
    endforeach()
    if(arg_NO_DWARF)
        list(APPEND command --disable-dwarf)
    elseif(DEFINED arg_DWARF_ADDRESS_SIZE)
        list(APPEND command "--dwarf-addr-size=${arg_DWARF_ADDRESS_SIZE}")
    elseif("elf" IN_LIST arg_OUTPUTS)
        message(FATAL_ERROR "tarnwick_convert: an ELF output needs DWARF_ADDRESS_SIZE, or NO_DWARF")
    endif()
    list(APPEND command ${arg_OPTIONS} ${arg_HEX} "${arg_MAP}")

    set(written elf vcoff orbell ihex s19)
    set(files)
    while(arg_OUTPUTS)
        list(POP_FRONT arg_OUTPUTS format file)
        if(NOT format IN_LIST written)
            list(JOIN written ", " known)
            message(FATAL_ERROR "tarnwick_convert: \"${format}\" is none of the formats ${known}")
        endif()
        if("${file}" STREQUAL "")
            message(FATAL_ERROR "tarnwick_convert: OUTPUTS names no file for ${format}")
        endif()
        list(APPEND command "-o${format}" "${file}")
        list(APPEND files "${file}")
    endwhile()
    list(TRANSFORM files PREPEND "${arg_WORKING_DIRECTORY}/" REGEX "^[^/$]" OUTPUT_VARIABLE byproducts)

    add_custom_command(
        TARGET "${arg_TARGET}"
        POST_BUILD
        COMMAND tarnwick::tarnwick ${command}
        BYPRODUCTS ${byproducts}
        WORKING_DIRECTORY "${arg_WORKING_DIRECTORY}"
        COMMENT "Converting ${arg_MAP}"
        VERBATIM)
endfunction()
