// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/osdep.h"
#include "compiler/tarnwick/complete.h"
#include "compiler/tarnwick/model.h"
#include "compiler/tarnwick/options.h"
#include "tests/unit/tarnwick/random_numbers.h"
#include "tests/unit/tarnwick/trace_log.h"

namespace {

constexpr std::uint32_t CODE = 1;
constexpr std::uint32_t DATA = 2;
constexpr std::uint32_t EEPROM = 3;

class ModelFind : public testing::Test {
protected:
    void SetUp() override
    {
        opt_strip_ext = false;
        opt_verbose = 0;
        model_create();
        set_add(code_spaces, CODE);
        set_add(data_spaces, DATA);
        set_add(eeprom_spaces, EEPROM);
    }
};

tarn_symbol *add_symbol(const char *name, std::uint32_t file, std::uint32_t value = 0)
{
    tarn_symbol record;
    record.sy_name = name;
    record.sy_file = file;
    record.sy_value = value;
    record.sy_seg = 7;
    return tarn_add_symbol(record);
}

void add_line(const char *file, std::uint32_t line, std::uint32_t address)
{
    tarn_add_line({.ln_file = tarn_add_file(file), .ln_addr = address, .ln_line = line});
}

void add_segment(const char *name, std::uint32_t space)
{
    tarn_segment record;
    record.sg_name = name;
    record.sg_space = space;
    tarn_add_segment(record);
}

struct found_line {
    int result;
    std::uint32_t address;

    bool operator==(const found_line &) const = default;
};

void PrintTo(const found_line &found, std::ostream *out)
{
    *out << found.result << " at " << std::hex << found.address << std::dec;
}

constexpr found_line NOT_FOUND = {0, 0};

using range_list = std::vector<address_range>;

found_line find_line(const char *name, std::uint32_t line)
{
    found_line found = NOT_FOUND;
    found.result = tarn_line_addr(name, line, &found.address, nullptr, 0);
    return found;
}

found_line find_line(const char *name, std::uint32_t line, const range_list &ranges)
{
    found_line found = NOT_FOUND;
    found.result = tarn_line_addr(name, line, &found.address, ranges.data(), static_cast<std::uint32_t>(ranges.size()));
    return found;
}

found_line find_any(const char *name, std::uint32_t line)
{
    found_line found = NOT_FOUND;
    found.result = tarn_line_addr_any(name, line, &found.address, nullptr, 0);
    return found;
}

// The search as it is told: a walk over all files and all their lines.
found_line plain_line_addr(const std::vector<tarn_file *> &files, const char *name, std::uint32_t line,
                           const range_list *ranges, bool exact)
{
    const auto listed = [&](const tarn_line *lp) {
        return ranges == nullptr || std::any_of(ranges->begin(), ranges->end(), [&](const address_range &range) {
                   return lp->ln_addr >= range.low && lp->ln_addr <= range.high;
               });
    };
    const tarn_line *p = nullptr; // not reset between files
    for (const tarn_file *fp : files) {
        const bool same =
            exact ? std::strcmp(name, fp->fl_name) == 0 : std::strcmp(path_tail(name), path_tail(fp->fl_name)) == 0;
        for (std::uint32_t i = 0; same && i < fp->fl_nlines; ++i) {
            const tarn_line *c = fp->fl_lines[i];
            if (p != nullptr && p->ln_line <= line && line <= c->ln_line) {
                if (p->ln_line == line && listed(p)) {
                    return {1, p->ln_addr};
                }
                if (listed(c)) {
                    return {c->ln_line == line ? 1 : -1, c->ln_addr};
                }
            }
            p = c;
        }
    }
    return NOT_FOUND;
}

std::vector<tarn_file *> all_files()
{
    std::vector<tarn_file *> files;
    for (tarn_file *fp : each(file_list)) {
        files.push_back(fp);
    }
    return files;
}

} // namespace

