// SPDX-License-Identifier: MIT
// The problem package: its option, the names in it, and what is told when something fails. What it holds byte for byte is
// for other programs to judge; here its central directory is read, by hand. Each scenario is a process of its own.
#include "compiler/common/problem_package.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "compiler/common/zrdebug.h"
#include "tests/unit/scenario.h"

namespace {

constexpr const char *DEFAULT_PACKAGE = "zrt_package.zip";
const std::string WARNING = "ZRDEBUG (warning): ";

struct entry {
    std::string name;
    std::string comment;
    std::uint32_t method;
    std::uint32_t date; // year since 1980, month, day: 7, 4 and 5 bits
    std::uint32_t time; // hour, minute, second / 2: 5, 6 and 5 bits
    std::uint32_t size;
};

std::uint32_t little(std::string_view text, std::size_t at, std::size_t bytes)
{
    std::uint32_t value = 0;
    for (std::size_t i = bytes; i > 0; i--) {
        value = value << 8 | static_cast<unsigned char>(text.at(at + i - 1));
    }
    return value;
}

// The central directory; the end record, without a comment, is the last of the file.
std::vector<entry> entries_of(const std::string &path)
{
    const std::string zip = read_file(path);
    std::vector<entry> entries;
    if (zip.size() < 22 || zip.substr(zip.size() - 22, 4) != "PK\5\6") {
        note("%s is no zip", path.c_str());
        return entries;
    }
    std::size_t at = little(zip, zip.size() - 6, 4);
    for (std::uint32_t left = little(zip, zip.size() - 12, 2); left > 0; left--) {
        const std::uint32_t name = little(zip, at + 28, 2);
        const std::uint32_t extra = little(zip, at + 30, 2);
        const std::uint32_t comment = little(zip, at + 32, 2);
        entries.push_back({zip.substr(at + 46, name), zip.substr(at + 46 + name + extra, comment),
                           little(zip, at + 10, 2), little(zip, at + 14, 2), little(zip, at + 12, 2),
                           little(zip, at + 24, 4)});
        at += 46 + name + extra + comment;
    }
    return entries;
}

void note_names(const std::string &path = DEFAULT_PACKAGE)
{
    for (const entry &row : entries_of(path)) {
        note("%s", row.name.c_str());
    }
    note("<end>");
}

void start(const char *option)
{
    enter_scratch_folder();
    write_file("a.txt", "the text of a\n");
    write_file("b.txt", "the text of b\n");
    zrdebug_install();
    zrdebug_parse(option);
}

// ---- The option

TEST(PackageOption, DefaultName)
{
    for (const char *option : {"zrdebug=zip", "zrdebug=zip:", "zrdebug=ZIP"}) {
        expect_run(
            [=] {
                start(option);
                note("%d", std::filesystem::exists(DEFAULT_PACKAGE));
                zrdebug_add_file("a.txt", nullptr);
                note_names();
                note("%d", std::filesystem::exists("tarnwick-1.out")); // `zip` is no class of tracing
            },
            "0\na.txt\n<end>\n0\n");
    }
}

TEST(PackageOption, OnlyTheFirstPathCounts)
{
    expect_run(
        [] {
            start("zrdebug=zip:p.zip,zip:q.zip,zip");
            zrdebug_add_file("a.txt", nullptr);
            note("%d%d", std::filesystem::exists("q.zip"), std::filesystem::exists(DEFAULT_PACKAGE));
            note_names("p.zip");
        },
        WARNING + "Zip file already set to \"p.zip\", ignoring addtional zip options\n" + WARNING +
            "Zip file already set to \"p.zip\", ignoring addtional zip options\n00\na.txt\n<end>\n");
}

TEST(PackageOption, APackageIsReplacedAtOnce)
{
    expect_run(
        [] {
            enter_scratch_folder();
            write_file("p.zip", "old");
            zrdebug_parse("zrdebug=zip:p.zip");
            note("%d", std::filesystem::exists("p.zip"));
        },
        WARNING + "Package zip \"p.zip\" already exists and will be over-written\n0\n");
}

TEST(PackageOption, WhatCannotBeRemovedStays)
{
    expect_run(
        [] {
            enter_scratch_folder();
            std::filesystem::create_directory("p.zip");
            zrdebug_parse("zrdebug=zip:p.zip");
        },
        WARNING + "Package zip \"p.zip\" already exists and will be over-written\n" + WARNING +
            "Unable to remove \"p.zip\", it will be updated if possible\n");
    expect_run(
        [] {
            enter_scratch_folder();
            mkfifo("p.zip", S_IRUSR | S_IWUSR);
            zrdebug_parse("zrdebug=zip:p.zip");
            note("%d", std::filesystem::exists("p.zip"));
            write_file("a.txt", "a");
            zrdebug_add_file("a.txt", nullptr); // would wait for a writer of the pipe
        },
        WARNING + "Package zip \"p.zip\" already exists and will be over-written\n" + WARNING +
            "Unable to remove \"p.zip\", it will be updated if possible\n1\n" + WARNING +
            "Unable to open package zip file (p.zip) for reading to append \"a.txt\"\n");
}

TEST(PackageOption, APlusKeepsThePackage)
{
    expect_run(
        [] {
            start("zrdebug=zip:+p.zip");
            zrdebug_add_file("a.txt", nullptr); // not there yet: made
            zrdebug_add_file("b.txt", nullptr);
            zrdebug_add_file("a.txt", nullptr); // no name is looked for
            note_names("p.zip");
        },
        "a.txt\nb.txt\na.txt\n<end>\n");
}

// ---- Adding

TEST(PackageAdd, NothingWithoutAPackageOrAFile)
{
    expect_run(
        [] {
            start("zrdebug=assert:warning");
            zrdebug_add_file("a.txt", nullptr);
            note("%d", std::filesystem::exists(DEFAULT_PACKAGE));
        },
        "0\n");
    expect_run(
        [] {
            start("zrdebug=zip");
            zrdebug_add_file("missing.txt", "comment");
            zrdebug_add_file(nullptr, nullptr);
            note("%d", std::filesystem::exists(DEFAULT_PACKAGE));
        },
        "0\n");
}

TEST(PackageAdd, NamesOfRelativePaths)
{
    expect_run(
        [] {
            start("zrdebug=zip");
            std::filesystem::create_directories("d/e");
            write_file("d/e/c.txt", "the text of c\n");
            write_file("d\\raw.txt", "a backslash in a name\n");
            zrdebug_add_file("d\\e/c.txt", nullptr); // found under "/"
            zrdebug_add_file("d\\raw.txt", nullptr); // found as it stands
            zrdebug_add_file("d/../a.txt", nullptr);
            zrdebug_add_file("./a.txt", nullptr);
            note_names();
            std::filesystem::current_path("d");
            zrdebug_add_file("..\\a.txt", nullptr);
            note_names();
        },
        "d/e/c.txt\nd/raw.txt\nd/../a.txt\n./a.txt\n<end>\n../a.txt\n<end>\n");
}

TEST(PackageAdd, NamesOfAbsolutePaths)
{
    expect_run(
        [] {
            start("zrdebug=zip");
            const std::string folder = std::filesystem::current_path().string();
            zrdebug_add_file((folder + "/a.txt").c_str(), nullptr);
            zrdebug_add_file(("/" + folder + "\\a.txt").c_str(), nullptr);
            write_file("C:\\work\\x.txt", "from a drive\n");
            write_file("C:y", "three characters\n");
            write_file("C:", "two characters\n");
            zrdebug_add_file("C:\\work\\x.txt", nullptr);
            zrdebug_add_file("C:y", nullptr);
            zrdebug_add_file("C:", nullptr);
            for (entry row : entries_of(DEFAULT_PACKAGE)) {
                const std::size_t at = row.name.find(folder);
                note("%s", (at == std::string::npos ? row.name : row.name.replace(at, folder.size(), "@")).c_str());
            }
        },
        "SYSTEM_ROOT@/a.txt\nSYSTEM_ROOT/@/a.txt\nSYSTEM_ROOT/work/x.txt\nSYSTEM_ROOT\nSYSTEM_ROOT\n");
}

TEST(PackageAdd, TheLengthOfACommentHas16Bits)
{
    expect_run(
        [] {
            start("zrdebug=zip");
            zrdebug_add_file("a.txt", "output");
            zrdebug_add_file("a.txt", "");
            zrdebug_add_file("a.txt", std::string(0xFFFF, 'x').c_str());
            zrdebug_add_file("a.txt", std::string(0x10000, 'x').c_str());
            zrdebug_add_file("a.txt", std::string(0x10003, 'y').c_str());
            for (const entry &row : entries_of(DEFAULT_PACKAGE)) {
                note("%zu %s", row.comment.size(), row.comment.substr(0, 6).c_str());
            }
        },
        "6 output\n0 \n65535 xxxxxx\n0 \n3 yyy\n");
}

TEST(PackageAdd, Compression)
{
    constexpr std::uint32_t STORED = 0;
    constexpr std::uint32_t DEFLATED = 8;
    expect_run(
        [] {
            start("zrdebug=zip");
            write_file("long.txt", std::string(100000, 'z'));
            write_file("empty.txt", "");
            zrdebug_add_file("long.txt", nullptr);
            zrdebug_add_file("empty.txt", nullptr);
            for (const entry &row : entries_of(DEFAULT_PACKAGE)) {
                note("%s %u %s", row.name.c_str(), row.size, row.method == DEFLATED ? "deflated" : "");
                note("%d", row.method == STORED);
            }
            note("%d", std::filesystem::file_size(DEFAULT_PACKAGE) < 1000);
        },
        "long.txt 100000 deflated\n0\nempty.txt 0 \n1\n1\n");
}

TEST(PackageAdd, TheTimeOfAFile)
{
    const struct {
        const char *epoch;
        const char *text;
    } rows[] = {
        {"1700000000", "2023-11-14 22:13:20"},
        {"0", "1980-01-02 00:00:00"}, // a package tells no earlier one
        {"9223372036854775807", "2107-12-30 23:59:58"},
        {"yesterday", "2001-09-09 01:46:40"}, // no number: the file's own
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.epoch);
        expect_run(
            [&] {
                setenv("TZ", "UTC", 1);
                setenv("SOURCE_DATE_EPOCH", row.epoch, 1);
                start("zrdebug=zip");
                const timespec times[2] = {{1000000000, 0}, {1000000000, 0}};
                utimensat(AT_FDCWD, "a.txt", times, 0);
                zrdebug_add_file("a.txt", nullptr);
                for (const entry &e : entries_of(DEFAULT_PACKAGE)) {
                    note("%04u-%02u-%02u %02u:%02u:%02u", 1980 + (e.date >> 9), e.date >> 5 & 15, e.date & 31,
                         e.time >> 11, e.time >> 5 & 63, (e.time & 31) * 2);
                }
            },
            std::string(row.text) + "\n");
    }
}

