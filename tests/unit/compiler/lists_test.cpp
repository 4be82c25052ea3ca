// SPDX-License-Identifier: MIT
// Range lists, the linker's numbers, the memory description and the letters of psect flags.
#include "compiler/common/lists.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "common/alert.h"
#include "common/stringcache.h"

namespace {

using ranges = std::vector<std::pair<std::uint32_t, std::uint32_t>>;

ranges ranges_of(const memory_range *list)
{
    ranges result;
    for (; list != nullptr; list = list->next) {
        result.emplace_back(list->lo, list->hi);
    }
    return result;
}

// A list that frees itself.
struct range_list {
    range_list() = default;
    ~range_list() { range_free(&head); }
    range_list(const range_list &) = delete;
    range_list &operator=(const range_list &) = delete;

    range_list &add(std::uint32_t lo, std::uint32_t hi, bool join = false)
    {
        range_add(&head, lo, hi, join);
        return *this;
    }
    ranges entries() const { return ranges_of(head); }

    memory_range *head = nullptr;
};

constexpr bool JOIN = true;
constexpr std::uint32_t TOP = 0xFFFFFFFF;

// A fatal report: its text, and the end of the process.
#define EXPECT_FATAL(statement, text)                                                                                  \
    EXPECT_EXIT(                                                                                                       \
        {                                                                                                              \
            alert_set_position(nullptr, nullptr);                                                                      \
            statement;                                                                                                 \
        },                                                                                                             \
        testing::ExitedWithCode(1), testing::Eq(std::string(text "\n")))

// ---- Range lists

TEST(RangeAdd, EmptyListGetsOneEntry)
{
    EXPECT_EQ(range_list().add(10, 20).entries(), (ranges{{10, 20}}));
    EXPECT_EQ(range_list().add(0, TOP).entries(), (ranges{{0, TOP}}));
    EXPECT_EQ(range_list().add(7, 7).entries(), (ranges{{7, 7}}));
}

TEST(RangeAdd, RangeInsideAnEntryChangesNothing)
{
    for (const bool join : {false, true}) {
        range_list list;
        list.add(10, 20).add(30, 40);
        list.add(10, 20, join).add(12, 15, join).add(10, 10, join).add(40, 40, join);
        EXPECT_EQ(list.entries(), (ranges{{10, 20}, {30, 40}}));
    }
}

TEST(RangeAdd, RangeApartBecomesAnEntryAtItsPlace)
{
    for (const bool join : {false, true}) {
        range_list list;
        list.add(30, 40, join).add(10, 20, join).add(50, 60, join).add(44, 46, join);
        EXPECT_EQ(list.entries(), (ranges{{10, 20}, {30, 40}, {44, 46}, {50, 60}}));
    }
}

TEST(RangeAdd, OverlapExtendsAtEitherSide)
{
    EXPECT_EQ(range_list().add(10, 20).add(5, 12).entries(), (ranges{{5, 20}}));
    EXPECT_EQ(range_list().add(10, 20).add(18, 25).entries(), (ranges{{10, 25}}));
    EXPECT_EQ(range_list().add(10, 20).add(5, 25).entries(), (ranges{{5, 25}}));
    EXPECT_EQ(range_list().add(10, 20).add(20, 25).entries(), (ranges{{10, 25}}));
    EXPECT_EQ(range_list().add(10, 20).add(5, 10).entries(), (ranges{{5, 20}}));
}

TEST(RangeAdd, OverlapOfTwoEntriesMergesThem)
{
    EXPECT_EQ(range_list().add(10, 20).add(30, 40).add(15, 35).entries(), (ranges{{10, 40}}));
    EXPECT_EQ(range_list().add(10, 20).add(30, 40).add(50, 60).add(15, 52).entries(), (ranges{{10, 60}}));
}

TEST(RangeAdd, EntriesInsideTheRangeAreRemoved)
{
    range_list list;
    list.add(10, 20).add(30, 40).add(50, 60).add(70, 80);
    EXPECT_EQ(list.add(5, 65).entries(), (ranges{{5, 65}, {70, 80}}));
    EXPECT_EQ(list.add(0, TOP).entries(), (ranges{{0, TOP}}));
}

TEST(RangeAdd, TouchingEntriesStayApartWithoutJoin)
{
    EXPECT_EQ(range_list().add(10, 20).add(21, 30).entries(), (ranges{{10, 20}, {21, 30}}));
    EXPECT_EQ(range_list().add(10, 20).add(5, 9).entries(), (ranges{{5, 9}, {10, 20}}));
    EXPECT_EQ(range_list().add(0, 9).add(20, 30).add(10, 19).entries(), (ranges{{0, 9}, {10, 19}, {20, 30}}));
}

TEST(RangeAdd, TouchingEntriesBecomeOneWithJoin)
{
    EXPECT_EQ(range_list().add(10, 20).add(21, 30, JOIN).entries(), (ranges{{10, 30}}));
    EXPECT_EQ(range_list().add(10, 20).add(5, 9, JOIN).entries(), (ranges{{5, 20}}));
    EXPECT_EQ(range_list().add(0, 9).add(20, 30).add(10, 19, JOIN).entries(), (ranges{{0, 30}}));
    EXPECT_EQ(range_list().add(0, 9).add(20, 30).add(5, 19, JOIN).entries(), (ranges{{0, 30}}));
}

TEST(RangeAdd, NothingTouchesAcrossTheEndsOfMemory)
{
    EXPECT_EQ(range_list().add(0, 0, JOIN).add(TOP, TOP, JOIN).entries(), (ranges{{0, 0}, {TOP, TOP}}));
    EXPECT_EQ(range_list().add(TOP, TOP, JOIN).add(0, 0, JOIN).entries(), (ranges{{0, 0}, {TOP, TOP}}));
    EXPECT_EQ(range_list().add(0, 0, JOIN).add(TOP, TOP, JOIN).add(1, TOP - 1, JOIN).entries(), (ranges{{0, TOP}}));
}

TEST(RangeAdd, HighBelowLowIsFatal)
{
    range_list list;
    EXPECT_FATAL(list.add(2, 1), "(1314) illegal action in memory allocation");
    EXPECT_FATAL(range_add_blocks(&list.head, 2, 1, 16, false), "(1314) illegal action in memory allocation");
}

TEST(RangeAdd, ListOutOfOrderIsFatal)
{
    memory_range second{10, 20, nullptr};
    memory_range first{30, 40, &second};
    memory_range *head = &first;
    EXPECT_FATAL(range_add(&head, 50, 60, false), "(1314) illegal action in memory allocation");
}

// The bytes of a small memory, marked one by one. An entry of the list begins where the model says so.
struct memory_model {
    static constexpr std::uint32_t SIZE = 64;
    std::array<bool, SIZE> covered{};

