// SPDX-License-Identifier: MIT
// The package is opened and finished for each file that is added: whatever ends the run, what was added so far is whole.
#include "compiler/common/problem_package.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>

#include <miniz.h>
#include <sys/stat.h>

#include "common/osdep.h"
#include "common/stringcache.h"
#include "compiler/common/zrdebug_warning.h"

namespace {

constexpr const char *DEFAULT_PACKAGE = "zrt_package.zip";
constexpr const char *ROOT_FOLDER = "SYSTEM_ROOT"; // of the package, for what has an absolute path
constexpr std::size_t DRIVE_LENGTH = 3;            // "C:\"
constexpr mz_uint COMPRESSION_LEVEL = 6;
constexpr mz_uint ADD_FLAGS = COMPRESSION_LEVEL | MZ_ZIP_FLAG_CASE_SENSITIVE;

// A package tells local times from 1980 to 2107. A day less at both ends holds in every time zone.
constexpr long long FIRST_TIME = 315619200; // 1980-01-02 00:00:00 UTC
constexpr long long LAST_TIME = 4354732799; // 2107-12-30 23:59:59 UTC

const char *gZipPath = nullptr; // cached; null for no package

struct package_entry {
    const char *file;
    const char *name; // in the package
    const char *comment;
    mz_uint16 comment_size;
};

// The name under which the host knows a file; cached.
const char *host_file(const char *path)
{
    char *name = file_host_name(path);
    const char *cached = str_cache(name);
    std::free(name);
    return cached;
}

// Parts of a relative path stay as they are, ".." among them.
const char *name_in_package(const char *path)
{
    const char *name = path;
    if (path_is_absolute(path)) {
        const std::size_t root_length = path[0] == '/' ? 1 : std::min(std::strlen(path), DRIVE_LENGTH);
        name = str_path_join(ROOT_FOLDER, path + root_length);
    }
    return str_translate(name, "\\", "/");
}

// False when the archive is not open.
bool open_for_append(mz_zip_archive *archive, const char *package, const char *path)
{
    // To open a pipe would be to wait for its writer.
    if (!is_regular_file(package) || !mz_zip_reader_init_file(archive, package, 0)) {
        zrdebug_warn("Unable to open package zip file (%s) for reading to append \"%s\"", gZipPath, path);
        return false;
    }
    if (!mz_zip_writer_init_from_reader(archive, package)) {
        zrdebug_warn("Unable to covert package zip file (%s) reader to a writer to append \"%s\"", gZipPath, path);
        mz_zip_end(archive); // it may be a reader still
        return false;
    }
    return true;
}

bool open_package(mz_zip_archive *archive, const char *path)
{
    const char *package = host_file(gZipPath);
    if (file_exists(package)) {
        return open_for_append(archive, package, path);
    }
    if (!mz_zip_writer_init_file(archive, package, 0)) {
        zrdebug_warn("Unable to init package zip file (%s) to add \"%s\"", gZipPath, path);
        return false;
    }
    return true;
}

// As `mz_zip_writer_add_file`, but with a time that is not the file's own.
bool add_with_time(mz_zip_archive *archive, const package_entry &entry, long long seconds)
{
    std::FILE *stream = file_open(entry.file, "rb");
    struct stat status = {};
    if (stream == nullptr) {
        return false;
    }
    bool added = false;
    if (::fstat(::fileno(stream), &status) == 0) {
        const auto time = static_cast<MZ_TIME_T>(std::clamp(seconds, FIRST_TIME, LAST_TIME));
        const auto size = static_cast<mz_uint64>(status.st_size);
        added = mz_zip_writer_add_cfile(archive, entry.name, stream, size, &time, entry.comment, entry.comment_size,
                                        ADD_FLAGS, nullptr, 0, nullptr, 0) != MZ_FALSE;
    }
    std::fclose(stream);
    return added;
}

bool add_entry(mz_zip_archive *archive, const package_entry &entry)
{
    if (!is_regular_file(entry.file)) {
        return false; // a device or a pipe has no end to read to
    }
    if (const std::optional<long long> seconds = fixed_output_time()) {
        return add_with_time(archive, entry, *seconds);
    }
    return mz_zip_writer_add_file(archive, entry.name, entry.file, entry.comment, entry.comment_size, ADD_FLAGS) !=
           MZ_FALSE;
}

} // namespace

void package_parse(const char *argument)
{
    if (gZipPath != nullptr) {
        zrdebug_warn("Zip file already set to \"%s\", ignoring addtional zip options", gZipPath);
        return;
    }
    if (argument != nullptr && argument[0] == '+') {
        gZipPath = str_cache(argument + 1);
        return;
    }
    gZipPath = str_cache(argument != nullptr ? argument : DEFAULT_PACKAGE);
    if (!file_exists(gZipPath)) {
        return;
    }
    zrdebug_warn("Package zip \"%s\" already exists and will be over-written", gZipPath);
    if (!is_regular_file(gZipPath) || file_remove(gZipPath) != 0) { // devices stay
        zrdebug_warn("Unable to remove \"%s\", it will be updated if possible", gZipPath);
    }
}

void zrdebug_add_file(const char *path, const char *comment)
{
    if (gZipPath == nullptr || !file_exists(path)) {
        return;
    }
    const package_entry entry = {
        .file = host_file(path),
        .name = name_in_package(path),
        .comment = comment,
        .comment_size = static_cast<mz_uint16>(comment != nullptr ? std::strlen(comment) : 0), // its low 16 bits
    };
    mz_zip_archive archive = {};
    if (!open_package(&archive, path)) {
        return;
    }
    if (!add_entry(&archive, entry)) {
        zrdebug_warn("Unable to add archive \"%s\" (from \"%s\") to package zip (%s)", entry.name, path, gZipPath);
    }
    if (!mz_zip_writer_finalize_archive(&archive)) {
        zrdebug_warn("Unable to finalize package zip (%s) after adding \"%s\"", gZipPath, path);
    }
    if (!mz_zip_writer_end(&archive)) {
        zrdebug_warn("Unable to end package zip (%s) after adding \"%s\"", gZipPath, path);
    }
}
