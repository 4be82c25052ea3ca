// SPDX-License-Identifier: MIT
#include "compiler/tarnwick/dwarf_abbrev.h"

#include <algorithm>
#include <map>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "tests/unit/tarnwick/dwarf_testing.h"

namespace {

using strings = std::vector<std::string>;

// Numbers of the standard, written out: tags, attributes and forms.
constexpr std::uint8_t TAG_ARRAY = 0x01, TAG_ENUMERATION = 0x04, TAG_PARAMETER = 0x05, TAG_BLOCK = 0x0B,
                       TAG_MEMBER = 0x0D, TAG_POINTER = 0x0F, TAG_UNIT = 0x11, TAG_STRUCTURE = 0x13,
                       TAG_SUBROUTINE = 0x15, TAG_TYPEDEF = 0x16, TAG_UNION = 0x17, TAG_SUBRANGE = 0x21,
                       TAG_BASE = 0x24, TAG_CONST = 0x26, TAG_ENUMERATOR = 0x28, TAG_SUBPROGRAM = 0x2E,
                       TAG_VARIABLE = 0x34, TAG_VOLATILE = 0x35;
constexpr std::uint8_t SIBLING = 0x01, LOCATION = 0x02, NAME = 0x03, BYTE_SIZE = 0x0B, BIT_OFFSET = 0x0C,
                       BIT_SIZE = 0x0D, STMT_LIST = 0x10, LOW_PC = 0x11, HIGH_PC = 0x12, LANGUAGE = 0x13,
                       COMP_DIR = 0x1B, CONST_VALUE = 0x1C, INLINE = 0x20, PRODUCER = 0x25, UPPER_BOUND = 0x2F,
                       ADDRESS_CLASS = 0x33, MEMBER_LOCATION = 0x38, DECL_FILE = 0x3A, DECL_LINE = 0x3B,
                       DECLARATION = 0x3C, ENCODING = 0x3E, EXTERNAL = 0x3F, FRAME_BASE = 0x40, TYPE = 0x49,
                       RANGES = 0x55;
constexpr std::uint8_t addr = 0x01, block2 = 0x03, data2 = 0x05, data4 = 0x06, string = 0x08, block1 = 0x0A,
                       data1 = 0x0B, flag = 0x0C, udata = 0x0F, ref4 = 0x13;

// The rest of an entry behind its number.
section_bytes entry(std::uint8_t tag, bool has_children, std::initializer_list<std::uint8_t> pairs)
{
    return section_bytes().raw({tag, static_cast<std::uint8_t>(has_children)}).raw(pairs).b2(0);
}

// What this process has put into the section so far.
std::uint32_t written = 0;

class abbreviations : public testing::Test {
protected:
    abbreviations() { dwarf_abbrev_create_entries_hash(); }
    ~abbreviations() override { close(); }

    // Closes the table; the bytes written since it was opened.
    section_bytes close()
    {
        if (closed_) {
            return {};
        }
        closed_ = true;
        std::uint8_t *data = nullptr;
        std::uint32_t size = 0;
        dwarf_abbrev_destroy_entry_hash(&data, &size);
        const std::uint32_t start = std::exchange(written, size);
        return {data + start, size - start};
    }
    // The entries as they should stand, numbered from 1, with the byte that closes the table.
    static section_bytes table(const std::vector<section_bytes> &entries)
    {
        section_bytes all;
        for (std::size_t i = 0; i < entries.size(); ++i) {
            all.b1(i + 1);
            all.insert(all.end(), entries[i].begin(), entries[i].end());
        }
        return all.b1(0);
    }

