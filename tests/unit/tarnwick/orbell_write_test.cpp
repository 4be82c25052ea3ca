// SPDX-License-Identifier: MIT
// Writing legacy symbol files, and reading them back. Names that were written stay for the whole of a run: each test
// writes in a process of its own.
#include <cstdint>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "common/stringcache.h"
#include "tests/unit/tarnwick/orbell_testing.h"

namespace {

using namespace orbell_testing;

// What a new run writes of a model with two segments, "text" and "data", and whatever `fill` adds to it.
template <typename Fill>
void expect_written(Fill fill, const std::string &expected)
{
    expect_run(
        [&fill] {
            start_model();
            add_segment("text");
            add_segment("data");
            fill();
            note("%s", written().c_str());
        },
        expected + "\n");
}

TEST(orbell_write, nothing_of_nothing)
{
    expect_written([] { tarn_add_file("main.c"); }, "");
}

TEST(orbell_write, each_kind_of_item)
{
    expect_written(
        [] {
            tarn_add_file("main.c");
            add_symbol("segment", 1, 1, 0xABCDEF01);
            add_symbol("nowhere", 1, 0, 0);
            add_symbol("absolute", 1, 0, 0x10, SYM_ABS | SYM_LOCAL);
            add_symbol("both", 1, 2, 0x20, SYM_ABS); // without its segment
            add_line(12, 1, 2, 0x3A0);
            add_line(7, 1, 0, 0xFFFFFFFF);
            add_line(0xFFFFFFFE, 1, 0, 0x30);
        },
        "%locals\n"
        "main.c\n"
        "nowhere 0 0\n"
        "absolute 10\n"
        "-2 30 0\n"
        "7 FFFFFFFF 0\n"
        "segment ABCDEF01 1 text\n"
        "both 20\n"
        "12 3A0 2 data\n");
}

TEST(orbell_write, items_come_by_file_then_segment_then_address)
{
    expect_written(
        [] {
            tarn_add_file("a.c");
            tarn_add_file("b.c");
            add_line(1, 2, 1, 0x100);
            add_symbol("b_data", 2, 2, 0x10);
            add_line(3, 1, 1, 0x20);
            add_symbol("a_data", 1, 2, 0x5);
            add_line(2, 1, 1, 0x10);
            add_symbol("a_high", 1, 1, 0x80000000);
            add_symbol("a_mid", 1, 1, 0x18);
            add_line(4, 1, 2, 0x4);
        },
        "%locals\n"
        "a.c\n"
        "2 10 1 text\n"
        "a_mid 18 1 text\n"
        "3 20 1 text\n"
        "a_high 80000000 1 text\n" // addresses have no sign
        "4 4 2 data\n"
        "a_data 5 2 data\n"
        "b.c\n"
        "1 100 1 text\n"
        "b_data 10 2 data\n");
}

TEST(orbell_write, symbols_stand_in_front_of_lines_of_the_same_address)
{
    expect_written(
        [] {
            tarn_add_file("a.c");
            add_line(1, 1, 1, 0x10);
            add_symbol("one", 1, 1, 0x10);
            add_line(2, 1, 1, 0x11);
            add_symbol("two", 1, 1, 0x12);
        },
        "%locals\na.c\none 10 1 text\n1 10 1 text\n2 11 1 text\ntwo 12 1 text\n");
}

TEST(orbell_write, equal_items_come_as_the_programs_sort_leaves_them)
{
    // Elements that equal the pivot are exchanged as well: three of them end up turned round.
    expect_written(
        [] {
            tarn_add_file("a.c");
            add_symbol("first", 1, 1, 0x10);
            add_symbol("second", 1, 1, 0x10);
            add_symbol("third", 1, 1, 0x10);
            add_line(1, 1, 1, 0x20);
            add_line(2, 1, 1, 0x20);
        },
        "%locals\na.c\nthird 10 1 text\nsecond 10 1 text\nfirst 10 1 text\n2 20 1 text\n1 20 1 text\n");
}

TEST(orbell_write, what_has_no_file_stands_ahead_of_the_locals_heading)
{
    expect_written(
        [] {
            tarn_add_file("a.c");
            add_symbol("local", 1, 1, 0x10);
            add_symbol("global", 0, 1, 0x20);
            add_line(9, 0, 1, 0x30);
        },
        "global 20 1 text\n9 30 1 text\n%locals\na.c\nlocal 10 1 text\n");
    expect_written([] { add_symbol("global", 0, 0, 1, SYM_ABS); }, "global 1\n"); // and then there is no heading
}

TEST(orbell_write, files_without_items_are_named_up_to_the_last_with_one)
{
    expect_written(
        [] {
            for (const char *name : {"a.c", "b.c", "c.c", "d.c", "e.c"}) {
                tarn_add_file(name);
            }
            add_symbol("x", 2, 1, 1);
            add_line(5, 4, 1, 2);
        },
        "%locals\na.c\nb.c\nx 1 1 text\nc.c\nd.c\n5 2 1 text\n");
}

TEST(orbell_write, numbers_that_are_no_file_and_no_segment_have_no_name)
{
    expect_written([] { add_symbol("x", 7, 9, 1); }, "%locals\nx 1 9\n");
}

TEST(orbell_write, sorts_the_tables_themselves)
{
    expect_run(
        [] {
            start_model();
            tarn_add_file("a.c");
            add_symbol("high", 1, 0, 2, SYM_ABS);
            add_symbol("low", 1, 0, 1, SYM_ABS);
            add_line(8, 1, 0, 4);
            add_line(9, 1, 0, 3);
            written();
            note("%s%s", symbols_text().c_str(), lines_text().c_str());
        },
        "sym low 1 file 1 seg 0 space 0 abs\nsym high 2 file 1 seg 0 space 0 abs\n"
        "line 9 3 file 1 seg 0 ?\nline 8 4 file 1 seg 0 ?\n\n"); // lines of a test have no flags
}

TEST(orbell_write, names_are_written_once_in_a_run)
{
    expect_run(
        [] {
            start_model();
            tarn_add_file("a.c");
            add_symbol("x", 1, 0, 1, SYM_ABS);
            note("%s", written().c_str());
            note("%s", written().c_str());
        },
        "%locals\na.c\nx 1\n\nx 1\n\n");
}

TEST(orbell_write, large_outputs_are_whole)
{
    expect_run(
        [] {
            start_model();
            tarn_add_file("a.c");
            std::string expected = "%locals\na.c\n";
            for (std::uint32_t i = 0; i < 100000; ++i) {
                const std::string name = text_of("symbol_%05u", i);
                add_symbol(name.c_str(), 1, 0, i, SYM_ABS);
                expected += text_of("%s %X\n", name.c_str(), i);
            }
            note("%s", expected.size() > 1500000 && written() == expected ? "same" : "other");
        },
        "same\n");
}

// --- both ways -------------------------------------------------------------------------------------------------------

// A model that the format can hold: all items have a file, and all but absolute symbols a segment. Segments are
// numbered as the output comes to name them, and have no space.
void make_random_model(std::mt19937 *random)
{
    const auto below = [random](std::uint32_t limit) { return static_cast<std::uint32_t>((*random)() % limit); };
    constexpr std::uint32_t FILES = 12;
    for (std::uint32_t i = 1; i <= FILES; ++i) {
        tarn_add_file(text_of(i % 3 == 0 ? "dir\\f%u.as" : "f%u.c", i).c_str());
    }
    add_segment("text");
    add_segment("data");
    for (std::uint32_t segment = 1; segment <= 2; ++segment) {
        add_symbol(segment == 1 ? "start" : "start_data", 1, segment, 0, SYM_LOCAL);
    }
    for (std::uint32_t i = 0; i < 400; ++i) {
        const std::string name = text_of("s%u", i);
        const std::uint32_t segment = below(3);
        add_symbol(name.c_str(), 1 + below(FILES), segment, below(0xFFFFFFFF),
                   SYM_LOCAL | (segment == 0 ? SYM_ABS : 0U));
        tarn_line line;
        line.ln_file = 1 + below(FILES);
        line.ln_seg = 1 + below(2);
        line.ln_addr = below(50);
        line.ln_line = below(0x80000000);
        line.ln_flags = LN_SOURCE;
        tarn_add_line(line);
    }
    add_symbol("end", FILES, 1, 0xFFFFFFFF, SYM_LOCAL);
}

TEST(orbell_write, what_was_written_reads_back_as_it_was)
{
    for (std::uint32_t seed = 1; seed <= 5; ++seed) {
        expect_run(
            [seed] {
                std::mt19937 random(seed);
                start_model();
                make_random_model(&random);
                const std::string output = written();
                const std::string before = model_text(); // of the sorted tables
                read_text(output);
                note("%s", model_text() == before ? "same" : (before + "---\n" + model_text()).c_str());
            },
            "same\n");
    }
}

} // namespace