    void add(std::uint32_t lo, std::uint32_t hi)
    {
        for (std::uint32_t i = lo; i <= hi; i++) {
            covered[i] = true;
        }
    }
};

TEST(RangeAdd, CoversTheUnionWhateverTheOrder)
{
    std::mt19937 random(1);
    const auto below = [&](std::uint32_t bound) { return static_cast<std::uint32_t>(random() % bound); };
    for (int round = 0; round < 2000; round++) {
        const bool join = round % 2 != 0;
        range_list list;
        memory_model model;
        for (int i = 0; i < 12; i++) {
            const std::uint32_t lo = below(memory_model::SIZE);
            const std::uint32_t hi = std::min<std::uint32_t>(lo + below(12), memory_model::SIZE - 1);
            list.add(lo, hi, join);
            model.add(lo, hi);

            std::array<bool, memory_model::SIZE> covered{};
            std::int64_t last = join ? -2 : -1; // with join a gap is between any two entries
            for (const auto &[entry_lo, entry_hi] : list.entries()) {
                ASSERT_GT(std::int64_t{entry_lo}, last + (join ? 1 : 0));
                ASSERT_GE(entry_hi, entry_lo);
                for (std::uint32_t byte = entry_lo; byte <= entry_hi; byte++) {
                    covered[byte] = true;
                }
                last = entry_hi;
            }
            ASSERT_EQ(covered, model.covered);
        }
    }
}

TEST(RangeAdd, WithoutJoinEntriesMergeOnlyThroughOverlap)
{
    // A second model: sets of bytes, those that share a byte with the new range become one with it.
    std::mt19937 random(2);
    const auto below = [&](std::uint32_t bound) { return static_cast<std::uint32_t>(random() % bound); };
    for (int round = 0; round < 1000; round++) {
        range_list list;
        ranges expected;
        for (int i = 0; i < 10; i++) {
            std::uint32_t lo = below(60);
            std::uint32_t hi = lo + below(8);
            list.add(lo, hi);
            ranges next;
            for (const auto &[entry_lo, entry_hi] : expected) {
                if (entry_lo <= hi && lo <= entry_hi) {
                    lo = std::min(lo, entry_lo);
                    hi = std::max(hi, entry_hi);
                } else {
                    next.emplace_back(entry_lo, entry_hi);
                }
            }
            next.emplace_back(lo, hi);
            std::sort(next.begin(), next.end());
            expected = next;
            ASSERT_EQ(list.entries(), expected);
        }
    }
}

TEST(RangeAddBlocks, CutsAtMultiplesOfTheBlock)
{
    range_list list;
    range_add_blocks(&list.head, 0x0F0, 0x11F, 0x100, false);
    EXPECT_EQ(list.entries(), (ranges{{0x0F0, 0x0FF}, {0x100, 0x11F}}));
}

TEST(RangeAddBlocks, JoinMakesThePiecesOne)
{
    range_list list;
    range_add_blocks(&list.head, 0x0F0, 0x31F, 0x100, JOIN);
    EXPECT_EQ(list.entries(), (ranges{{0x0F0, 0x31F}}));
}

TEST(RangeAddBlocks, BlockOfZeroCutsNothing)
{
    range_list list;
    range_add_blocks(&list.head, 0x0F0, 0x31F, 0, false);
    EXPECT_EQ(list.entries(), (ranges{{0x0F0, 0x31F}}));
}

TEST(RangeAddBlocks, ReachesTheTopOfMemory)
{
    range_list list;
    range_add_blocks(&list.head, 0xFFFFFE80, TOP, 0x100, false);
    EXPECT_EQ(list.entries(), (ranges{{0xFFFFFE80, 0xFFFFFEFF}, {0xFFFFFF00, TOP}}));
    range_list whole;
    range_add_blocks(&whole.head, 0, TOP, 0x80000000, false);
    EXPECT_EQ(whole.entries(), (ranges{{0, 0x7FFFFFFF}, {0x80000000, TOP}}));
}

TEST(RangeAddBlocks, PiecesMeetEntriesThatAreThere)
{
    range_list list;
    list.add(0x180, 0x220).add(0x280, 0x290);
    range_add_blocks(&list.head, 0x0F0, 0x2FF, 0x100, false);
    EXPECT_EQ(list.entries(), (ranges{{0x0F0, 0x0FF}, {0x100, 0x2FF}}));
}

TEST(RangeFree, EmptiesTheList)
{
    memory_range *list = nullptr;
    range_add(&list, 1, 2, false);
    range_add(&list, 5, 6, false);
    range_free(&list);
    EXPECT_EQ(list, nullptr);
}

// ---- Spaces and classes

TEST(SpaceFindAdd, AppendsACopyOnce)
{
    memory_space *list = nullptr;
    memory_space *code = space_find_add(&list, {.ms_name = str_cache("code"), .ms_number = 1});
    memory_space *data = space_find_add(&list, {.ms_name = str_cache("data"), .ms_number = 2, .ms_next = code});
    EXPECT_EQ(list, code);
    EXPECT_EQ(code->ms_next, data);
    EXPECT_EQ(data->ms_next, nullptr);
    EXPECT_STREQ(data->ms_name, "data");
    EXPECT_EQ(space_find_add(&list, {.ms_name = str_cache("code"), .ms_number = 9}), code);
    EXPECT_EQ(code->ms_number, 1U);
}

TEST(ClassFindAdd, AppendsANewClassOnce)
{
    memory_space space;
    memory_class *ram = class_find_add(&space, "RAM", 2, 3, 4, 5);
    memory_class *rom = class_find_add(&space, "ROM", 2, 0, 0, 0);
    EXPECT_EQ(space.ms_classes, ram);
    EXPECT_EQ(ram->cl_next, rom);
    EXPECT_STREQ(ram->cl_name, "RAM");
    EXPECT_EQ(ram->cl_kind, 2U);
    EXPECT_EQ(ram->cl_size, 3U);
    EXPECT_EQ(ram->cl_overrun, 4U);
    EXPECT_EQ(ram->cl_value, 5U);
    EXPECT_EQ(ram->cl_space, &space);
    EXPECT_EQ(ram->cl_ranges, nullptr);
    EXPECT_EQ(class_find_add(&space, "RAM", 7, 7, 7, 7), ram);
    EXPECT_EQ(ram->cl_kind, 2U);
}

// ---- Numbers

struct number_row {
    const char *text;
    std::uint32_t value;
    const char *rest;
};

TEST(ParseNumber, LinkerNotation)
{
    constexpr number_row rows[] = {
        {"10", 10, ""},
        {"10d", 10, ""},
        {"10D", 10, ""},
        {"0Ah", 10, ""},
        {"0aH", 10, ""},
        {"0xA", 10, ""},
        {"0Xa", 10, ""},
        {"12o", 10, ""},
        {"12O", 10, ""},
        {"12q", 10, ""},
        {"12Q", 10, ""},
        {"0", 0, ""},
        {"0FFh-3", 255, "-3"},
        {"12-34", 12, "-34"},
        {"10dh", 0x10D, ""},            // "d" is a digit when a suffix follows
        {"0x10d", 0x10D, ""},           // and behind a prefix
        {"0xAh", 10, "h"},              // a prefix needs no suffix
        {"0x12o", 0x12, "o"},           //
        {"4294967295", 0xFFFFFFFF, ""}, //
        {"4294967297", 1, ""},          // accumulates in 32 bits
        {"123456789h", 0x23456789, ""}, //
        {"7z", 7, "z"},                 //
        {"10 ", 10, " "},               //
    };
    for (const number_row &row : rows) {
        const char *text = row.text;
        std::uint32_t value = 0xDEAD;
        EXPECT_FALSE(parse_number(&text, &value)) << row.text;
        EXPECT_EQ(value, row.value) << row.text;
        EXPECT_STREQ(text, row.rest) << row.text;
    }
}

TEST(ParseNumber, Failures)
{
    for (const char *failing : {"", "-1", "z", "h", "0x", "0xg", "d", "1A", "A", "18o", "9q", "1Fo", "1ddd", " 1"}) {
        const char *text = failing;
        std::uint32_t value = 0xDEAD;
        EXPECT_TRUE(parse_number(&text, &value)) << failing;
        EXPECT_EQ(text, failing);
        EXPECT_EQ(value, 0xDEADU) << failing;
    }
}

// ---- Class descriptions

class ClassSpec : public testing::Test {
protected:
    ~ClassSpec() override { range_free(&cls.cl_ranges); }

