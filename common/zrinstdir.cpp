// SPDX-License-Identifier: MIT
// The directories of the installed toolchain. The program stands in `bin` of the version directory, or in `bin` of a
// family directory below it; the family directory is what proves a version directory.
#include "common/zrinstdir.h"

#include <cstdlib>
#include <iterator>
#include <string_view>

#include "common/osdep.h"
#include "common/stringcache.h"
#include "common/trace.h"

namespace {

constexpr const char *FAMILY_DIRECTORY = "kor";
constexpr const char *PACKAGE_DIRECTORY = "kor-as";

// Below the version directory; null where there is none.
constexpr const char *VERSION_SUBDIRECTORIES[] = {
    nullptr, // the install directory
    nullptr, // the version directory itself
    "bin",
    "docs",
    "include",
    "etc",
    FAMILY_DIRECTORY,
    nullptr, // not used
    "kelasm",
    PACKAGE_DIRECTORY,
};
static_assert(std::size(VERSION_SUBDIRECTORIES) == ZRINSTDIR_LAST);

// Below the family directory, by the numbers of `reg_instdir`; null where there is none.
constexpr const char *FAMILY_SUBDIRECTORIES[] = {
    nullptr, // the family directory itself
    "bin",   "lib", "help", "include", "dat", "sources", "resources", "docs",
};
static_assert(REG_INSTDIR_DAT < std::size(FAMILY_SUBDIRECTORIES));

const char *zrinstall_ver = nullptr; // version directory of the toolchain
const char *zrinstall_dir = nullptr; // its parent

// Null when there is no directory; so the root, whose text is empty once its separator is cut, has nothing below it.
const char *join(const char *directory, const char *name)
{
    char *path = path_join(directory, name);
    const char *cached = str_cache(static_cast<const char *>(path));
    std::free(path);
    return cached;
}

// The directory the program runs from, without trailing points and separators; null when there is none.
const char *program_directory()
{
    char *program = program_path();
    const char *directory = str_dirname(program);
    std::free(program);
    if (directory == nullptr) {
        TRACEF(TRACE_ON, "ERROR - couldn't get a path based on progname");
        return nullptr;
    }
    const std::string_view whole = directory;
    directory = str_cache(whole.substr(0, whole.find_last_not_of(".\\/") + 1));
    TRACEF(TRACE_ON, "Application appears to be running from directory: \"%s\"", directory);
    return directory;
}

bool is_bin_directory(const char *path)
{
    const char *name = path_tail(path);
    if (name[0] == '\0') {
        TRACEF(TRACE_ON, "ERROR - couldn't get a basename from the path: \"%s\"", path);
        return false;
    }
    if (str_compare_nocase(name, "bin") != 0) {
        TRACEF(TRACE_ON, "ERROR - the application is not running from a 'bin' directory");
        return false;
    }
    return true;
}

bool is_family_directory(const char *path)
{
    const char *name = str_strip_ext(path_tail(path));
    return str_compare_nocase(name, FAMILY_DIRECTORY) == 0 || str_compare_nocase(name, PACKAGE_DIRECTORY) == 0;
}

// The directory that holds the `bin` directory; where that is a family directory, the one above.
const char *directory_above_bin(const char *bin)
{
    const char *above = str_dirname(bin);
    if (above != nullptr && is_family_directory(above)) {
        above = str_dirname(above);
    }
    if (above == nullptr) {
        TRACEF(TRACE_ON, "ERROR - path not deep enough?");
    }
    return above;
}

} // namespace

bool set_zrinstall_paths()
{
    if (zrinstall_ver != nullptr && zrinstall_dir != nullptr) {
        return true;
    }
    const char *bin = program_directory();
    if (bin == nullptr || !is_bin_directory(bin)) {
        return false;
    }
    const char *version = directory_above_bin(bin);
    if (version == nullptr) {
        return false;
    }
    const char *family = join(version, FAMILY_DIRECTORY);
    if (!is_directory(family)) {
        TRACEF(TRACE_ON, "The 'kor' directory could not be found: \"%s\"", family != nullptr ? family : "");
        return false;
    }
    zrinstall_ver = version;
    zrinstall_dir = str_dirname(version);
    if (zrinstall_dir == nullptr) {
        TRACEF(TRACE_ON, "ERROR - path not deep enough?");
        zrinstall_ver = nullptr;
        return false;
    }
    return true;
}

const char *zrinstdir(std::uint32_t index)
{
    // The first half always holds: the index is unsigned, and its first value is 0.
    DB_ASSERT(index < ZRINSTDIR_LAST, "(path >= ZRINSTDIR_FIRST) && (path < ZRINSTDIR_LAST)");
    if (index >= ZRINSTDIR_LAST || !set_zrinstall_paths()) {
        return nullptr;
    }
    switch (index) {
    case ZRINSTDIR_INSTALL:
        return zrinstall_dir;
    case ZRINSTDIR_VERSION:
        return zrinstall_ver;
    default: {
        const char *name = VERSION_SUBDIRECTORIES[index];
        return name != nullptr ? join(zrinstall_ver, name) : nullptr;
    }
    }
}

const char *reg_instdir(std::uint32_t number)
{
    const char *base = zrinstdir(ZRINSTDIR_FAMILY);
    if (base == nullptr || !is_directory(base)) {
        base = set_zrinstall_paths() ? zrinstall_ver : nullptr;
    }
    if (base == nullptr) {
        TRACEF(TRACE_ON, "Could not locate installation directory");
        return nullptr;
    }
    return number == 0 ? base : reg_create_path(base, number);
}

const char *reg_create_path(const char *base, std::uint32_t number)
{
    const char *name = number < std::size(FAMILY_SUBDIRECTORIES) ? FAMILY_SUBDIRECTORIES[number] : nullptr;
    return name != nullptr ? join(base, name) : nullptr;
}