TEST_F(ModelFind, Files)
{
    tarn_add_file("Main.c");
    EXPECT_EQ(tarn_find_file("main.C"), file_list.get(0));
    EXPECT_EQ(tarn_find_file("main"), nullptr);
    EXPECT_EQ(tarn_find_file(nullptr), nullptr);
}

TEST_F(ModelFind, SymbolsOfAFile)
{
    const std::uint32_t one = tarn_add_file("one.c");
    const std::uint32_t two = tarn_add_file("two.c");
    const tarn_symbol *in_one = add_symbol("twin", one, 1);
    const tarn_symbol *in_two = add_symbol("twin", two, 2);
    add_symbol("twin", two, 3);
    add_symbol("only", one);
    EXPECT_EQ(tarn_file_symbol("one.c", "twin"), nullptr); // not distributed yet
    distribute_by_file(0);
    EXPECT_EQ(tarn_file_symbol("one.c", "twin"), in_one);
    EXPECT_EQ(tarn_file_symbol("TWO.C", "twin"), in_two); // the first of them
    EXPECT_EQ(tarn_file_symbol("two.c", "only"), nullptr);
    EXPECT_EQ(tarn_file_symbol("two.c", "none"), nullptr);
    EXPECT_EQ(tarn_file_symbol("no.c", "twin"), nullptr);
}

TEST_F(ModelFind, SymbolAddress)
{
    add_symbol("s", 0, 0x89ABCDEF);
    std::uint64_t pair = 1;
    EXPECT_TRUE(tarn_symbol_addr("s", &pair));
    EXPECT_EQ(pair, 0x789ABCDEFU);
    EXPECT_FALSE(tarn_symbol_addr("t", &pair));
    EXPECT_EQ(pair, 0x789ABCDEFU);
}

TEST_F(ModelFind, PsectRange)
{
    tarn_psect *pp = tarn_add_psect("p", CODE, 2);
    tarn_psect_range *first = tarn_add_psect_range(pp, {.pr_lo = 0x10, .pr_hi = 0x20, .pr_load = 0});
    tarn_psect_range *second = tarn_add_psect_range(pp, {.pr_lo = 0x20, .pr_hi = 0x28, .pr_load = 0});
    EXPECT_EQ(tarn_psect_range_at(pp, 0x0F, true), nullptr);
    EXPECT_EQ(tarn_psect_range_at(pp, 0x10, false), first);
    EXPECT_EQ(tarn_psect_range_at(pp, 0x1F, false), first);
    // The start of one range comes before the end of another.
    EXPECT_EQ(tarn_psect_range_at(pp, 0x20, true), second);
    EXPECT_EQ(tarn_psect_range_at(pp, 0x28, false), nullptr);
    EXPECT_EQ(tarn_psect_range_at(pp, 0x28, true), second);
    EXPECT_EQ(tarn_psect_range_at(pp, 0x29, true), nullptr);
}

TEST_F(ModelFind, SpacesAndSegments)
{
    add_segment("text", CODE);
    add_segment("bss", DATA);
    add_segment("eedata", EEPROM);
    EXPECT_TRUE(tarn_is_code_space(CODE));
    EXPECT_FALSE(tarn_is_code_space(DATA));
    EXPECT_TRUE(tarn_is_data_space(DATA));
    EXPECT_FALSE(tarn_is_data_space(EEPROM));
    EXPECT_TRUE(tarn_is_eeprom_space(EEPROM));
    EXPECT_FALSE(tarn_is_eeprom_space(CODE));
    EXPECT_TRUE(tarn_seg_is_code(seg_list.get(0)));
    EXPECT_FALSE(tarn_seg_is_code(seg_list.get(1)));
    EXPECT_TRUE(tarn_seg_is_eeprom(seg_list.get(2)));
    EXPECT_TRUE(tarn_segno_is_code(1));
    EXPECT_FALSE(tarn_segno_is_code(2));
    EXPECT_TRUE(tarn_segno_is_data(2));
    EXPECT_FALSE(tarn_segno_is_data(1));
}

