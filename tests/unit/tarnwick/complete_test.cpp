// SPDX-License-Identifier: MIT
#include "compiler/tarnwick/complete.h"

#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "common/alert.h"
#include "compiler/tarnwick/options.h"
#include "tests/unit/scenario.h"
#include "tests/unit/tarnwick/random_numbers.h"

namespace {

tarn_line *add_line(std::uint32_t file, std::uint32_t line, std::uint32_t address, std::uint32_t segment = 0)
{
    return tarn_add_line(
        {.ln_file = file, .ln_addr = address, .ln_seg = segment, .ln_flags = LN_SOURCE, .ln_line = line});
}

tarn_symbol *add_symbol(const char *name, std::uint32_t file, std::uint32_t value = 0, std::uint32_t segment = 0)
{
    tarn_symbol record;
    record.sy_name = name;
    record.sy_file = file;
    record.sy_value = value;
    record.sy_seg = segment;
    return tarn_add_symbol(record);
}

void add_segment(const char *name)
{
    tarn_segment record;
    record.sg_name = name;
    record.sg_noranges = true;
    tarn_add_segment(record);
}

// Ends of lines at these addresses, all of one file.
std::vector<std::uint32_t> ends_of(const std::vector<std::uint32_t> &addresses)
{
    model_create();
    for (std::uint32_t i = 0; i < addresses.size(); ++i) {
        add_line(1, 10 + i, addresses[i]);
    }
    line_span_fixup();
    std::vector<std::uint32_t> ends;
    for (const tarn_line *lp : each(line_list)) {
        ends.push_back(lp->ln_end);
    }
    return ends;
}

std::string symbols_of(std::uint32_t file)
{
    const tarn_file *fp = file_list.get(file - 1);
    std::string names;
    for (std::uint32_t i = 0; i < fp->fl_nsymbols; ++i) {
        names += fp->fl_symbols[i]->sy_name;
        names += ' ';
    }
    return names;
}

} // namespace

TEST(LineSpans, NoLines)
{
    model_create();
    line_span_fixup();
    EXPECT_EQ(line_list.count(), 0U);
}

TEST(LineSpans, LastLineEndsAtItsAddress)
{
    EXPECT_EQ(ends_of({0x100}), (std::vector<std::uint32_t>{0x100}));
    EXPECT_EQ(ends_of({0x100, 0x110}), (std::vector<std::uint32_t>{0x10F, 0x110}));
}

TEST(LineSpans, OrderOfTheListStays)
{
    EXPECT_EQ(ends_of({0x120, 0x100, 0x110}), (std::vector<std::uint32_t>{0x120, 0x10F, 0x11F}));
}

TEST(LineSpans, EqualAddresses)
{
    // By line number the second of them is the one that spans to the next address.
    EXPECT_EQ(ends_of({0x100, 0x100, 0x104}), (std::vector<std::uint32_t>{0x100, 0x103, 0x104}));
    // With equal lines the file decides.
    model_create();
    const tarn_line *later = add_line(2, 5, 0x100);
    const tarn_line *earlier = add_line(1, 5, 0x100);
    add_line(1, 6, 0x108);
    line_span_fixup();
    EXPECT_EQ(earlier->ln_end, 0x100U);
    EXPECT_EQ(later->ln_end, 0x107U);
}

TEST(LineSpans, Limit)
{
    EXPECT_EQ(ends_of({0, 255}), (std::vector<std::uint32_t>{254, 255}));
    EXPECT_EQ(ends_of({0, 256}), (std::vector<std::uint32_t>{0, 256}));
    EXPECT_EQ(ends_of({0, 0x80000000, 0xFFFFFFFF}), (std::vector<std::uint32_t>{0, 0x80000000, 0xFFFFFFFF}));
}

TEST(LineSpans, LimitIsReportedWithinOneFile)
{
    const auto two_lines = [](std::uint32_t file, std::uint32_t address) {
        return [=] {
            alert_set_level(-9);
            model_create();
            const tarn_line *first = add_line(1, 1, 0x100);
            add_line(file, 2, address);
            line_span_fixup();
            note("%X", first->ln_end);
        };
    };
    expect_run(two_lines(1, 0x200),
               "(1289) line range limit exceeded, possibly affecting ability to debug code (warning)\n100\n");
    expect_run(two_lines(1, 0x1FF), "1FE\n");
    expect_run(two_lines(2, 0x200), "100\n");
    // At the level of the start it is hidden.
    expect_run(
        [] {
            model_create();
            add_line(1, 1, 0);
            add_line(1, 2, 0x1000);
            line_span_fixup();
        },
        "");
}