    ranges parse(const char *text)
    {
        parse_class_spec(&cls, text);
        return ranges_of(cls.cl_ranges);
    }

    memory_class cls;
};

TEST_F(ClassSpec, OneRange)
{
    EXPECT_EQ(parse("RAM=20h-7Fh"), (ranges{{0x20, 0x7F}}));
    EXPECT_EQ(cls.cl_overrun, 0U);
    EXPECT_EQ(cls.cl_size, 0U);
}

TEST_F(ClassSpec, SeveralRangesAndASize)
{
    EXPECT_EQ(parse("RAM=0-0x7F,0x100-0x17F/0x40"), (ranges{{0, 0x7F}, {0x100, 0x17F}}));
    EXPECT_EQ(cls.cl_size, 0x40U);
}

TEST_F(ClassSpec, RepeatedRangesFollowEachOther)
{
    EXPECT_EQ(parse("BANK=0x100-0x17Fx3"), (ranges{{0x100, 0x17F}, {0x180, 0x1FF}, {0x200, 0x27F}}));
}

TEST_F(ClassSpec, OtherRepeatSigns)
{
    EXPECT_EQ(parse("BANK=0-9X2"), (ranges{{0, 9}, {10, 19}}));
    EXPECT_EQ(parse("BANK=100-109*2"), (ranges{{0, 9}, {10, 19}, {100, 109}, {110, 119}}));
}

TEST_F(ClassSpec, RepeatOfZeroAddsNothing)
{
    EXPECT_EQ(parse("BANK=0-9x0"), ranges{});
    EXPECT_EQ(parse("BANK=0-9x0,20-29"), (ranges{{20, 29}}));
}

TEST_F(ClassSpec, OverrunOfTheLastRangeStays)
{
    EXPECT_EQ(parse("ROM=0-9-5x2"), (ranges{{0, 9}, {10, 19}}));
    EXPECT_EQ(cls.cl_overrun, 5U);
    parse("ROM=30-39-7,50-59");
    EXPECT_EQ(cls.cl_overrun, 0U);
}

TEST_F(ClassSpec, HexPrefixIsNoRepeatSign)
{
    EXPECT_EQ(parse("BANK=0-0x10"), (ranges{{0, 0x10}}));
    EXPECT_EQ(parse("BANK=0x20-0x21x2"), (ranges{{0, 0x10}, {0x20, 0x21}, {0x22, 0x23}}));
}

TEST_F(ClassSpec, CopiesAreBoundedInAll)
{
    EXPECT_EQ(parse("MANY=1-1x1048575,5000000-5000000").size(), 1048576U);
    EXPECT_FATAL(parse("MANY=1-1x1048577"), "(448) bad repeat count \"MANY=1-1x1048577\" in -A spec");
    EXPECT_FATAL(parse("MANY=1-1x1048576,3-4"), "(448) bad repeat count \"MANY=1-1x1048576,3-4\" in -A spec");
}

TEST_F(ClassSpec, CopiesGoRoundTheTopOfMemory)
{
    EXPECT_EQ(parse("TOP=0xE0000000-0xEFFFFFFFx3"),
              (ranges{{0, 0x0FFFFFFF}, {0xE0000000, 0xEFFFFFFF}, {0xF0000000, TOP}}));
}

TEST_F(ClassSpec, WholeMemoryRepeatedIsStillOne)
{
    EXPECT_EQ(parse("ALL=0-0xFFFFFFFFx5"), (ranges{{0, TOP}}));
}

TEST_F(ClassSpec, Reports)
{
    EXPECT_FATAL(parse("RAM"), "(442) missing address in -A spec");
    EXPECT_FATAL(parse("RAM="), "(442) missing address in -A spec");
    EXPECT_FATAL(parse("RAM=0-9,"), "(442) missing address in -A spec");
    EXPECT_FATAL(parse("RAM=zz-9"), "(443) bad low address \"RAM=zz-9\" in -A spec");
    EXPECT_FATAL(parse("RAM=0-9,-9"), "(443) bad low address \"RAM=0-9,-9\" in -A spec");
    EXPECT_FATAL(parse("RAM=5"), "(444) expected \"-\" in -A spec");
    EXPECT_FATAL(parse("RAM=5+9"), "(444) expected \"-\" in -A spec");
    EXPECT_FATAL(parse("RAM=5-"), "(445) bad high address \"RAM=5-\" in -A spec");
    EXPECT_FATAL(parse("RAM=5-9A"), "(445) bad high address \"RAM=5-9A\" in -A spec");
    EXPECT_FATAL(parse("RAM=5-9-"), "(448) bad repeat count \"RAM=5-9-\" in -A spec");
    EXPECT_FATAL(parse("RAM=5-9-x2"), "(448) bad repeat count \"RAM=5-9-x2\" in -A spec");
    EXPECT_FATAL(parse("RAM=5-9xx"), "(448) bad repeat count \"RAM=5-9xx\" in -A spec");
    EXPECT_FATAL(parse("RAM=5-9*"), "(448) bad repeat count \"RAM=5-9*\" in -A spec");
    EXPECT_FATAL(parse("RAM=5-9/"), "(442) missing address in -A spec");
    EXPECT_FATAL(parse("RAM=5-9/zz"), "(442) missing address in -A spec");
    EXPECT_FATAL(parse("RAM=5-9/8zz"), "(449) syntax error in -A spec: zz");
    EXPECT_FATAL(parse("RAM=5-9 rest"), "(449) syntax error in -A spec:  rest");
    EXPECT_FATAL(parse("RAM=9-5"), "(1314) illegal action in memory allocation");
    EXPECT_FATAL(parse("RAM=0x80000001-0x90000000x8"), "(1314) illegal action in memory allocation");
}

// ---- The memory description

TEST(MemorySpec, AllItsParts)
{
    memory_space *list = nullptr;
    parse_memory_spec("2,data:1F@BANK0=20h-7Fh/10h", &list);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->ms_number, 2U);
    EXPECT_STREQ(list->ms_name, "data");
    const memory_class *cls = list->ms_classes;
    ASSERT_NE(cls, nullptr);
    EXPECT_STREQ(cls->cl_name, "BANK0");
    EXPECT_EQ(cls->cl_kind, 2U);
    EXPECT_EQ(cls->cl_value, 0x1FU);
    EXPECT_EQ(cls->cl_size, 0x10U);
    EXPECT_EQ(cls->cl_space, list);
    EXPECT_EQ(ranges_of(cls->cl_ranges), (ranges{{0x20, 0x7F}}));
}