TEST_F(ModelFind, SegmentsThatAreNone)
{
    const trace_log log;
    EXPECT_FALSE(tarn_segno_is_code(0));
    EXPECT_FALSE(tarn_segno_is_data(0));
    EXPECT_TRUE(trace_log::failed().empty());
    EXPECT_FALSE(tarn_seg_is_code(nullptr));
    EXPECT_FALSE(tarn_seg_is_eeprom(nullptr));
    EXPECT_FALSE(tarn_segno_is_code(1));
    EXPECT_FALSE(tarn_segno_is_data(1));
    EXPECT_EQ(trace_log::failed(), std::vector<std::string>(4, "seg != NULL"));
}

TEST_F(ModelFind, NameCounter)
{
    auto counters = hash_of<const char *, std::uint32_t>::make_strings(101);
    EXPECT_STREQ(tarn_name_counter(counters, "text"), "text");
    EXPECT_STREQ(tarn_name_counter(counters, "text"), "text1");
    EXPECT_STREQ(tarn_name_counter(counters, "data"), "data");
    EXPECT_STREQ(tarn_name_counter(counters, "text"), "text2");
    // A name that a counter made is not taken for having been there.
    EXPECT_STREQ(tarn_name_counter(counters, "text1"), "text1");
    counters.free();
}

TEST_F(ModelFind, LineAddress)
{
    add_line("a.c", 10, 0x100);
    add_line("a.c", 12, 0x110);
    add_line("a.c", 20, 0x120);
    distribute_by_file(0);
    EXPECT_EQ(find_line("a.c", 9), NOT_FOUND); // nothing stands in front of it
    EXPECT_EQ(find_line("a.c", 10), (found_line{1, 0x100}));
    EXPECT_EQ(find_line("a.c", 11), (found_line{-1, 0x110}));
    EXPECT_EQ(find_line("a.c", 12), (found_line{1, 0x110}));
    EXPECT_EQ(find_line("a.c", 13), (found_line{-1, 0x120}));
    EXPECT_EQ(find_line("a.c", 20), (found_line{1, 0x120}));
    EXPECT_EQ(find_line("a.c", 21), NOT_FOUND);
    EXPECT_EQ(find_line("A.c", 10), NOT_FOUND); // names are compared exactly
    EXPECT_EQ(find_line("b.c", 10), NOT_FOUND);
}

TEST_F(ModelFind, LineAddressOfALoneEntry)
{
    add_line("a.c", 10, 0x100);
    distribute_by_file(0);
    EXPECT_EQ(find_line("a.c", 10), NOT_FOUND);
    EXPECT_EQ(find_any("a.c", 10), NOT_FOUND);
}

TEST_F(ModelFind, LineAddressInRanges)
{
    add_line("a.c", 10, 0x100);
    add_line("a.c", 10, 0x200);
    add_line("a.c", 10, 0x300);
    add_line("a.c", 15, 0x210);
    distribute_by_file(0);
    EXPECT_EQ(find_line("a.c", 10, {{0x100, 0x1FF}}), (found_line{1, 0x100}));
    EXPECT_EQ(find_line("a.c", 10, {{0x200, 0x2FF}}), (found_line{1, 0x200}));
    // Both bounds belong to a range, and any range of the list will do.
    EXPECT_EQ(find_line("a.c", 10, {{0, 0}, {0x300, 0x300}}), (found_line{1, 0x300}));
    // The exact entries lie outside: the later line stands in.
    EXPECT_EQ(find_line("a.c", 10, {{0x201, 0x2FF}}), (found_line{-1, 0x210}));
    EXPECT_EQ(find_line("a.c", 10, {{0x400, 0x4FF}}), NOT_FOUND);
    // An empty list is a list: nothing lies in it.
    std::uint32_t address = 0;
    const address_range nowhere = {};
    EXPECT_EQ(tarn_line_addr("a.c", 10, &address, &nowhere, 0), 0);
}

