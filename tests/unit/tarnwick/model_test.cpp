// SPDX-License-Identifier: MIT
#include "compiler/tarnwick/model.h"

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/stringcache.h"
#include "compiler/tarnwick/format.h"
#include "compiler/tarnwick/options.h"
#include "tests/unit/scenario.h"
#include "tests/unit/tarnwick/random_numbers.h"
#include "tests/unit/tarnwick/trace_log.h"

namespace {

constexpr std::uint32_t CODE = 1;
constexpr std::uint32_t DATA = 2;

class Model : public testing::Test {
protected:
    void SetUp() override
    {
        opt_strip_ext = false;
        model_create();
        set_add(code_spaces, CODE);
        set_add(data_spaces, DATA);
    }
    void TearDown() override { opt_strip_ext = false; }
};

tarn_symbol *add_symbol(const char *name, std::uint32_t value, std::uint32_t file = 0)
{
    tarn_symbol record;
    record.sy_name = name;
    record.sy_value = value;
    record.sy_file = file;
    record.sy_seg = 3;
    return tarn_add_symbol(record);
}

} // namespace

TEST_F(Model, TablesAreEmptyAndOfTheirSizes)
{
    EXPECT_EQ(symbols_by_name.raw()->size, 2003U);
    EXPECT_EQ(symbols_by_value.raw()->size, 2003U);
    EXPECT_EQ(files_by_name.raw()->size, 199U);
    EXPECT_EQ(psect_flags_table.raw()->size, 199U);
    EXPECT_EQ(psect_table.raw()->size, 123U);
    EXPECT_EQ(file_list.raw()->initial_size, 25U);
    EXPECT_EQ(symbol_list.raw()->initial_size, 100U);
    EXPECT_EQ(seg_list.raw()->initial_size, 25U);
    EXPECT_EQ(data_list.raw()->initial_size, 100U);
    EXPECT_EQ(line_list.raw()->initial_size, 100U);
    EXPECT_EQ(symbols_by_name.count() + symbols_by_value.count() + files_by_name.count() + psect_table.count(), 0U);
    EXPECT_EQ(file_list.count() + symbol_list.count() + seg_list.count() + data_list.count() + line_list.count(), 0U);
    EXPECT_TRUE(set_is_empty(eeprom_spaces));
}

TEST_F(Model, FilesAreNumberedFrom1)
{
    EXPECT_EQ(tarn_add_file(nullptr), 0U);
    EXPECT_EQ(tarn_add_file("a.c"), 1U);
    EXPECT_EQ(tarn_add_file("b.c"), 2U);
    EXPECT_EQ(tarn_add_file("a.c"), 1U);
    EXPECT_EQ(file_list.count(), 2U);
    EXPECT_EQ(file_list.get(1)->fl_index, 2U);
    EXPECT_STREQ(file_list.get(1)->fl_name, "b.c");
}

TEST_F(Model, FilesThatDifferInCaseAreOne)
{
    EXPECT_EQ(tarn_add_file("Main.C"), 1U);
    EXPECT_EQ(tarn_add_file("mAIN.c"), 1U);
    EXPECT_STREQ(file_list.get(0)->fl_name, "Main.C"); // the first spelling stays
}

TEST_F(Model, FilesWithoutExtension)
{
    opt_strip_ext = true;
    EXPECT_EQ(tarn_add_file("main.c"), 1U);
    EXPECT_EQ(tarn_add_file("main.h"), 1U);
    EXPECT_EQ(tarn_add_file("dir.x\\file"), 2U); // a backslash behind the point
    EXPECT_STREQ(file_list.get(0)->fl_name, "main");
    EXPECT_STREQ(file_list.get(1)->fl_name, "dir.x\\file");
    EXPECT_EQ(tarn_find_file("MAIN.o"), file_list.get(0));
    EXPECT_EQ(tarn_find_file("main"), file_list.get(0));
}