TEST(MemorySpec, SameNamesMeetAgain)
{
    memory_space *list = nullptr;
    parse_memory_spec("1=code:0@ROM=0-9", &list);
    parse_memory_spec("1=code:0@ROM=20-29", &list);
    parse_memory_spec("1=code:5@EXT=40-49", &list);
    parse_memory_spec("3=other:0@ROM=0-9", &list);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(ranges_of(list->ms_classes->cl_ranges), (ranges{{0, 9}, {20, 29}}));
    EXPECT_STREQ(list->ms_classes->cl_next->cl_name, "EXT");
    EXPECT_EQ(list->ms_classes->cl_next->cl_value, 5U);
    EXPECT_STREQ(list->ms_next->ms_name, "other");
    EXPECT_EQ(list->ms_next->ms_next, nullptr);
}

TEST(MemorySpec, AnyCharacterSeparates)
{
    memory_space *list = nullptr;
    parse_memory_spec("4:name:0@ROM=0-9", &list);
    ASSERT_NE(list, nullptr);
    EXPECT_STREQ(list->ms_name, "name");
    EXPECT_EQ(list->ms_number, 4U);
}

TEST(MemorySpec, MissingSeparatorsAreASyntaxError)
{
    memory_space *list = nullptr;
    EXPECT_FATAL(parse_memory_spec("", &list), "(449) syntax error in -A spec: ");
    EXPECT_FATAL(parse_memory_spec("2", &list), "(449) syntax error in -A spec: 2");
    EXPECT_FATAL(parse_memory_spec("2,data", &list), "(449) syntax error in -A spec: 2,data");
    EXPECT_FATAL(parse_memory_spec("2,data:1F", &list), "(449) syntax error in -A spec: 2,data:1F");
    EXPECT_FATAL(parse_memory_spec("2,data:1F@BANK", &list), "(449) syntax error in -A spec: 2,data:1F@BANK");
    EXPECT_FATAL(parse_memory_spec("2,a=b@c:d", &list), "(449) syntax error in -A spec: 2,a=b@c:d");
}