// ---- What fails

TEST(PackageFailure, NoZipToAppendTo)
{
    for (const std::string &text : {std::string("no zip"), std::string(), std::string(5000, 'P'),
                                    std::string("PK\5\6") + std::string(18, '\xFF')}) {
        expect_run(
            [&] {
                start("zrdebug=zip:+p.zip");
                write_file("p.zip", text);
                zrdebug_add_file("a.txt", nullptr);
                note("%d", read_file("p.zip") == text);
            },
            WARNING + "Unable to open package zip file (p.zip) for reading to append \"a.txt\"\n1\n");
    }
}

TEST(PackageFailure, TooManyFilesToAppendTo)
{
    expect_run(
        [] {
            start("zrdebug=zip:+p.zip");
            // 65535 entries, each the same file without content: no more can be counted.
            constexpr std::uint32_t COUNT = 0xFFFF;
            std::string directory;
            for (std::uint32_t i = 0; i < COUNT; i++) {
                directory += std::string("PK\1\2\x14\0\x14\0", 8) + std::string(20, '\0') + std::string("\1\0", 2) +
                             std::string(16, '\0') + "n";
            }
            const std::size_t size = directory.size();
            const std::string local =
                std::string("PK\3\4\x14\0", 6) + std::string(20, '\0') + std::string("\1\0\0\0", 4) + "n";
            std::string end = std::string("PK\5\6\0\0\0\0\xFF\xFF\xFF\xFF", 12);
            for (const std::size_t number : {size, local.size()}) {
                for (int shift = 0; shift < 32; shift += 8) {
                    end += static_cast<char>(number >> shift & 0xFF);
                }
            }
            write_file("p.zip", local + directory + end + std::string(2, '\0'));
            zrdebug_add_file("a.txt", nullptr);
        },
        WARNING + "Unable to covert package zip file (p.zip) reader to a writer to append \"a.txt\"\n");
}