    dwarf_room room_;
    bool closed_ = false;
};

TEST_F(abbreviations, empty_table_is_one_byte)
{
    EXPECT_EQ(close(), section_bytes().b1(0));
}

TEST_F(abbreviations, bytes_of_an_entry)
{
    EXPECT_EQ(dwarf_abbrev_get_subrange_entry(), 1U);
    // Number, tag, no children, upper bound as data4, and a 16-bit zero; then the end of the table.
    EXPECT_EQ(close(), section_bytes().raw({1, 0x21, 0, 0x2F, 0x06, 0, 0, 0}));
}

TEST_F(abbreviations, compile_unit_without_a_pc_range)
{
    for (const bool has_children : {false, true}) {
        for (const std::uint32_t num_ranges : {0U, 1U, 2U}) {
            // Under `never` there is none whatever the ranges.
            EXPECT_EQ(dwarf_abbrev_get_compile_unit_entry(has_children, false, num_ranges), has_children ? 3U : 1U);
            EXPECT_EQ(dwarf_abbrev_get_compile_unit_entry(has_children, true, num_ranges), has_children ? 4U : 2U);
        }
    }
    const auto plain = {STMT_LIST, data4, PRODUCER, string, LANGUAGE, data2, NAME, string};
    const auto with_dir = {STMT_LIST, data4, PRODUCER, string, LANGUAGE, data2, NAME, string, COMP_DIR, string};
    EXPECT_EQ(close(), table({entry(TAG_UNIT, false, plain), entry(TAG_UNIT, false, with_dir),
                              entry(TAG_UNIT, true, plain), entry(TAG_UNIT, true, with_dir)}));
}

TEST_F(abbreviations, compile_unit_pc_range)
{
    dwarf_use_ranges = DWARF_USE_AUTO;
    EXPECT_EQ(dwarf_abbrev_get_compile_unit_entry(true, false, 0), 1U);
    EXPECT_EQ(dwarf_abbrev_get_compile_unit_entry(true, false, 1), 2U);
    EXPECT_EQ(dwarf_abbrev_get_compile_unit_entry(true, false, 2), 3U);
    EXPECT_EQ(dwarf_abbrev_get_compile_unit_entry(true, false, 900), 3U);
    EXPECT_EQ(dwarf_abbrev_get_compile_unit_entry(true, true, 2), 4U);
    dwarf_use_ranges = DWARF_USE_ALWAYS;
    EXPECT_EQ(dwarf_abbrev_get_compile_unit_entry(true, false, 0), 1U);
    EXPECT_EQ(dwarf_abbrev_get_compile_unit_entry(true, false, 1), 3U);
    EXPECT_EQ(dwarf_abbrev_get_compile_unit_entry(true, false, 2), 3U);
    EXPECT_EQ(
        close(),
        table(
            {entry(TAG_UNIT, true, {STMT_LIST, data4, PRODUCER, string, LANGUAGE, data2, NAME, string}),
             entry(TAG_UNIT, true,
                   {STMT_LIST, data4, PRODUCER, string, LANGUAGE, data2, NAME, string, LOW_PC, addr, HIGH_PC, addr}),
             entry(TAG_UNIT, true, {STMT_LIST, data4, PRODUCER, string, LANGUAGE, data2, NAME, string, RANGES, data4}),
             entry(TAG_UNIT, true,
                   {STMT_LIST, data4, PRODUCER, string, LANGUAGE, data2, NAME, string, COMP_DIR, string, RANGES,
                    data4})}));
}

TEST_F(abbreviations, subprogram)
{
    EXPECT_EQ(dwarf_abbrev_get_subprogram_entry(false, false, false, false, false, 1), 1U);
    EXPECT_EQ(dwarf_abbrev_get_subprogram_entry(true, true, true, true, false, 1), 2U);
    EXPECT_EQ(dwarf_abbrev_get_subprogram_entry(true, false, true, false, true, 1), 3U);
    EXPECT_EQ(dwarf_abbrev_get_subprogram_entry(false, true, false, true, true, 0), 4U);
    EXPECT_EQ(dwarf_abbrev_get_subprogram_entry(false, false, false, false, false, 7), 1U); // `never`
    EXPECT_EQ(
        close(),
        table({
            entry(TAG_SUBPROGRAM, false,
                  {NAME, string, DECL_FILE, udata, DECL_LINE, udata, LOW_PC, addr, HIGH_PC, addr, INLINE, data1}),
            entry(TAG_SUBPROGRAM, true,
                  {SIBLING,   ref4,  NAME,   string, TYPE,    ref4, EXTERNAL,   flag,   DECL_FILE, udata,
                   DECL_LINE, udata, LOW_PC, addr,   HIGH_PC, addr, FRAME_BASE, block1, INLINE,    data1}),
            entry(TAG_SUBPROGRAM, true,
                  {SIBLING, ref4, NAME, string, DECL_FILE, udata, DECL_LINE, udata, FRAME_BASE, block1, INLINE, data1}),
            entry(TAG_SUBPROGRAM, false,
                  {NAME, string, TYPE, ref4, EXTERNAL, flag, DECL_FILE, udata, DECL_LINE, udata, INLINE, data1}),
        }));
}

TEST_F(abbreviations, pc_range_of_subprograms_and_blocks)
{
    struct row {
        dwarf_use_mode mode;
        std::uint32_t num_ranges;
        bool is_ranges;
    };
    const row rows[] = {{DWARF_USE_NEVER, 0, false}, {DWARF_USE_NEVER, 1, false}, {DWARF_USE_NEVER, 2, false},
                        {DWARF_USE_AUTO, 0, true},   {DWARF_USE_AUTO, 1, false},  {DWARF_USE_AUTO, 2, true},
                        {DWARF_USE_ALWAYS, 0, true}, {DWARF_USE_ALWAYS, 1, true}, {DWARF_USE_ALWAYS, 2, true}};
    for (const row &r : rows) {
        dwarf_use_ranges = r.mode;
        // The first row of each kind gives the entry its number.
        EXPECT_EQ(dwarf_abbrev_get_subprogram_entry(false, false, false, false, false, r.num_ranges),
                  r.is_ranges ? 3U : 1U)
            << r.mode << r.num_ranges;
        EXPECT_EQ(dwarf_abbrev_get_lexical_block_entry(false, false, r.num_ranges), r.is_ranges ? 4U : 2U);
        EXPECT_EQ(dwarf_code_pc_form(r.num_ranges), r.is_ranges ? dwarf_pc_form::RANGES : dwarf_pc_form::LOW_HIGH);
    }
    EXPECT_EQ(
        close(),
        table({entry(TAG_SUBPROGRAM, false,
                     {NAME, string, DECL_FILE, udata, DECL_LINE, udata, LOW_PC, addr, HIGH_PC, addr, INLINE, data1}),
               entry(TAG_BLOCK, false, {LOW_PC, addr, HIGH_PC, addr}),
               entry(TAG_SUBPROGRAM, false,
                     {NAME, string, DECL_FILE, udata, DECL_LINE, udata, RANGES, data4, INLINE, data1}),
               entry(TAG_BLOCK, false, {RANGES, data4})}));
}

TEST_F(abbreviations, pc_form_of_units)
{
    const auto none = dwarf_pc_form::NONE;
    const auto low_high = dwarf_pc_form::LOW_HIGH;
    const auto ranges = dwarf_pc_form::RANGES;
    const std::map<dwarf_use_mode, std::vector<dwarf_pc_form>> forms = {{DWARF_USE_NEVER, {none, none, none}},
                                                                        {DWARF_USE_AUTO, {none, low_high, ranges}},
                                                                        {DWARF_USE_ALWAYS, {none, ranges, ranges}}};
    for (const auto &[mode, by_count] : forms) {
        dwarf_use_ranges = mode;
        for (std::uint32_t num_ranges = 0; num_ranges < 3; ++num_ranges) {
            EXPECT_EQ(dwarf_unit_pc_form(num_ranges), by_count[num_ranges]) << mode << num_ranges;
        }
    }
}

TEST_F(abbreviations, no_ranges_is_an_assertion_where_a_pc_range_is_wanted)
{
    const trace_log log;
    dwarf_abbrev_get_subprogram_entry(false, false, false, false, true, 0);
    dwarf_abbrev_get_lexical_block_entry(false, true, 0);
    dwarf_abbrev_get_compile_unit_entry(false, false, 0);
    EXPECT_EQ(log.failed(), strings{});
    dwarf_abbrev_get_subprogram_entry(false, false, false, false, false, 0);
    dwarf_abbrev_get_lexical_block_entry(false, false, 0);
    EXPECT_EQ(log.failed(), (strings{"num_ranges != 0", "num_ranges != 0"}));
}

TEST_F(abbreviations, subroutine_type)
{
    for (std::uint32_t i = 0; i < 4; ++i) {
        EXPECT_EQ(dwarf_abbrev_get_subroutine_type_entry((i & 1) != 0, (i & 2) != 0), i + 1);
    }
    EXPECT_EQ(close(), table({entry(TAG_SUBROUTINE, false, {}), entry(TAG_SUBROUTINE, true, {SIBLING, ref4}),
                              entry(TAG_SUBROUTINE, false, {TYPE, ref4}),
                              entry(TAG_SUBROUTINE, true, {SIBLING, ref4, TYPE, ref4})}));
}

TEST_F(abbreviations, types_with_one_question)
{
    for (const bool has : {false, true}) {
        const std::uint32_t first = has ? 6 : 1;
        EXPECT_EQ(dwarf_abbrev_get_basic_type_entry(has), first);
        EXPECT_EQ(dwarf_abbrev_get_const_type_entry(has), first + 1);
        EXPECT_EQ(dwarf_abbrev_get_volatile_type_entry(has), first + 2);
        EXPECT_EQ(dwarf_abbrev_get_pointer_type_entry(has), first + 3);
        EXPECT_EQ(dwarf_abbrev_get_typedef_entry(has), first + 4);
    }
    EXPECT_EQ(
        close(),
        table({entry(TAG_BASE, false, {NAME, string, BYTE_SIZE, data1, ENCODING, data1}), entry(TAG_CONST, false, {}),
               entry(TAG_VOLATILE, false, {}), entry(TAG_POINTER, false, {BYTE_SIZE, data1, ADDRESS_CLASS, data1}),
               entry(TAG_TYPEDEF, false, {NAME, string, DECL_FILE, data1, DECL_LINE, data2}),
               entry(TAG_BASE, false,
                     {NAME, string, BYTE_SIZE, data1, ENCODING, data1, BIT_SIZE, data1, BIT_OFFSET, data1}),
               entry(TAG_CONST, false, {TYPE, ref4}), entry(TAG_VOLATILE, false, {TYPE, ref4}),
               entry(TAG_POINTER, false, {TYPE, ref4, BYTE_SIZE, data1, ADDRESS_CLASS, data1}),
               entry(TAG_TYPEDEF, false, {NAME, string, DECL_FILE, data1, DECL_LINE, data2, TYPE, ref4})}));
}

TEST_F(abbreviations, types_with_no_question)
{
    EXPECT_EQ(dwarf_abbrev_get_array_type_entry(), 1U);
    EXPECT_EQ(dwarf_abbrev_get_subrange_entry(), 2U);
    EXPECT_EQ(dwarf_abbrev_get_enumerator_entry(), 3U);
    EXPECT_EQ(dwarf_abbrev_get_array_type_entry(), 1U);
    EXPECT_EQ(dwarf_abbrev_get_subrange_entry(), 2U);
    EXPECT_EQ(dwarf_abbrev_get_enumerator_entry(), 3U);
    EXPECT_EQ(close(), table({entry(TAG_ARRAY, true, {SIBLING, ref4, TYPE, ref4}),
                              entry(TAG_SUBRANGE, false, {UPPER_BOUND, data4}),
                              entry(TAG_ENUMERATOR, false, {NAME, string, CONST_VALUE, data4})}));
}

TEST_F(abbreviations, structures_and_unions)
{
    std::vector<section_bytes> expected;
    for (const bool is_union : {false, true}) {
        const auto get = is_union ? dwarf_abbrev_get_union_type_entry : dwarf_abbrev_get_structure_type_entry;
        const std::uint8_t tag = is_union ? TAG_UNION : TAG_STRUCTURE;
        const std::uint32_t first = is_union ? 7 : 1;
        EXPECT_EQ(get(false, false, 0), first);
        EXPECT_EQ(get(false, false, 255), first);
        EXPECT_EQ(get(false, false, 256), first + 1);
        EXPECT_EQ(get(false, false, 65535), first + 1);
        EXPECT_EQ(get(false, false, 65536), first + 2);
        EXPECT_EQ(get(false, false, UINT32_MAX), first + 2);
        EXPECT_EQ(get(true, false, 12), first + 3);
        EXPECT_EQ(get(false, true, 12), first + 4);
        EXPECT_EQ(get(true, true, 70000), first + 5);
        EXPECT_EQ(get(true, true, 80000), first + 5);
        expected.push_back(entry(tag, false, {BYTE_SIZE, data1, DECL_FILE, data1, DECL_LINE, data2}));
        expected.push_back(entry(tag, false, {BYTE_SIZE, data2, DECL_FILE, data1, DECL_LINE, data2}));
        expected.push_back(entry(tag, false, {BYTE_SIZE, data4, DECL_FILE, data1, DECL_LINE, data2}));
        expected.push_back(entry(tag, true, {SIBLING, ref4, BYTE_SIZE, data1, DECL_FILE, data1, DECL_LINE, data2}));
        expected.push_back(entry(tag, false, {NAME, string, BYTE_SIZE, data1, DECL_FILE, data1, DECL_LINE, data2}));
        expected.push_back(
            entry(tag, true, {SIBLING, ref4, NAME, string, BYTE_SIZE, data4, DECL_FILE, data1, DECL_LINE, data2}));
    }
    EXPECT_EQ(close(), table(expected));
}

TEST_F(abbreviations, member)
{
    for (std::uint32_t i = 0; i < 4; ++i) {
        EXPECT_EQ(dwarf_abbrev_get_member_entry((i & 1) != 0, (i & 2) != 0), i + 1);
    }
    EXPECT_EQ(close(),
              table({entry(TAG_MEMBER, false, {NAME, string, TYPE, ref4, MEMBER_LOCATION, block1}),
                     entry(TAG_MEMBER, false,
                           {NAME, string, TYPE, ref4, BYTE_SIZE, data1, BIT_SIZE, data1, BIT_OFFSET, data1,
                            MEMBER_LOCATION, block1}),
                     entry(TAG_MEMBER, false, {NAME, string, TYPE, ref4}),
                     entry(TAG_MEMBER, false,
                           {NAME, string, TYPE, ref4, BYTE_SIZE, data1, BIT_SIZE, data1, BIT_OFFSET, data1})}));
}

TEST_F(abbreviations, variable_and_parameter)
{
    EXPECT_EQ(dwarf_abbrev_get_variable_entry(false, false, 0), 1U);
    EXPECT_EQ(dwarf_abbrev_get_variable_entry(false, false, 1), 2U);
    EXPECT_EQ(dwarf_abbrev_get_variable_entry(false, false, 2), 3U);
    EXPECT_EQ(dwarf_abbrev_get_variable_entry(false, false, 1000), 3U);
    EXPECT_EQ(dwarf_abbrev_get_variable_entry(true, false, 1), 4U);
    EXPECT_EQ(dwarf_abbrev_get_variable_entry(true, true, 0), 5U);
    EXPECT_EQ(dwarf_abbrev_get_variable_entry(false, true, 0), 6U);
    EXPECT_EQ(dwarf_abbrev_get_parameter_entry(0), 7U);
    EXPECT_EQ(dwarf_abbrev_get_parameter_entry(1), 8U);
    EXPECT_EQ(dwarf_abbrev_get_parameter_entry(2), 9U);
    EXPECT_EQ(dwarf_abbrev_get_parameter_entry(3), 9U);
    const std::initializer_list<std::uint8_t> plain = {NAME, string, DECL_FILE, data1, DECL_LINE, data2, TYPE, ref4};
    const std::initializer_list<std::uint8_t> one = {NAME,  string, DECL_FILE, data1,    DECL_LINE,
                                                     data2, TYPE,   ref4,      LOCATION, block2};
    const std::initializer_list<std::uint8_t> list = {NAME,  string, DECL_FILE, data1,    DECL_LINE,
                                                      data2, TYPE,   ref4,      LOCATION, data4};
    EXPECT_EQ(
        close(),
        table({entry(TAG_VARIABLE, false, plain), entry(TAG_VARIABLE, false, one), entry(TAG_VARIABLE, false, list),
               entry(TAG_VARIABLE, false,
                     {NAME, string, DECL_FILE, data1, DECL_LINE, data2, TYPE, ref4, EXTERNAL, flag, LOCATION, block2}),
               entry(TAG_VARIABLE, false,
                     {NAME, string, DECL_FILE, data1, DECL_LINE, data2, TYPE, ref4, EXTERNAL, flag, DECLARATION, flag}),
               entry(TAG_VARIABLE, false,
                     {NAME, string, DECL_FILE, data1, DECL_LINE, data2, TYPE, ref4, DECLARATION, flag}),
               entry(TAG_PARAMETER, false, plain), entry(TAG_PARAMETER, false, one),
               entry(TAG_PARAMETER, false, list)}));
}

TEST_F(abbreviations, enumeration)
{
    for (std::uint32_t i = 0; i < 4; ++i) {
        EXPECT_EQ(dwarf_abbrev_get_enum_type_entry((i & 1) != 0, (i & 2) != 0), i + 1);
    }
    EXPECT_EQ(
        close(),
        table({entry(TAG_ENUMERATION, true, {SIBLING, ref4, DECL_FILE, data1, DECL_LINE, data2}),
               entry(TAG_ENUMERATION, true, {SIBLING, ref4, NAME, string, DECL_FILE, data1, DECL_LINE, data2}),
               entry(TAG_ENUMERATION, true, {SIBLING, ref4, BYTE_SIZE, data1, DECL_FILE, data1, DECL_LINE, data2}),
               entry(TAG_ENUMERATION, true,
                     {SIBLING, ref4, NAME, string, BYTE_SIZE, data1, DECL_FILE, data1, DECL_LINE, data2})}));
}

TEST_F(abbreviations, lexical_block)
{
    EXPECT_EQ(dwarf_abbrev_get_lexical_block_entry(false, true, 0), 1U);
    EXPECT_EQ(dwarf_abbrev_get_lexical_block_entry(true, true, 5), 2U);
    EXPECT_EQ(dwarf_abbrev_get_lexical_block_entry(false, false, 1), 3U);
    EXPECT_EQ(dwarf_abbrev_get_lexical_block_entry(true, false, 1), 4U);
    dwarf_use_ranges = DWARF_USE_ALWAYS;
    EXPECT_EQ(dwarf_abbrev_get_lexical_block_entry(false, false, 1), 5U);
    EXPECT_EQ(dwarf_abbrev_get_lexical_block_entry(true, false, 1), 6U);
    EXPECT_EQ(dwarf_abbrev_get_lexical_block_entry(false, true, 1), 1U);
    EXPECT_EQ(close(), table({entry(TAG_BLOCK, false, {}), entry(TAG_BLOCK, true, {SIBLING, ref4}),
                              entry(TAG_BLOCK, false, {LOW_PC, addr, HIGH_PC, addr}),
                              entry(TAG_BLOCK, true, {SIBLING, ref4, LOW_PC, addr, HIGH_PC, addr}),
                              entry(TAG_BLOCK, false, {RANGES, data4}),
                              entry(TAG_BLOCK, true, {SIBLING, ref4, RANGES, data4})}));
}

// Every request of every family, in every mode: two share a number exactly when they ask for the same bytes.
TEST_F(abbreviations, requests_share_a_number_when_their_bytes_are_equal)
{
    std::map<std::string, std::uint32_t> by_content;
    std::map<std::uint32_t, std::string> by_number;
    const auto note_request = [&](std::string content, std::uint32_t number) {
        EXPECT_EQ(by_content.emplace(content, number).first->second, number) << content;
        EXPECT_EQ(by_number.emplace(number, content).first->second, content) << number;
    };
    for (const dwarf_use_mode mode : {DWARF_USE_NEVER, DWARF_USE_AUTO, DWARF_USE_ALWAYS}) {
        dwarf_use_ranges = mode;
        for (std::uint32_t i = 0; i < 32; ++i) {
            const auto bit = [i](std::uint32_t n) { return (i >> n & 1) != 0; };
            const auto bits = [&](std::uint32_t n) { return std::to_string(i & ((1U << n) - 1)); };
            for (const std::uint32_t count : {0U, 1U, 2U}) {
                const bool listed = mode == DWARF_USE_ALWAYS || (mode == DWARF_USE_AUTO && count != 1);
                const std::string pc = listed ? "ranges" : "low";
                const std::string unit_pc = mode == DWARF_USE_NEVER || count == 0 ? "none" : pc;
                note_request("unit" + bits(2) + unit_pc, dwarf_abbrev_get_compile_unit_entry(bit(0), bit(1), count));
                note_request("sub" + bits(4) + (bit(4) ? "none" : pc),
                             dwarf_abbrev_get_subprogram_entry(bit(0), bit(1), bit(2), bit(3), bit(4), count));
                note_request("block" + bits(1) + (bit(1) ? "none" : pc),
                             dwarf_abbrev_get_lexical_block_entry(bit(0), bit(1), count));
                note_request("variable" + bits(2) + std::to_string(count),
                             dwarf_abbrev_get_variable_entry(bit(0), bit(1), count));
                note_request("parameter" + std::to_string(count), dwarf_abbrev_get_parameter_entry(count));
                const std::uint32_t size = count == 0 ? i : count == 1 ? 256 + i : 65536 + i;
                note_request("struct" + bits(2) + std::to_string(count),
                             dwarf_abbrev_get_structure_type_entry(bit(0), bit(1), size));
                note_request("union" + bits(2) + std::to_string(count),
                             dwarf_abbrev_get_union_type_entry(bit(0), bit(1), size));
            }
            note_request("member" + bits(2), dwarf_abbrev_get_member_entry(bit(0), bit(1)));
            note_request("enum" + bits(2), dwarf_abbrev_get_enum_type_entry(bit(0), bit(1)));
            note_request("routine" + bits(2), dwarf_abbrev_get_subroutine_type_entry(bit(0), bit(1)));
            note_request("base" + bits(1), dwarf_abbrev_get_basic_type_entry(bit(0)));
            note_request("const" + bits(1), dwarf_abbrev_get_const_type_entry(bit(0)));
            note_request("volatile" + bits(1), dwarf_abbrev_get_volatile_type_entry(bit(0)));
            note_request("pointer" + bits(1), dwarf_abbrev_get_pointer_type_entry(bit(0)));
            note_request("typedef" + bits(1), dwarf_abbrev_get_typedef_entry(bit(0)));
            note_request("array", dwarf_abbrev_get_array_type_entry());
            note_request("subrange", dwarf_abbrev_get_subrange_entry());
            note_request("enumerator", dwarf_abbrev_get_enumerator_entry());
        }
    }
    // Units 12, functions 48, blocks 6, variables 12, parameters 3, structures and unions 12 each, members, enums and
    // subroutine types 4 each, five families of 2, three of 1; none was missed and the numbers have no gaps.
    EXPECT_EQ(by_number.size(), 12U + 48 + 6 + 12 + 3 + 24 + 12 + 10 + 3);
    EXPECT_EQ(by_number.begin()->first, 1U);
    EXPECT_EQ(by_number.rbegin()->first, by_number.size());

    // Numbers from 128 on take two bytes.
    const section_bytes all = close();
    const section_bytes number_128 = section_bytes().b2(0).raw({0x80, 0x01});
    EXPECT_NE(std::search(all.begin(), all.end(), number_128.begin(), number_128.end()), all.end());
}

TEST_F(abbreviations, units_share_the_table_and_a_new_output_starts_it_anew)
{
    EXPECT_EQ(dwarf_abbrev_get_compile_unit_entry(true, true, 0), 1U);
    EXPECT_EQ(dwarf_abbrev_get_subrange_entry(), 2U);
    EXPECT_EQ(dwarf_abbrev_get_compile_unit_entry(true, true, 0), 1U);
    EXPECT_EQ(dwarf_abbrev_get_subrange_entry(), 2U);
    std::uint8_t *data = nullptr;
    std::uint32_t first_size = 0;
    dwarf_abbrev_destroy_entry_hash(&data, &first_size);

    // The numbers start again, behind the bytes that are there.
    dwarf_abbrev_create_entries_hash();
    EXPECT_EQ(dwarf_abbrev_get_subrange_entry(), 1U);
    close();
    std::uint32_t size = 0;
    dwarf_abbrev_create_entries_hash();
    dwarf_abbrev_destroy_entry_hash(&data, &size);
    EXPECT_EQ(section_bytes(data + first_size, size - first_size),
              section_bytes().raw({1, 0x21, 0, 0x2F, 0x06, 0, 0, 0, /* the table after it */ 0}));
    written = size;
}

TEST_F(abbreviations, a_closed_table_gives_no_numbers)
{
    close();
    const trace_log log;
    EXPECT_EQ(dwarf_abbrev_get_subrange_entry(), DWARF_ABBREV_INVALID_ENTRY_INDEX);
    EXPECT_EQ(log.failed(), (strings{"(DWARF_ABBREV_INVALID_ENTRY_INDEX != entry_num) && (0 != entry_num)"}));
}

TEST_F(abbreviations, a_big_endian_table_has_the_same_bytes)
{
    opt_big_endian = true; // the one number wider than a byte is a zero
    dwarf_abbrev_get_subrange_entry();
    EXPECT_EQ(close(), section_bytes().raw({1, 0x21, 0, 0x2F, 0x06, 0, 0, 0}));
}

} // namespace