TEST_F(ModelFind, LineAddressByBaseNameInRanges)
{
    add_line("src/a.c", 10, 0x100);
    add_line("src/a.c", 10, 0x200);
    distribute_by_file(0);
    // In any order.
    const range_list ranges = {{0x200, 0x2FF}, {0x180, 0x18F}};
    std::uint32_t address = 0;
    EXPECT_EQ(tarn_line_addr_any("a.c", 10, &address, ranges.data(), 2), 1);
    EXPECT_EQ(address, 0x200U);
    EXPECT_EQ(tarn_line_addr_any("a.c", 10, &address, &ranges[1], 1), 0);
}

TEST_F(ModelFind, LineAddressWithoutAFileName)
{
    add_line("a.c", 10, 0x100);
    distribute_by_file(0);
    EXPECT_EQ(find_line(nullptr, 10), NOT_FOUND);
    EXPECT_EQ(find_any(nullptr, 10), NOT_FOUND);
}

TEST_F(ModelFind, LineAddressKeepsTheEntryBeforeFromFileToFile)
{
    // Two records of one name, which the adding operation would not make.
    add_line("a.c", 10, 0x100);
    add_line("b.c", 30, 0x200);
    file_list.get(1)->fl_name = file_list.get(0)->fl_name;
    distribute_by_file(0);
    EXPECT_EQ(find_line("a.c", 10), (found_line{1, 0x100}));
    EXPECT_EQ(find_line("a.c", 20), (found_line{-1, 0x200}));
    EXPECT_EQ(find_line("a.c", 30), (found_line{1, 0x200}));
}

TEST_F(ModelFind, LineAddressByBaseName)
{
    add_line("src/a.c", 10, 0x100);
    add_line("src/a.c", 20, 0x110);
    add_line("lib\\a.c", 30, 0x200);
    add_line("lib\\a.c", 40, 0x210);
    distribute_by_file(0);
    EXPECT_EQ(find_line("a.c", 10), NOT_FOUND);
    EXPECT_EQ(find_any("a.c", 10), (found_line{1, 0x100}));
    EXPECT_EQ(find_any("C:\\x\\a.c", 15), (found_line{-1, 0x110}));
    // Of each base name one file is known, the first.
    EXPECT_EQ(find_any("a.c", 30), NOT_FOUND);
    // The exact name goes first; what it does not find is looked for by base name.
    EXPECT_EQ(find_any("lib\\a.c", 30), (found_line{1, 0x200}));
    EXPECT_EQ(find_any("lib\\a.c", 10), (found_line{1, 0x100}));
    EXPECT_EQ(find_any("b.c", 10), NOT_FOUND);
}

TEST_F(ModelFind, BaseNamesAreGatheredOnce)
{
    add_line("src/a.c", 10, 0x100);
    add_line("src/a.c", 20, 0x110);
    distribute_by_file(0);
    EXPECT_EQ(find_any("b.c", 10), NOT_FOUND);
    add_line("src/b.c", 10, 0x300);
    add_line("src/b.c", 20, 0x310);
    distribute_by_file(0);
    EXPECT_EQ(find_any("b.c", 10), NOT_FOUND);
    EXPECT_EQ(find_any("src/b.c", 10), (found_line{1, 0x300})); // exact names are not
}