TEST_F(Model, Symbols)
{
    const std::uint32_t file = tarn_add_file("f");
    std::string name = "sym";
    const tarn_symbol *first = add_symbol(name.c_str(), 5, file);
    name = "xxx"; // the model has its own copy
    const tarn_symbol *second = add_symbol("sym", 6, file);
    add_symbol("other", 6, 0);
    EXPECT_STREQ(first->sy_name, "sym");
    EXPECT_EQ(first->sy_name, second->sy_name);
    EXPECT_EQ(tarn_find_symbol("sym"), first); // a later one does not replace it
    EXPECT_EQ(tarn_find_symbol_at(5), first);
    EXPECT_EQ(tarn_find_symbol_at(6), second);
    EXPECT_EQ(tarn_find_symbol_at(7), nullptr);
    EXPECT_EQ(symbol_list.count(), 3U);
    EXPECT_EQ(file_list.get(0)->fl_nsymbols, 2U);
}

TEST_F(Model, SymbolsInFAreNotFoundByValue)
{
    const tarn_symbol *f = add_symbol("Fine", 5);
    EXPECT_EQ(tarn_find_symbol("Fine"), f);
    EXPECT_EQ(tarn_find_symbol_at(5), nullptr);
    const tarn_symbol *lower = add_symbol("fine", 5);
    EXPECT_EQ(tarn_find_symbol_at(5), lower);
}

namespace {

// A symbol with a random name and one of `values` values, and the first of each value that is found by it.
void add_random_symbol(random_numbers *random, std::uint32_t values,
                       std::map<std::uint32_t, const tarn_symbol *> *firsts)
{
    static constexpr const char *FRONTS[] = {"F", "f", "_F", "", "FF"};
    const std::string name = FRONTS[(*random)() % 5] + std::to_string((*random)() % 10000);
    const std::uint32_t value = (*random)() % values;
    const tarn_symbol *sp = add_symbol(name.c_str(), value, (*random)() % 3);
    if (name[0] != 'F') {
        firsts->emplace(value, sp);
    }
}

void expect_by_value(std::uint32_t values, const std::map<std::uint32_t, const tarn_symbol *> &firsts)
{
    for (std::uint32_t value = 0; value < values; ++value) {
        const auto first = firsts.find(value);
        ASSERT_EQ(tarn_find_symbol_at(value), first != firsts.end() ? first->second : nullptr) << value;
    }
}

} // namespace

TEST_F(Model, SymbolsAreFoundByValueWheneverOneAsks)
{
    constexpr std::uint32_t VALUES = 900;
    random_numbers random(41);
    for (const std::uint32_t often : {1U, 7U, 500U, 100000U}) {
        model_create();
        std::map<std::uint32_t, const tarn_symbol *> firsts;
        for (int i = 0; i < 3000; ++i) {
            add_random_symbol(&random, VALUES, &firsts);
            if (random() % often == 0) {
                const std::uint32_t value = random() % VALUES;
                const auto first = firsts.find(value);
                ASSERT_EQ(tarn_find_symbol_at(value), first != firsts.end() ? first->second : nullptr) << value;
            }
        }
        expect_by_value(VALUES, firsts);
        EXPECT_EQ(symbols_by_value.count(), firsts.size());
        add_random_symbol(&random, VALUES, &firsts);
        add_random_symbol(&random, VALUES, &firsts);
        expect_by_value(VALUES, firsts);
    }
}

// The legacy file's writer sorts the list itself; an output that asks behind it must find whom it found before.
TEST_F(Model, FirstOfAValueStaysBehindAnOutputThatSorts)
{
    expect_run(
        [] {
            model_create();
            const std::uint32_t file = tarn_add_file("a.c");
            add_symbol("first", 5, tarn_add_file("b.c"));
            add_symbol("second", 5, file);
            std::FILE *stream = std::tmpfile();
            format_orbell.write(stream, "out.sym");
            std::fclose(stream);
            note("the list begins with %s, 5 is %s", symbol_list.get(0)->sy_name, tarn_find_symbol_at(5)->sy_name);
        },
        "the list begins with second, 5 is first\n");
}

TEST_F(Model, NewTablesKnowNoValuesOfOldSymbols)
{
    add_symbol("old", 5);
    add_symbol("old_too", 6);
    EXPECT_NE(tarn_find_symbol_at(5), nullptr);
    model_create();
    EXPECT_EQ(tarn_find_symbol_at(5), nullptr);
    const tarn_symbol *sp = add_symbol("new", 6);
    EXPECT_EQ(tarn_find_symbol_at(6), sp);
    EXPECT_EQ(tarn_find_symbol_at(5), nullptr);
}

