// SPDX-License-Identifier: MIT
#include "common/linereader.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include "tests/unit/common/scratch_dir.h"

namespace {

std::vector<std::string> all_lines(const std::string &path, std::size_t limit)
{
    std::vector<std::string> lines;
    std::FILE *stream = std::fopen(path.c_str(), "rb");
    line_reader reader(stream, limit);
    for (std::string_view line; reader.next(&line);) {
        lines.emplace_back(line);
    }
    std::string_view line = "untouched";
    EXPECT_FALSE(reader.next(&line)) << "the end stays the end";
    std::fclose(stream);
    return lines;
}

std::vector<std::string> lines_of(std::string_view content, std::size_t limit = 0)
{
    const scratch_dir scratch;
    return all_lines(scratch.write("text", content), limit);
}

using lines = std::vector<std::string>;

TEST(LineReader, LinesKeepTheirNewlines)
{
    EXPECT_EQ(lines_of(""), lines{});
    EXPECT_EQ(lines_of("\n"), lines{"\n"});
    EXPECT_EQ(lines_of("one\ntwo\r\n\nthree"), (lines{"one\n", "two\r\n", "\n", "three"}));
}

TEST(LineReader, NulsStay)
{
    EXPECT_EQ(lines_of(std::string_view("a\0b\n\0", 5)), (lines{std::string("a\0b\n", 4), std::string("\0", 1)}));
}

// A newline counts: a line of 510 characters and its newline is one piece of 511, a longer one arrives in two.
TEST(LineReader, LimitCutsAsABufferOf512Does)
{
    const std::string x510(510, 'x');
    EXPECT_EQ(lines_of(x510 + "\ny\n", 511), (lines{x510 + "\n", "y\n"}));
    EXPECT_EQ(lines_of(x510 + "z\ny\n", 511), (lines{x510 + "z", "\n", "y\n"}));
    EXPECT_EQ(lines_of(x510 + "zy\n", 511), (lines{x510 + "z", "y\n"}));
    EXPECT_EQ(lines_of(x510 + "z", 511), (lines{x510 + "z"}));
}

TEST(LineReader, LongLinesComeWhole)
{
    const std::string a(3 * 1024 * 1024, 'a');
    const std::string b(300 * 1024, 'b');
    EXPECT_EQ(lines_of(b + "\n" + a + "\nc"), (lines{b + "\n", a + "\n", "c"}));
}

// The C library's fgets is the reference, over pieces and buffers of every alignment.
TEST(LineReader, AgreesWithFgets)
{
    std::mt19937 random(2);
    std::string content;
    while (content.size() < 1500000) {
        content.append(random() % (random() % 8 == 0 ? 2000 : 60), static_cast<char>('a' + random() % 26));
        content += '\n';
    }
    const scratch_dir scratch;
    const std::string path = scratch.write("text", content);

    std::vector<std::string> expected;
    std::FILE *stream = std::fopen(path.c_str(), "rb");
    for (char buffer[512]; std::fgets(buffer, sizeof buffer, stream) != nullptr;) {
        expected.emplace_back(buffer);
    }
    std::fclose(stream);
    EXPECT_EQ(all_lines(path, 511), expected);
}

TEST(LineReader, ReadsFromAPipe)
{
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    std::string content;
    for (int i = 0; i < 100000; ++i) {
        content += "line " + std::to_string(i) + "\n";
    }
    std::thread writer([&] {
        std::size_t at = 0;
        while (at < content.size()) {
            const ssize_t count = ::write(ends[1], content.data() + at, content.size() - at);
            if (count <= 0) {
                break;
            }
            at += static_cast<std::size_t>(count);
        }
        ::close(ends[1]);
    });
    std::FILE *stream = ::fdopen(ends[0], "rb");
    line_reader reader(stream);
    std::string read;
    for (std::string_view line; reader.next(&line);) {
        read += line;
    }
    writer.join();
    std::fclose(stream);
    EXPECT_EQ(read, content);
}

TEST(LineReader, StartsWhereTheStreamStands)
{
    const scratch_dir scratch;
    const std::string path = scratch.write("text", "skipped\nread\n");
    std::FILE *stream = std::fopen(path.c_str(), "rb");
    ASSERT_EQ(std::fseek(stream, 8, SEEK_SET), 0);
    line_reader reader(stream);
    std::string_view line;
    ASSERT_TRUE(reader.next(&line));
    EXPECT_EQ(line, "read\n");
    std::fclose(stream);
}

TEST(LineReader, AStreamThatCannotBeReadIsEmpty)
{
    const scratch_dir scratch;
    std::FILE *stream = std::fopen(scratch.path("out").c_str(), "wb");
    line_reader reader(stream);
    std::string_view line;
    EXPECT_FALSE(reader.next(&line));
    std::fclose(stream);
}

// A file of which the host can read no more than `text`.
std::FILE *damaged_file(std::string *text)
{
    const auto read = [](void *cookie, char *buffer, std::size_t size) -> ssize_t {
        auto *rest = static_cast<std::string *>(cookie);
        if (rest->empty()) {
            errno = EIO;
            return -1;
        }
        const std::size_t count = rest->copy(buffer, size);
        rest->erase(0, count);
        return static_cast<ssize_t>(count);
    };
    cookie_io_functions_t operations = {};
    operations.read = read;
    return ::fopencookie(text, "rb", operations);
}

constexpr const char *CANNOT_READ = R"(\(141\) can't open input file "a\.tmf": Input/output error)";

TEST(LineReader, AnInputThatCannotBeReadOnIsRefused)
{
    for (const bool named : {true, false}) {
        std::string text = "one\ntwo";
        std::FILE *stream = damaged_file(&text);
        line_reader reader(stream, 0, named ? "a.tmf" : nullptr);
        std::string_view line;
        ASSERT_TRUE(reader.next(&line));
        EXPECT_EQ(line, "one\n") << "what is whole is delivered first";
        if (named) {
            EXPECT_EXIT(reader.next(&line), testing::ExitedWithCode(1), CANNOT_READ);
        } else {
            ASSERT_TRUE(reader.next(&line));
            EXPECT_EQ(line, "two");
            EXPECT_FALSE(reader.next(&line));
        }
        std::fclose(stream);
    }
}

TEST(LineReader, AnInputThatCannotBeReadAtAllIsRefused)
{
    std::string text;
    std::FILE *stream = damaged_file(&text);
    line_reader reader(stream, 511, "a.tmf");
    std::string_view line;
    EXPECT_EXIT(reader.next(&line), testing::ExitedWithCode(1), CANNOT_READ);
    std::fclose(stream);
}

std::string rest_of(const std::string &path, long from)
{
    std::FILE *stream = std::fopen(path.c_str(), "rb");
    EXPECT_EQ(std::fseek(stream, from, SEEK_SET), 0);
    const std::vector<char> rest = read_rest(stream, nullptr);
    std::fclose(stream);
    return {rest.begin(), rest.end()};
}

TEST(ReadRest, TakesAllFromThePosition)
{
    const scratch_dir scratch;
    std::string content;
    for (int i = 0; i < 100000; ++i) {
        content += static_cast<char>(i * 7);
    }
    const std::string path = scratch.write("binary", content);
    EXPECT_EQ(rest_of(path, 0), content);
    EXPECT_EQ(rest_of(path, 99000), content.substr(99000));
    EXPECT_EQ(rest_of(path, 100000), "");
    EXPECT_EQ(rest_of(path, 100001), "") << "behind the end";
    EXPECT_EQ(rest_of(scratch.write("empty", ""), 0), "");
}

TEST(ReadRest, TakesFilesThatTellNoSize)
{
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const std::string content(3000, 'p');
    ASSERT_EQ(::write(ends[1], content.data(), content.size()), 3000);
    ::close(ends[1]);
    std::FILE *stream = ::fdopen(ends[0], "rb");
    const std::vector<char> rest = read_rest(stream, nullptr);
    std::fclose(stream);
    EXPECT_EQ(std::string(rest.begin(), rest.end()), content);
}

TEST(ReadRest, AFileThatCannotBeReadOnIsRefused)
{
    std::string text = "one";
    std::FILE *stream = damaged_file(&text);
    EXPECT_EXIT(read_rest(stream, "a.tmf"), testing::ExitedWithCode(1), CANNOT_READ);
    std::fclose(stream);
}

} // namespace