TEST(PackageFailure, NoPlaceForAPackage)
{
    expect_run(
        [] {
            start("zrdebug=zip:missing/p.zip");
            zrdebug_add_file("a.txt", nullptr);
        },
        WARNING + "Unable to init package zip file (missing/p.zip) to add \"a.txt\"\n");
    expect_run(
        [] {
            start("zrdebug=zip:+");
            zrdebug_add_file("a.txt", nullptr);
        },
        WARNING + "Unable to init package zip file () to add \"a.txt\"\n");
}

TEST(PackageFailure, WhatIsNoRegularFileIsNotAdded)
{
    expect_run(
        [] {
            start("zrdebug=zip:p.zip");
            std::filesystem::create_directory("d\\e");
            mkfifo("pipe", S_IRUSR | S_IWUSR);
            zrdebug_add_file("a.txt", nullptr);
            zrdebug_add_file("d\\e", nullptr);
            zrdebug_add_file("pipe", nullptr);
            zrdebug_add_file("b.txt", nullptr); // what fails spoils nothing
            note_names("p.zip");
        },
        WARNING + "Unable to add archive \"d/e\" (from \"d\\e\") to package zip (p.zip)\n" + WARNING +
            "Unable to add archive \"pipe\" (from \"pipe\") to package zip (p.zip)\na.txt\nb.txt\n<end>\n");
}

// ---- The end of the run

TEST(PackageClose, OnlyATraceUnderItsDefaultNameIsPacked)
{
    expect_run(
        [] {
            start("zrdebug=zip,on,num:4");
            zrdebug_close();
            note_names();
        },
        "tarnwick-4.out\n<end>\n");
    expect_run(
        [] {
            start("zrdebug=zip,on,out:x.log");
            zrdebug_close();
            note("%d%d", std::filesystem::exists("x.log"), std::filesystem::exists(DEFAULT_PACKAGE));
        },
        "10\n");
    // The option without a name counts, too: there is a trace under the default name, but that was not left to the program.
    expect_run(
        [] {
            start("zrdebug=zip,on,out");
            zrdebug_close();
            note("%d%d", std::filesystem::exists("tarnwick-1.out"), std::filesystem::exists(DEFAULT_PACKAGE));
        },
        "ZRDEBUG (warning): option \"out\", must have a filename argument\n10\n");
}

} // namespace