// The master list tells how full a table was and what it cost to fill, whether or not anyone asked it.
TEST_F(Model, ListedTableOfValuesFillsAsSymbolsCome)
{
    hash_master_list(true);
    model_create();
    hash_master_list(false);
    EXPECT_TRUE(hash_is_listed(symbols_by_value.raw()));
    const tarn_symbol *first = add_symbol("a", 5);
    EXPECT_EQ(symbols_by_value.count(), 1U);
    add_symbol("b", 5);
    add_symbol("F", 6);
    EXPECT_EQ(symbols_by_value.count(), 1U);
    const tarn_symbol *second = add_symbol("c", 6);
    EXPECT_EQ(symbols_by_value.count(), 2U);
    EXPECT_EQ(tarn_find_symbol_at(5), first);
    EXPECT_EQ(tarn_find_symbol_at(6), second);
    model_create();
    EXPECT_FALSE(hash_is_listed(symbols_by_value.raw()));
}

TEST_F(Model, Lines)
{
    const std::uint32_t file = tarn_add_file("f");
    tarn_line record;
    record.ln_file = file;
    record.ln_line = 12;
    const tarn_line *first = tarn_add_line(record);
    record.ln_file = 0;
    tarn_add_line(record);
    EXPECT_EQ(first->ln_line, 12U);
    EXPECT_EQ(line_list.count(), 2U);
    EXPECT_EQ(file_list.get(0)->fl_nlines, 1U);
}

TEST_F(Model, DataIsCopied)
{
    std::uint8_t bytes[3] = {1, 2, 3};
    const tarn_data *dp = tarn_add_data(0x1000, 3, bytes, 4);
    bytes[0] = 9;
    EXPECT_EQ(dp->da_addr, 0x1000U);
    EXPECT_EQ(dp->da_len, 3U);
    EXPECT_EQ(dp->da_bytes[0], 1);
    EXPECT_EQ(dp->da_bytes[2], 3);
    EXPECT_EQ(dp->da_seg, 4U);
    tarn_add_data(0x1000, 0, nullptr, 0);
    EXPECT_EQ(data_list.count(), 2U);
}

TEST_F(Model, PsectFlagsByDefault)
{
    EXPECT_EQ(tarn_add_psect("text", CODE, 1)->ps_flags, PDB_WRITE);
    EXPECT_EQ(tarn_add_psect("bss", DATA, 1)->ps_flags, PDB_WRITE | PDB_NOSPACE);
    EXPECT_EQ(tarn_add_psect("odd", 77, 1)->ps_flags, PDB_WRITE); // an unknown space
}

TEST_F(Model, PsectFlagsFromTheTable)
{
    psect_flags_table.insert("bss", PDB_EXEC);
    psect_flags_table.insert("none", 0);
    EXPECT_EQ(tarn_add_psect("bss", DATA, 1)->ps_flags, PDB_WRITE | PDB_NOSPACE); // nothing was given
    psect_flags_given = true;
    EXPECT_EQ(tarn_add_psect("bss", DATA, 1)->ps_flags, PDB_WRITE | PDB_NOSPACE); // it was there already
    EXPECT_EQ(tarn_add_psect("none", DATA, 1)->ps_flags, 0U);
    model_create();
    psect_flags_given = true;
    psect_flags_table.insert("bss", PDB_EXEC);
    EXPECT_EQ(tarn_add_psect("bss", DATA, 1)->ps_flags, PDB_EXEC);
}

TEST_F(Model, PsectTraces)
{
    const trace_log log;
    tarn_add_psect("text", CODE, 1);
    tarn_add_psect("bss", DATA, 1);
    EXPECT_EQ(trace_log::lines(), (std::vector<std::string>{"ENTER tarn_add_psect", "flags => PDB_WRITE",
                                                            "EXIT tarn_add_psect", "ENTER tarn_add_psect",
                                                            "flags => PDB_WRITE|PDB_NOSPACE", "EXIT tarn_add_psect"}));
}