TEST_F(ModelFind, LineAddressAsThePlainWalk)
{
    const std::vector<const char *> names = {"a.c", "dir/a.c", "b.c", "dir\\b.c", "lone.c", "none.c"};
    random_numbers random(17);
    for (int round = 0; round < 60; ++round) {
        SetUp();
        for (const char *name : names) {
            tarn_add_file(name);
        }
        add_line("lone.c", 5, 5);
        for (std::uint32_t n = random() % 60; n > 0; --n) {
            add_line(names[random() % 4], random() % 25, random() % 64);
        }
        // Now and then two records bear one name.
        if (round % 3 == 0) {
            file_list.get(2)->fl_name = file_list.get(0)->fl_name;
        }
        distribute_by_file(0);
        std::vector<tarn_file *> one_per_base;
        for (tarn_file *fp : all_files()) {
            if (std::none_of(one_per_base.begin(), one_per_base.end(), [&](const tarn_file *other) {
                    return std::strcmp(path_tail(other->fl_name), path_tail(fp->fl_name)) == 0;
                })) {
                one_per_base.push_back(fp);
            }
        }
        for (int query = 0; query < 200; ++query) {
            const char *name = names[random() % names.size()];
            const auto line = static_cast<std::uint32_t>(random() % 27);
            range_list ranges;
            for (std::uint32_t n = random() % 3; n > 0; --n) {
                const auto low = static_cast<std::uint32_t>(random() % 64);
                ranges.push_back({low, low + static_cast<std::uint32_t>(random() % 20)});
            }
            ASSERT_EQ(find_line(name, line), plain_line_addr(all_files(), name, line, nullptr, true));
            if (!ranges.empty()) {
                ASSERT_EQ(find_line(name, line, ranges), plain_line_addr(all_files(), name, line, &ranges, true));
            }
            found_line expected = plain_line_addr(all_files(), name, line, nullptr, true);
            if (expected.result == 0) {
                expected = plain_line_addr(one_per_base, name, line, nullptr, false);
            }
            ASSERT_EQ(find_any(name, line), expected);
        }
    }
}

TEST_F(ModelFind, LineAddressInOrderedRanges)
{
    add_line("src/a.c", 10, 0x100);
    add_line("src/a.c", 10, 0x200);
    add_line("src/a.c", 15, 0x210);
    distribute_by_file(0);
    const auto find = [](const char *name, std::uint32_t line, const range_list &ordered) {
        found_line found = NOT_FOUND;
        found.result = tarn_line_addr_any(name, line, &found.address, ordered);
        return found;
    };
    EXPECT_EQ(find("src/a.c", 10, {{0x180, 0x200}, {0x300, 0x3FF}}), (found_line{1, 0x200}));
    EXPECT_EQ(find("a.c", 10, {{0x180, 0x200}, {0x300, 0x3FF}}), (found_line{1, 0x200}));
    EXPECT_EQ(find("a.c", 10, {{0x201, 0x210}}), (found_line{-1, 0x210}));
    EXPECT_EQ(find("a.c", 10, {{0x300, 0x3FF}}), NOT_FOUND);
    EXPECT_EQ(find("a.c", 10, {}), (found_line{1, 0x100})); // no list: any address counts
    EXPECT_EQ(find("b.c", 10, {}), NOT_FOUND);
    EXPECT_EQ(find(nullptr, 10, {}), NOT_FOUND);
}

// Few lines with many entries each, and lists of ranges in any order, overlapping and upside down.
TEST_F(ModelFind, LineAddressAmongManyEntriesAsThePlainWalk)
{
    constexpr std::uint32_t ADDRESSES = 64;
    random_numbers random(18);
    for (int round = 0; round < 100; ++round) {
        SetUp();
        for (std::uint32_t n = random() % 100; n > 0; --n) {
            add_line("a.c", random() % 4, random() % ADDRESSES);
        }
        distribute_by_file(0);
        for (int query = 0; query < 200; ++query) {
            const auto line = static_cast<std::uint32_t>(random() % 5);
            range_list ranges;
            for (std::uint32_t n = 1 + random() % 8; n > 0; --n) {
                const auto low = static_cast<std::uint32_t>(random() % ADDRESSES);
                ranges.push_back({low, low + random() % 8 - 2});
            }
            const found_line expected = plain_line_addr(all_files(), "a.c", line, &ranges, true);
            ASSERT_EQ(find_line("a.c", line, ranges), expected);
            range_list ordered; // address by address
            for (std::uint32_t address = 0; address < ADDRESSES; ++address) {
                if (std::any_of(ranges.begin(), ranges.end(), [address](const address_range &range) {
                        return range.low <= address && address <= range.high;
                    })) {
                    ordered.push_back({address, address});
                }
            }
            if (!ordered.empty()) {
                found_line found = NOT_FOUND;
                found.result = tarn_line_addr_any("a.c", line, &found.address, ordered);
                ASSERT_EQ(found, expected);
            }
        }
    }
}