// Two modules whose functions alternate, as when the linker sorts functions. The program's own quicksort takes minutes
// for runs that interleave.
TEST(LineSpans, InterleavedModulesTakeLittleTime)
{
    constexpr std::uint32_t LINES = 400000;
    model_create();
    for (const std::uint32_t module : {0U, 1U}) {
        for (std::uint32_t i = 0; i < LINES / 2; ++i) {
            add_line(module + 1, i + 1, 8 * i + 4 * module);
        }
    }
    line_span_fixup();
    EXPECT_EQ(line_list.get(0)->ln_end, 3U);
    EXPECT_EQ(line_list.get(LINES / 2)->ln_end, 7U);
    EXPECT_EQ(line_list.get(LINES / 2 - 1)->ln_end, 4 * (LINES - 2) + 3);
    EXPECT_EQ(line_list.last()->ln_end, 4 * (LINES - 1));
}

TEST(LineSpans, AsThePlainWords)
{
    random_numbers random(11);
    for (int round = 0; round < 100; ++round) {
        model_create();
        struct plain {
            std::uint32_t address, line, file;
            tarn_line *record;
        };
        std::vector<plain> lines;
        for (std::uint32_t n = 1 + random() % 60; n > 0; --n) {
            const auto address = static_cast<std::uint32_t>(random() % 3000);
            const auto line = static_cast<std::uint32_t>(random() % 50);
            const auto file = static_cast<std::uint32_t>(1 + random() % 3);
            lines.push_back({address, line, file, add_line(file, line, address)});
        }
        line_span_fixup();
        for (const plain &p : lines) {
            // Whatever the order of equals, a line ends at its own address or one before the next higher one.
            std::uint32_t next = p.address;
            for (const plain &other : lines) {
                if (other.address > p.address && (next == p.address || other.address < next)) {
                    next = other.address;
                }
            }
            const bool last_of_address = std::none_of(lines.begin(), lines.end(), [&](const plain &other) {
                return other.address == p.address && std::tie(other.line, other.file) > std::tie(p.line, p.file);
            });
            const bool only = std::none_of(lines.begin(), lines.end(), [&](const plain &other) {
                return other.record != p.record && other.address == p.address && other.line == p.line &&
                       other.file == p.file;
            });
            if (!last_of_address || next == p.address || next - p.address > 255) {
                EXPECT_EQ(p.record->ln_end, p.address);
            } else if (only) {
                EXPECT_EQ(p.record->ln_end, next - 1);
            }
        }
    }
}

TEST(Distribute, SymbolsAndLinesOfEachFile)
{
    opt_verbose = 0;
    model_create();
    const std::uint32_t one = tarn_add_file("one");
    const std::uint32_t none = tarn_add_file("none");
    const std::uint32_t two = tarn_add_file("two");
    add_symbol("b", two);
    add_symbol("a", one);
    add_symbol("stray", 0);
    add_symbol("c", two);
    add_symbol("a", two);
    const tarn_line *third = add_line(one, 7, 0x20);
    const tarn_line *first = add_line(one, 5, 0x30);
    const tarn_line *second = add_line(one, 7, 0x10);
    distribute_by_file(0);
    EXPECT_EQ(symbols_of(one), "a ");
    EXPECT_EQ(symbols_of(two), "b c a ");
    EXPECT_EQ(file_list.get(none - 1)->fl_symbols, nullptr);
    EXPECT_EQ(file_list.get(none - 1)->fl_lines, nullptr);
    const tarn_file *fp = file_list.get(one - 1);
    ASSERT_EQ(fp->fl_nlines, 3U);
    EXPECT_EQ(fp->fl_lines[0], first);
    EXPECT_EQ(fp->fl_lines[1], second);
    EXPECT_EQ(fp->fl_lines[2], third);
    EXPECT_EQ(line_list.get(0), third); // the list itself keeps its order
}