TEST_F(Model, PsectFoundAgainKeepsItsValues)
{
    const trace_log log;
    tarn_psect *pp = tarn_add_psect("text", CODE, 2);
    EXPECT_EQ(tarn_add_psect("text", CODE, 2), pp);
    EXPECT_TRUE(trace_log::failed().empty());
    EXPECT_EQ(tarn_add_psect("text", DATA, 1), pp);
    EXPECT_EQ(trace_log::failed(), (std::vector<std::string>{"space == pp->ps_space", "delta == pp->ps_delta"}));
    EXPECT_EQ(pp->ps_space, CODE);
    EXPECT_EQ(pp->ps_delta, 2U);
    EXPECT_EQ(tarn_find_psect("text"), pp);
    EXPECT_EQ(tarn_find_psect("TEXT"), nullptr);
}

TEST_F(Model, PsectRangesBecomeBytes)
{
    tarn_psect *pp = tarn_add_psect("text", CODE, 2);
    const tarn_psect_range *range =
        tarn_add_psect_range(pp, {.pr_lo = 0x10, .pr_hi = 0x20, .pr_load = 0x30, .pr_object = "a.obj"});
    EXPECT_EQ(range->pr_lo, 0x20U);
    EXPECT_EQ(range->pr_hi, 0x3FU);
    EXPECT_EQ(range->pr_load, 0x60U);
    EXPECT_EQ(range->pr_psect, pp);
    EXPECT_STREQ(range->pr_object, "a.obj");
    const tarn_psect_range *empty = tarn_add_psect_range(pp, {.pr_lo = 0x10, .pr_hi = 0x10, .pr_load = 0});
    EXPECT_EQ(empty->pr_hi + 1, empty->pr_lo);
    // In 32 bits.
    const tarn_psect_range *wrapped =
        tarn_add_psect_range(pp, {.pr_lo = 0x80000001, .pr_hi = 0x80000000, .pr_load = 0});
    EXPECT_EQ(wrapped->pr_lo, 2U);
    EXPECT_EQ(wrapped->pr_hi, 0xFFFFFFFFU);
    EXPECT_EQ(pp->ps_ranges.count(), 3U);
}

TEST_F(Model, NullPsects)
{
    const trace_log log;
    EXPECT_EQ(tarn_add_psect_range(nullptr, {}), nullptr);
    tarn_psect_set_lo(nullptr, 1);
    tarn_psect_set_hi(nullptr, 1);
    tarn_psect_set_load(nullptr, 1);
    EXPECT_EQ(tarn_psect_range_at(nullptr, 1, true), nullptr);
    EXPECT_EQ(trace_log::failed(), std::vector<std::string>(5, "pp != NULL"));
}

TEST_F(Model, FirstRangeIsMadeOnDemand)
{
    const auto bounds = [](const tarn_psect *pp) {
        const tarn_psect_range *range = pp->ps_ranges.get(0);
        return std::vector<std::uint32_t>{range->pr_lo, range->pr_hi, range->pr_load};
    };
    tarn_psect *pp = tarn_add_psect("a", CODE, 2);
    tarn_psect_set_lo(pp, 0x100);
    EXPECT_EQ(bounds(pp), (std::vector<std::uint32_t>{0x100, 0xFFFFFFFF, 0}));
    tarn_psect_set_load(pp, 0x200);
    tarn_psect_set_hi(pp, 0x1FF);
    EXPECT_EQ(bounds(pp), (std::vector<std::uint32_t>{0x100, 0x1FF, 0x200})); // not multiplied
    EXPECT_EQ(pp->ps_ranges.count(), 1U);
    pp = tarn_add_psect("b", CODE, 1);
    tarn_psect_set_hi(pp, 5);
    EXPECT_EQ(bounds(pp), (std::vector<std::uint32_t>{0, 5, 0}));
    pp = tarn_add_psect("c", CODE, 1);
    tarn_psect_set_load(pp, 7);
    EXPECT_EQ(bounds(pp), (std::vector<std::uint32_t>{0, 0xFFFFFFFF, 7}));
}

TEST_F(Model, FirstRangeOfSeveral)
{
    const trace_log log;
    tarn_psect *pp = tarn_add_psect("a", CODE, 1);
    tarn_add_psect_range(pp, {});
    tarn_psect_set_lo(pp, 1);
    EXPECT_TRUE(trace_log::failed().empty());
    tarn_add_psect_range(pp, {});
    tarn_psect_set_lo(pp, 2);
    EXPECT_EQ(trace_log::failed(), std::vector<std::string>{"num_ranges <= 1"});
    EXPECT_EQ(pp->ps_ranges.get(0)->pr_lo, 2U);
}
