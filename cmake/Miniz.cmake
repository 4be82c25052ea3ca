# SPDX-License-Identifier: MIT
#
# tarn_miniz: the zip library miniz as a library to link with. It is the first of these that there is:
#
#   1. an installed package, found by its CMake configuration or by pkg-config;
#   2. sources at hand, compiled here: the folder that FETCHCONTENT_SOURCE_DIR_MINIZ names, or else the cache that
#      scripts/setup fills and that needs no network;
#   3. upstream's release archive, fetched. It is pinned by its version, and by its hash in TARNWICK_MINIZ_SHA256: without
#      one nothing is fetched.

include(FetchContent)

set(TARNWICK_MINIZ_URL
    "https://github.com/richgel999/miniz/releases/download/3.0.2/miniz-3.0.2.zip"
    CACHE STRING "Upstream's release archive of miniz")
set(TARNWICK_MINIZ_SHA256 "" CACHE STRING "The SHA-256 hash of that archive; when empty, it is not fetched")

# The folder in which scripts/setup keeps the sources.
function(tarn_miniz_cache result)
    if(NOT "$ENV{TARNWICK_CACHE}" STREQUAL "")
        set(cache "$ENV{TARNWICK_CACHE}")
    elseif(NOT "$ENV{XDG_CACHE_HOME}" STREQUAL "")
        set(cache "$ENV{XDG_CACHE_HOME}/tarnwick")
    else()
        set(cache "$ENV{HOME}/.cache/tarnwick")
    endif()
    set(${result} "${cache}/miniz-10.0.3" PARENT_SCOPE)
endfunction()

# An installed package as tarn_miniz. Its header may lie in a folder that is named like the package.
function(tarn_miniz_installed package)
    get_target_property(folders ${package} INTERFACE_INCLUDE_DIRECTORIES)
    if(NOT folders)
        set(folders "")
    endif()
    find_path(TARNWICK_MINIZ_HEADER miniz.h HINTS ${folders} PATH_SUFFIXES miniz NO_CACHE)
    if(NOT TARNWICK_MINIZ_HEADER)
        message(FATAL_ERROR "miniz is installed (${package}), but its header miniz.h is not found")
    endif()
    add_library(tarn_miniz INTERFACE)
    target_link_libraries(tarn_miniz INTERFACE ${package})
    target_include_directories(tarn_miniz SYSTEM INTERFACE "${TARNWICK_MINIZ_HEADER}")
    message(STATUS "miniz: installed, ${TARNWICK_MINIZ_HEADER}")
endfunction()

# The two files miniz.c and miniz.h as tarn_miniz. They are not ours to mend: their warnings are off.
function(tarn_miniz_compiled folder)
    add_library(tarn_miniz STATIC "${folder}/miniz.c")
    target_include_directories(tarn_miniz SYSTEM INTERFACE "${folder}")
    target_compile_definitions(tarn_miniz PRIVATE _LARGEFILE64_SOURCE=1) # files of more than 2 GiB on hosts of 32 bits
    target_compile_options(tarn_miniz PRIVATE -w "-fmacro-prefix-map=${folder}/=")
    set_target_properties(tarn_miniz PROPERTIES COMPILE_WARNING_AS_ERROR OFF)
    message(STATUS "miniz: compiled from ${folder}")
endfunction()

# The folder of the sources, at hand or fetched.
function(tarn_miniz_sources result)
    set(from_cache FALSE)
    tarn_miniz_cache(cache)
    if(NOT FETCHCONTENT_SOURCE_DIR_MINIZ AND EXISTS "${cache}/miniz.c" AND EXISTS "${cache}/miniz.h")
        set(FETCHCONTENT_SOURCE_DIR_MINIZ "${cache}")
        set(from_cache TRUE)
    endif()
    if(NOT FETCHCONTENT_SOURCE_DIR_MINIZ AND NOT TARNWICK_MINIZ_SHA256)
        message(
            FATAL_ERROR
                "The zip library miniz is missing: no package of it is installed, and ${cache} does not hold its sources. "
                "One of these helps:\n"
                "  - scripts/setup, which brings the sources on Debian;\n"
                "  - a package of miniz with its header, where the system has one;\n"
                "  - -DFETCHCONTENT_SOURCE_DIR_MINIZ=<folder with miniz.c and miniz.h>;\n"
                "  - -DTARNWICK_MINIZ_SHA256=<hash of ${TARNWICK_MINIZ_URL}>, to have that archive fetched.")
    endif()
    # No project of its own is added: the folder named is not there.
    FetchContent_Declare(
        miniz
        URL "${TARNWICK_MINIZ_URL}"
        URL_HASH "SHA256=${TARNWICK_MINIZ_SHA256}"
        DOWNLOAD_EXTRACT_TIMESTAMP TRUE
        SOURCE_SUBDIR no-project)
    FetchContent_MakeAvailable(miniz)
    if(from_cache)
        unset(FETCHCONTENT_SOURCE_DIR_MINIZ CACHE) # next time is looked again: only what a user named is kept
    endif()
    foreach(file IN ITEMS miniz.c miniz.h)
        if(NOT EXISTS "${miniz_SOURCE_DIR}/${file}")
            message(FATAL_ERROR "The sources of miniz in ${miniz_SOURCE_DIR} lack ${file}")
        endif()
    endforeach()
    set(${result} "${miniz_SOURCE_DIR}" PARENT_SCOPE)
endfunction()

function(tarn_find_miniz)
    # Sources that were named are wanted, whatever is installed.
    if(NOT FETCHCONTENT_SOURCE_DIR_MINIZ)
        find_package(miniz CONFIG QUIET)
        if(TARGET miniz::miniz)
            tarn_miniz_installed(miniz::miniz)
            return()
        endif()
        find_package(PkgConfig QUIET)
        if(PkgConfig_FOUND)
            pkg_check_modules(MINIZ QUIET IMPORTED_TARGET miniz)
        endif()
        if(TARGET PkgConfig::MINIZ)
            tarn_miniz_installed(PkgConfig::MINIZ)
            return()
        endif()
    endif()
    tarn_miniz_sources(folder)
    tarn_miniz_compiled("${folder}")
endfunction()

tarn_find_miniz()
