// SPDX-License-Identifier: MIT
#include "common/osdep.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>

#include <unistd.h>

#include "tests/unit/common/scratch_dir.h"

namespace {

// The text of an allocated result, which is released; "(null)" for none.
std::string taken(char *text)
{
    const std::string result = text != nullptr ? text : "(null)";
    std::free(text);
    return result;
}

std::string normal(const char *path)
{
    return taken(path_normalize(path));
}

TEST(PathJoin, OneSeparatorBetween)
{
    EXPECT_EQ(taken(path_join("dir", "name")), "dir/name");
    EXPECT_EQ(taken(path_join("dir\\", "name")), "dir/name");
    EXPECT_EQ(taken(path_join("dir/", "name")), "dir/name");
    EXPECT_EQ(taken(path_join("dir", "\\name")), "dir/name");
    EXPECT_EQ(taken(path_join("dir", "/name")), "dir/name");
    EXPECT_EQ(taken(path_join("dir\\", "\\name")), "dir/name");
    EXPECT_EQ(taken(path_join("dir/", "/name")), "dir/name");
}

TEST(PathJoin, DropsNoMoreThanOneOfEach)
{
    EXPECT_EQ(taken(path_join("dir\\\\", "\\\\name")), "dir\\/\\name");
}

TEST(PathJoin, EmptySides)
{
    EXPECT_EQ(path_join(nullptr, "name"), nullptr);
    EXPECT_EQ(path_join("", "name"), nullptr);
    EXPECT_EQ(taken(path_join("dir", "")), "dir/");
    EXPECT_EQ(taken(path_join("dir", nullptr)), "dir/");
    EXPECT_EQ(taken(path_join("/", "name")), "/name");
}

TEST(PathIsAbsolute, DriveUncAndRoot)
{
    EXPECT_FALSE(path_is_absolute(nullptr));
    EXPECT_FALSE(path_is_absolute(""));
    EXPECT_FALSE(path_is_absolute("a"));
    EXPECT_FALSE(path_is_absolute("\\"));
    EXPECT_FALSE(path_is_absolute("\\a"));
    EXPECT_FALSE(path_is_absolute("a/b"));
    EXPECT_FALSE(path_is_absolute("ab:c"));
    EXPECT_TRUE(path_is_absolute("C:"));
    EXPECT_TRUE(path_is_absolute("c:file"));
    EXPECT_TRUE(path_is_absolute("\\\\server"));
    EXPECT_TRUE(path_is_absolute("\\\\"));
    EXPECT_TRUE(path_is_absolute("/a"));
    EXPECT_TRUE(path_is_absolute("/"));
}

TEST(PathNormalize, PlainPathsStay)
{
    EXPECT_EQ(path_normalize(nullptr), nullptr);
    EXPECT_EQ(normal(""), "");
    EXPECT_EQ(normal("a"), "a");
    EXPECT_EQ(normal("a\\b/c"), "a\\b/c");
    EXPECT_EQ(normal("/a/.b/..c/d."), "/a/.b/..c/d.");
    EXPECT_EQ(normal("/a/..."), "/a/...");
}

TEST(PathNormalize, RunsOfSeparatorsCollapseToTheFirst)
{
    EXPECT_EQ(normal("a\\/b"), "a\\b");
    EXPECT_EQ(normal("a/\\\\b"), "a/b");
    EXPECT_EQ(normal("\\\\server\\share"), "\\server\\share");
    EXPECT_EQ(normal("//a"), "/a");
}

TEST(PathNormalize, SinglePointsVanish)
{
    EXPECT_EQ(normal("/a/./b"), "/a/b");
    EXPECT_EQ(normal("a/.\\b"), "a\\b"); // the separator behind the point is the present one
    EXPECT_EQ(normal("a/././\\./b"), "a/b");
    EXPECT_EQ(normal("/a/."), "/a");
    EXPECT_EQ(normal("/."), "");
    EXPECT_EQ(normal("./a"), "./a"); // only behind a separator
    EXPECT_EQ(normal("."), ".");
}

TEST(PathNormalize, DoublePointsRemoveAPart)
{
    EXPECT_EQ(normal("/a/b/../c"), "/a/c");
    EXPECT_EQ(normal("/a/b/.."), "/a");
    EXPECT_EQ(normal("/a/b/../.."), "");
    EXPECT_EQ(normal("/a/b/../../c"), "/c");
    EXPECT_EQ(normal("C:\\a\\b\\..\\"), "C:\\a");
    EXPECT_EQ(normal("C:\\a\\..\\b"), "C:\\b");
    EXPECT_EQ(normal("/../a"), "/a"); // nothing to remove
    EXPECT_EQ(normal("/a//.././b"), "/b");
    EXPECT_EQ(normal("../a"), "../a");
    EXPECT_EQ(normal("a/../b"), "/b"); // a first part goes whole
    EXPECT_EQ(normal("/a/..b"), "/a/..b");
}

TEST(PathNormalize, TrailingSeparators)
{
    EXPECT_EQ(normal("C:\\"), "C:\\");
    EXPECT_EQ(normal("C:\\dir\\..\\"), "C:\\");
    EXPECT_EQ(normal("/"), "/");
    EXPECT_EQ(normal("a/"), "a/"); // two characters
    EXPECT_EQ(normal("ab/"), "ab");
    EXPECT_EQ(normal("ab///"), "ab");
    EXPECT_EQ(normal("/dir/sub\\"), "/dir/sub");
}

TEST(PathNormalize, LongPathsAreNoTrouble)
{
    constexpr int PARTS = 400000;
    std::string up_and_down;
    std::string deep;
    for (int i = 0; i < PARTS; ++i) {
        up_and_down += "/a/..";
        deep += "/a";
    }
    for (int i = 0; i < PARTS; ++i) {
        deep += "/..";
    }
    EXPECT_EQ(normal((up_and_down + "/b").c_str()), "/b");
    EXPECT_EQ(normal((deep + "/b").c_str()), "/b");
}

class working_directory_guard {
public:
    explicit working_directory_guard(const std::string &path) : old_(std::filesystem::current_path())
    {
        std::filesystem::current_path(path);
    }
    ~working_directory_guard() { std::filesystem::current_path(old_); }

private:
    std::filesystem::path old_;
};

TEST(PathAbsolute, JoinsTheWorkingDirectory)
{
    const scratch_dir scratch;
    const working_directory_guard here(scratch.path());
    EXPECT_EQ(taken(working_directory()), scratch.path());
    EXPECT_EQ(taken(path_absolute("file.c")), scratch.path() + "/file.c");
    EXPECT_EQ(taken(path_absolute("./dir/../file.c")), scratch.path() + "/file.c");
    const std::string above = scratch.path().substr(0, scratch.path().rfind('/'));
    EXPECT_EQ(taken(path_absolute("../x")), above + "/x");
    EXPECT_EQ(taken(path_absolute("..\\x")), above + "\\x"); // separators are taken as they stand
    EXPECT_EQ(taken(path_absolute("x")), scratch.path() + "/x");
    EXPECT_EQ(taken(path_absolute("")), scratch.path());
    EXPECT_EQ(taken(path_absolute(nullptr)), scratch.path());
    EXPECT_EQ(taken(path_absolute("\\")), scratch.path());
}

TEST(PathAbsolute, AbsolutePathsAreNormalized)
{
    EXPECT_EQ(taken(path_absolute("/a/../b/")), "/b");
    EXPECT_EQ(taken(path_absolute("/")), "/");
    EXPECT_EQ(taken(path_absolute("C:\\a\\.\\b")), "C:\\a\\b");
}

TEST(WorkingDirectory, ADirectoryThatIsGone)
{
    const scratch_dir scratch;
    const std::string gone = scratch.make_directory("gone");
    const working_directory_guard here(gone);
    std::filesystem::remove(gone);
    EXPECT_EQ(taken(working_directory()), ".");
}

TEST(PathParts, Tail)
{
    EXPECT_EQ(path_tail(nullptr), nullptr);
    EXPECT_STREQ(path_tail("file.c"), "file.c");
    EXPECT_STREQ(path_tail("dir/file.c"), "file.c");
    EXPECT_STREQ(path_tail("dir\\file.c"), "file.c");
    EXPECT_STREQ(path_tail("C:file.c"), "file.c");
    EXPECT_STREQ(path_tail("C:\\dir\\file.c"), "file.c");
    EXPECT_STREQ(path_tail("C:dir/file.c"), "file.c");
    EXPECT_STREQ(path_tail("a\\b/c"), "b/c"); // a backslash wins
    EXPECT_STREQ(path_tail("a/b:c"), "b:c");
    EXPECT_STREQ(path_tail("dir/"), "");
    const char *path = "dir/file";
    EXPECT_EQ(path_tail(path), path + 4);
}

TEST(PathParts, BasenameIsACopyOfTheTail)
{
    EXPECT_EQ(path_basename(nullptr), nullptr);
    char *name = path_basename("dir\\file.c");
    EXPECT_STREQ(name, "file.c");
    EXPECT_EQ(name[7], '\0') << "the second terminating byte";
    std::free(name);
}

TEST(PathParts, StemKeepsThePoint)
{
    EXPECT_EQ(path_stem(nullptr), nullptr);
    EXPECT_EQ(taken(path_stem("dir/file.c")), "file.");
    EXPECT_EQ(taken(path_stem("file.tar.gz")), "file.tar.");
    EXPECT_EQ(taken(path_stem("file")), "file");
    EXPECT_EQ(taken(path_stem("file.")), "file.");
    EXPECT_EQ(taken(path_stem(".c")), ".");
    char *whole = path_stem("dir.x\\file");
    EXPECT_STREQ(whole, "file");
    EXPECT_EQ(whole[5], '\0');
    std::free(whole);
}

TEST(PathParts, Extension)
{
    EXPECT_STREQ(path_extension("file.c"), ".c");
    EXPECT_STREQ(path_extension("a.b.c"), ".c");
    EXPECT_STREQ(path_extension("file"), "");
    EXPECT_STREQ(path_extension("file."), ".");
    EXPECT_STREQ(path_extension("dir.x/file"), ".x/file"); // the last point of the path, wherever it lies
    EXPECT_STREQ(path_extension(nullptr), "");
}

TEST(PathParts, Directory)
{
    EXPECT_EQ(path_directory(nullptr), nullptr);
    EXPECT_EQ(path_directory("file"), nullptr);
    EXPECT_EQ(taken(path_directory("a/b/file")), "a/b");
    EXPECT_EQ(taken(path_directory("a\\b\\file")), "a\\b");
    EXPECT_EQ(taken(path_directory("C:file")), "C");
    EXPECT_EQ(taken(path_directory("/file")), "");
    EXPECT_EQ(taken(path_directory("a\\b/c")), "a");
    EXPECT_EQ(taken(path_directory("dir/")), "dir");
}

TEST(ProgramPath, IsTheRunningExecutable)
{
    EXPECT_EQ(taken(program_path()), std::filesystem::canonical("/proc/self/exe").string());
}

TEST(FileStatus, ExistsAndDirectory)
{
    const scratch_dir scratch;
    const std::string file = scratch.write("file", "x");
    EXPECT_FALSE(file_exists(nullptr));
    EXPECT_FALSE(file_exists(""));
    EXPECT_FALSE(file_exists(scratch.path("none").c_str()));
    EXPECT_TRUE(file_exists(file.c_str()));
    EXPECT_TRUE(file_exists(scratch.path().c_str()));
    EXPECT_FALSE(is_directory(nullptr));
    EXPECT_FALSE(is_directory(file.c_str()));
    EXPECT_FALSE(is_directory(scratch.path("none").c_str()));
    EXPECT_TRUE(is_directory(scratch.path().c_str()));
    EXPECT_FALSE(is_regular_file(nullptr));
    EXPECT_TRUE(is_regular_file(file.c_str()));
    EXPECT_FALSE(is_regular_file(scratch.path("none").c_str()));
    EXPECT_FALSE(is_regular_file(scratch.path().c_str()));
    EXPECT_FALSE(is_regular_file("/dev/null"));
}

std::string content_of(const char *path)
{
    std::FILE *stream = file_open(path, "rb");
    if (stream == nullptr) {
        return "(null)";
    }
    char buffer[64] = {};
    const std::size_t count = std::fread(buffer, 1, sizeof buffer, stream);
    std::fclose(stream);
    return {buffer, count};
}

TEST(BackslashNames, AreLookedForWithSlashes)
{
    const scratch_dir scratch;
    scratch.make_directory("dir/sub");
    scratch.write("dir/sub/file", "slashes");
    const std::string windows = scratch.path() + "\\dir\\sub\\file";
    EXPECT_TRUE(file_exists(windows.c_str()));
    EXPECT_TRUE(is_directory((scratch.path() + "\\dir\\sub").c_str()));
    EXPECT_EQ(content_of(windows.c_str()), "slashes");
}

TEST(BackslashNames, AsTheyStandComeFirst)
{
    const scratch_dir scratch;
    scratch.make_directory("dir");
    scratch.write("dir/file", "slashes");
    scratch.write("dir\\file", "backslash");
    EXPECT_EQ(content_of(scratch.path("dir\\file").c_str()), "backslash");
    EXPECT_EQ(file_remove(scratch.path("dir\\file").c_str()), 0);
    EXPECT_EQ(content_of(scratch.path("dir\\file").c_str()), "slashes");
    EXPECT_EQ(file_remove(scratch.path("dir\\file").c_str()), 0);
    EXPECT_EQ(content_of(scratch.path("dir\\file").c_str()), "(null)");
    EXPECT_NE(file_remove(scratch.path("dir\\file").c_str()), 0);
}

TEST(BackslashNames, TheHostsOwnName)
{
    const scratch_dir scratch;
    scratch.make_directory("dir");
    scratch.write("dir\\file", "backslash");
    for (const char *name : {"dir\\file", "dir\\none", "plain"}) {
        const std::string path = scratch.path(name);
        const std::string slashes = scratch.path(std::string_view(name) == "dir\\none" ? "dir/none" : name);
        char *host = file_host_name(path.c_str());
        EXPECT_EQ(host, slashes);
        std::free(host);
    }
    EXPECT_EQ(file_host_name(nullptr), nullptr);
}

TEST(BackslashNames, OutputsLandBesideTheirInputs)
{
    const scratch_dir scratch;
    scratch.make_directory("dir");
    std::FILE *stream = file_open(scratch.path("dir\\new").c_str(), "wb");
    ASSERT_NE(stream, nullptr);
    std::fclose(stream);
    EXPECT_TRUE(std::filesystem::exists(scratch.path("dir/new")));
    EXPECT_FALSE(std::filesystem::exists(scratch.path("dir\\new")));
}

TEST(FileOpen, Failures)
{
    const scratch_dir scratch;
    errno = 0;
    EXPECT_EQ(file_open(scratch.path("none").c_str(), "r"), nullptr);
    EXPECT_EQ(errno, ENOENT);
    errno = 0;
    EXPECT_EQ(file_open(scratch.path("no\\ne").c_str(), "r"), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(file_open(scratch.path().c_str(), "r"), nullptr);
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(file_open(nullptr, "r"), nullptr);
    EXPECT_EQ(file_remove(nullptr), -1);
}

std::string rest_of(std::FILE *stream)
{
    char buffer[64] = {};
    return {buffer, std::fread(buffer, 1, sizeof buffer, stream)};
}

TEST(FileReopen, StandardInputServesManyInputs)
{
    const scratch_dir scratch;
    const std::string one = scratch.write("one", "first");
    scratch.make_directory("dir");
    scratch.write("dir/two", "second");
    ASSERT_EQ(file_reopen(one.c_str(), "rb", stdin), stdin);
    EXPECT_EQ(rest_of(stdin), "first");
    ASSERT_EQ(file_reopen(scratch.path("dir\\two").c_str(), "r", stdin), stdin);
    EXPECT_EQ(rest_of(stdin), "second");
    file_close_input(stdin);
    EXPECT_EQ(rest_of(stdin), "");
    EXPECT_FALSE(std::ferror(stdin)) << "the stream is open, on an empty file";
    ASSERT_EQ(file_reopen(one.c_str(), "rb", stdin), stdin);
    EXPECT_EQ(rest_of(stdin), "first");
    file_close_input(stdin);
}

TEST(FileReopen, AFailureLeavesTheStreamUsable)
{
    const scratch_dir scratch;
    const std::string one = scratch.write("one", "first");
    errno = 0;
    EXPECT_EQ(file_reopen(scratch.path("none").c_str(), "rb", stdin), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(rest_of(stdin), "");
    EXPECT_EQ(file_reopen(scratch.path().c_str(), "rb", stdin), nullptr);
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(file_reopen(nullptr, "rb", stdin), nullptr);
    ASSERT_EQ(file_reopen(one.c_str(), "rb", stdin), stdin);
    EXPECT_EQ(rest_of(stdin), "first");
    file_close_input(stdin);
}

TEST(FileReopen, StandardOutputServesManyOutputs)
{
    const scratch_dir scratch;
    const int kept = ::dup(STDOUT_FILENO);
    std::fflush(stdout);
    std::FILE *first = file_reopen(scratch.path("one").c_str(), "wb", stdout);
    std::fputs("first", stdout);
    file_close_input(stdout);
    std::fputs("lost", stdout);
    std::FILE *second = file_reopen(scratch.path("two").c_str(), "w", stdout);
    std::fputs("second", stdout);
    std::fflush(stdout);
    ::dup2(kept, STDOUT_FILENO);
    ::close(kept);
    EXPECT_EQ(first, stdout);
    EXPECT_EQ(second, stdout);
    EXPECT_EQ(file_content(scratch.path("one")), "first");
    EXPECT_EQ(file_content(scratch.path("two")), "second");
}

TEST(FileCloseInput, OtherStreamsAreClosed)
{
    file_close_input(nullptr);
    const scratch_dir scratch;
    std::FILE *stream = file_open(scratch.write("one", "first").c_str(), "r");
    ASSERT_NE(stream, nullptr);
    const int descriptor = ::fileno(stream);
    file_close_input(stream);
    EXPECT_EQ(::lseek(descriptor, 0, SEEK_CUR), -1) << "closed";
}

void expect_clock()
{
    const auto before = static_cast<long long>(std::time(nullptr));
    const long long told = output_time();
    EXPECT_GE(told, before);
    EXPECT_LE(told, static_cast<long long>(std::time(nullptr)));
    EXPECT_EQ(fixed_output_time(), std::nullopt);
}

TEST(OutputTime, ComesFromTheEnvironmentOrTheClock)
{
    ::setenv("SOURCE_DATE_EPOCH", "1700000000", 1);
    EXPECT_EQ(output_time(), 1700000000);
    EXPECT_EQ(fixed_output_time(), 1700000000);
    ::setenv("SOURCE_DATE_EPOCH", "0", 1);
    EXPECT_EQ(output_time(), 0);
    for (const char *no_number : {"", "x", "12x", " 12", "-12", "0x10", "99999999999999999999"}) {
        ::setenv("SOURCE_DATE_EPOCH", no_number, 1);
        expect_clock();
    }
    ::unsetenv("SOURCE_DATE_EPOCH");
    expect_clock();
}

} // namespace