TEST(MemorySpec, ClassReportsShowTheClassDescription)
{
    memory_space *list = nullptr;
    EXPECT_FATAL(parse_memory_spec("2,data:1F@BANK=z", &list), "(443) bad low address \"BANK=z\" in -A spec");
}

// ---- Psect flags

TEST(PsectFlags, LettersOfAWord)
{
    EXPECT_STREQ(psect_flags_text(0), "");
    EXPECT_STREQ(psect_flags_text(PDB_WRITE), "w");
    EXPECT_STREQ(psect_flags_text(PDB_EXEC), "x");
    EXPECT_STREQ(psect_flags_text(PDB_NOSPACE), "s");
    EXPECT_STREQ(psect_flags_text(PDB_FAKE), "f");
    EXPECT_STREQ(psect_flags_text(15), "wxsf");
    EXPECT_STREQ(psect_flags_text(0xFFFFFFF0 | PDB_FAKE | PDB_WRITE), "wf");
    EXPECT_TRUE(str_same(psect_flags_text(15), str_cache("wxsf")));
}

TEST(PsectFlags, WordOfLetters)
{
    EXPECT_EQ(psect_flags_parse(""), 0U);
    EXPECT_EQ(psect_flags_parse("w"), 1U);
    EXPECT_EQ(psect_flags_parse("x"), 2U);
    EXPECT_EQ(psect_flags_parse("s"), 4U);
    EXPECT_EQ(psect_flags_parse("f"), 8U);
    EXPECT_EQ(psect_flags_parse("fsxw"), 15U);
    EXPECT_EQ(psect_flags_parse("ww-W?x"), 3U);
}

} // namespace