TEST(Distribute, LinesAreSortedByLineAddressAndEnd)
{
    opt_verbose = 0;
    model_create();
    const std::uint32_t file = tarn_add_file("f");
    random_numbers random(5);
    for (int i = 0; i < 500; ++i) {
        tarn_line *lp = add_line(file, random() % 40 << 26, random() % 8 << 29);
        lp->ln_end = random() % 4 << 30;
    }
    distribute_by_file(0);
    const tarn_file *fp = file_list.get(file - 1);
    const auto key = [](const tarn_line *lp) { return std::tie(lp->ln_line, lp->ln_addr, lp->ln_end); };
    EXPECT_TRUE(std::is_sorted(fp->fl_lines, fp->fl_lines + fp->fl_nlines,
                               [&](const tarn_line *a, const tarn_line *b) { return key(a) < key(b); }));
}

// A file whose lines rise and then fall is the slowest for the program's own quicksort.
TEST(Distribute, LinesThatRiseAndFallTakeLittleTime)
{
    constexpr std::uint32_t LINES = 400000;
    opt_verbose = 0;
    model_create();
    const std::uint32_t file = tarn_add_file("f");
    for (std::uint32_t i = 0; i < LINES; ++i) {
        add_line(file, i < LINES / 2 ? i : LINES - i, i);
    }
    distribute_by_file(0);
    const tarn_file *fp = file_list.get(file - 1);
    EXPECT_EQ(fp->fl_lines[0]->ln_addr, 0U);
    EXPECT_EQ(fp->fl_lines[1]->ln_addr, 1U);
    EXPECT_EQ(fp->fl_lines[2]->ln_addr, LINES - 1);
    EXPECT_EQ(fp->fl_lines[LINES - 1]->ln_addr, LINES / 2);
}

TEST(Distribute, VerboseListing)
{
    const auto run = [](int verbose) {
        return [verbose] {
            model_create();
            opt_verbose = static_cast<std::uint8_t>(verbose);
            add_segment("text");
            add_segment("bss0");
            const std::uint32_t file = tarn_add_file("main.c");
            tarn_add_file("empty.c");
            add_symbol("main", file, 0xABC, 1);
            add_symbol("x", file, 0x123456789 & 0xFFFFFFFF, 3);
            add_symbol("y", file, 5, 0);
            add_line(file, 123456, 0xABC, 2)->ln_end = 0xABF;
            add_line(file, 7, 0x10, 0)->ln_end = 0x10;
            distribute_by_file(6);
        };
    };
    expect_run(run(0), "");
    expect_run(run(1), "\nFile: main.c\nSymbols: 3\nLines: 2\n\nFile: empty.c\nSymbols: 0\nLines: 0\n");
    expect_run(run(2), "\nFile: main.c\nSymbols: 3\n"
                       "\ttext   ABC      main\n"
                       "\t       23456789 x\n"
                       "\t       5        y\n"
                       "Lines: 2\n"
                       "\t00007: 10-10 \n"
                       "\t123456: ABC-ABF bss0\n"
                       "\nFile: empty.c\nSymbols: 0\nLines: 0\n");
}

TEST(Distribute, TablesThatRunDry)
{
    // A count that the list does not bear out; what was found is printed before the report.
    expect_run(
        [] {
            model_create();
            opt_verbose = 2;
            const std::uint32_t file = tarn_add_file("a");
            tarn_add_file("b");
            add_symbol("s", file, 1);
            file_list.get(0)->fl_nsymbols = 2;
            distribute_by_file(0);
        },
        "\nFile: a\nSymbols: 2\n\t 1        s\n(606) inconsistent symbol tables\n", 1);
    expect_run(
        [] {
            model_create();
            opt_verbose = 1;
            tarn_add_file("a");
            const std::uint32_t file = tarn_add_file("b");
            add_line(file, 1, 1);
            file_list.get(1)->fl_nlines = 2;
            distribute_by_file(0);
        },
        "\nFile: a\nSymbols: 0\nLines: 0\n\nFile: b\nSymbols: 0\nLines: 2\n(607) inconsistent line number tables\n", 1);
}

TEST(Distribute, FilesThatAreNone)
{
    model_create();
    opt_verbose = 0;
    tarn_add_file("a");
    add_symbol("s", 2);
    add_line(9, 1, 1);
    distribute_by_file(0);
    EXPECT_EQ(file_list.get(0)->fl_nsymbols, 0U);
    EXPECT_EQ(file_list.get(0)->fl_nlines, 0U);
}
