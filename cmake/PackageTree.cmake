# SPDX-License-Identifier: MIT
#
# Run by CPack on the tree of a package before it is packed.

cmake_minimum_required(VERSION 3.25)

# What lies below /usr/lib/tarnwick, and is looked for elsewhere on a Debian host, goes there.
function(debian_layout usr)
    set(version_directory "${usr}/lib/tarnwick")
    file(MAKE_DIRECTORY "${usr}/bin" "${usr}/share/doc")
    file(CREATE_LINK ../lib/tarnwick/bin/tarnwick "${usr}/bin/tarnwick" SYMBOLIC)

    file(GLOB shared RELATIVE "${version_directory}/share" "${version_directory}/share/*")
    foreach(folder IN LISTS shared)
        file(RENAME "${version_directory}/share/${folder}" "${usr}/share/${folder}")
    endforeach()
    file(REMOVE_RECURSE "${version_directory}/share")
    # The zsh of Debian does not look into the folder that is usual elsewhere.
    file(RENAME "${usr}/share/zsh/site-functions" "${usr}/share/zsh/vendor-completions")

    # The version directory keeps its `docs`: the manual page speaks of it.
    file(RENAME "${version_directory}/docs" "${usr}/share/doc/tarnwick")
    file(RENAME "${usr}/share/doc/tarnwick/LICENSE" "${usr}/share/doc/tarnwick/copyright")
    file(CREATE_LINK ../../share/doc/tarnwick "${version_directory}/docs" SYMBOLIC)

    # Manual pages are compressed there. Neither name nor time goes into the result.
    find_program(gzip gzip)
    file(GLOB_RECURSE manuals "${usr}/share/man/*")
    if(gzip AND manuals)
        execute_process(COMMAND "${gzip}" -9n ${manuals} COMMAND_ERROR_IS_FATAL ANY)
    endif()
endfunction()

# Folders can be read by everyone, whatever the umask of the one who packs.
function(open_folders root)
    file(GLOB_RECURSE paths LIST_DIRECTORIES TRUE "${root}/*")
    foreach(path IN LISTS paths)
        if(IS_DIRECTORY "${path}" AND NOT IS_SYMLINK "${path}")
            file(CHMOD "${path}" PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ
                                             WORLD_EXECUTE)
        endif()
    endforeach()
endfunction()

if(CPACK_GENERATOR STREQUAL "DEB")
    debian_layout("${CPACK_TEMPORARY_DIRECTORY}/usr")
endif()
open_folders("${CPACK_TEMPORARY_DIRECTORY}")
