// SPDX-License-Identifier: MIT
// Units, subprograms and blocks of .debug_info, the limits of its fields, and faults of callers.
#include "compiler/tarnwick/dwarf_info.h"

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "compiler/tarnwick/complete.h"
#include "compiler/tarnwick/dwarf_info_unit.h"
#include "compiler/tarnwick/model.h"
#include "tests/unit/scenario.h"
#include "tests/unit/tarnwick/dwarf_info_testing.h"
#include "tests/unit/tarnwick/fresh_model.h"
#include "tests/unit/tarnwick/sdb_testing.h"

namespace {

using namespace dwarf_info_testing;

INSTANTIATE_TEST_SUITE_P(targets, debug_info,
                         testing::Combine(testing::Bool(), testing::Values<std::uint8_t>(1, 2, 4, 8)));

// A list of two ranges.
sdb_range second_range = {.low = 0x60, .high = 0x6F};
sdb_range two_ranges = {.low = 0x10, .high = 0x1F, .next = &second_range};

// ---- Units

TEST_P(debug_info, header_of_a_unit)
{
    EXPECT_EQ(dwarf_info_get_unit_offset(cu), 0U);
    add_base_type(cu, "i");
    EXPECT_EQ(dwarf_info_finish_compile_unit(cu), 7U + 5);
    EXPECT_EQ(unit.all(), section_bytes().b4(7 + 5).b2(2).b4(0).b1(address_size).raw({NUMBER, 'b', 0, 1, 5}));

    // A second unit, of another version and with an abbreviation offset.
    const compile_unit_handle second = dwarf_info_start_compile_unit(3, 0x1234, 2);
    EXPECT_EQ(dwarf_info_get_unit_offset(second), 16U);
    // It knows nothing of the first one's types, and its offsets are its own.
    EXPECT_EQ(add_base_type(second, "i"), 11U);
    EXPECT_EQ(dwarf_info_finish_compile_unit(second), 12U);
    unit.cu = nullptr;
    expected = BASE_TYPE_BYTES;
    expected.b4(12).b2(3).b4(0x1234).b1(2).raw({NUMBER, 'b', 0, 1, 5});
}

TEST_P(debug_info, compile_unit_with_an_absolute_name)
{
    dwarf_entry_info *entry =
        dwarf_info_start_compile_unit_entry(cu, 1, 0x01020304, "producer", 0x8001, "/src/main.c", &two_ranges, 1);
    EXPECT_EQ(dwarf_info_entry_offset(entry), HEADER_SIZE);
    EXPECT_EQ(dwarf_info_finish_compile_unit_entry(entry, false), HEADER_SIZE);
    expected.b1(1).b4(0x01020304).text("producer").b2(0x8001).text("/src/main.c");
}

TEST_P(debug_info, compile_unit_with_a_relative_name_has_the_working_directory)
{
    dwarf_info_finish_compile_unit_entry(dwarf_info_start_compile_unit_entry(cu, 1, 0, "", 1, "main.c", nullptr, 0),
                                         true);
    // With children comes the end of their list; there is no sibling field.
    expected.b1(1).b4(0).text("").b2(1).text("main.c").text(std::filesystem::current_path().string()).b1(0);
}

TEST_P(debug_info, compile_unit_pc_range)
{
    const auto start = [&](dwarf_use_mode mode, const sdb_range *ranges, std::uint32_t num_ranges) -> section_bytes & {
        dwarf_use_ranges = mode;
        dwarf_info_finish_compile_unit_entry(
            dwarf_info_start_compile_unit_entry(cu, 2, 0, "p", 1, "c:x", ranges, num_ranges), false);
        return expected.b1(2).b4(0).text("p").b2(1).text("c:x");
    };
    for (const std::uint32_t num_ranges : {0U, 1U, 2U}) {
        start(DWARF_USE_NEVER, &two_ranges, num_ranges); // nothing
    }
    start(DWARF_USE_AUTO, nullptr, 0);
    start(DWARF_USE_ALWAYS, nullptr, 0);
    start(DWARF_USE_AUTO, &second_range, 1);
    address(0x60);
    address(0x6F); // not the address behind it

    std::uint32_t offset = next_range_list();
    start(DWARF_USE_AUTO, &two_ranges, 2).b4(offset);
    EXPECT_EQ(next_range_list(), offset + 8U * address_size); // a selection, two ranges and the end
    offset = next_range_list();
    start(DWARF_USE_ALWAYS, &second_range, 1).b4(offset);
    EXPECT_EQ(next_range_list(), offset + 6U * address_size);
}

TEST_P(debug_info, compile_unit_assertions)
{
    {
        const trace_log log;
        dwarf_info_finish_compile_unit_entry(
            dwarf_info_start_compile_unit_entry(cu, 1, 0, nullptr, 1, "/x", nullptr, 0), false);
        EXPECT_EQ(log.failed(), (strings{"producer != NULL"}));
    }
    const trace_log log;
    dwarf_info_finish_compile_unit_entry(dwarf_info_start_compile_unit_entry(cu, 1, 0, "", 1, nullptr, nullptr, 0),
                                         false);
    EXPECT_EQ(log.failed(), (strings{"name != NULL"}));
    expected.b1(1).b4(0).text("").b2(1).text("/x");
    expected.b1(1).b4(0).text("").b2(1).text("").text(std::filesystem::current_path().string());
}

// ---- Functions and blocks

TEST_P(debug_info, plain_subprogram)
{
    dwarf_entry_info *entry =
        dwarf_info_start_subprogram_entry(cu, 200, "f", nullptr, false, 300, 70000, false, 0, &second_range, 1, false);
    EXPECT_EQ(dwarf_info_finish_subprogram_entry(entry, false), HEADER_SIZE);
    // A number of 128 and more takes two bytes; file and line have no limit here.
    expected.raw({0xC8, 0x01}).text("f").raw({0xAC, 0x02}).raw({0xF0, 0xA2, 0x04});
    address(0x60);
    address(0x6F);
    expected.b1(0);
}

TEST_P(debug_info, subprogram_with_everything)
{
    add_base_type(cu, "i");
    expected = BASE_TYPE_BYTES;
    dwarf_entry_info *entry =
        dwarf_info_start_subprogram_entry(cu, NUMBER, "f", "i", true, 1, 2, false, 0, &two_ranges, 2, true);
    EXPECT_EQ(dwarf_info_entry_offset(entry), 16U);
    EXPECT_EQ(dwarf_info_finish_subprogram_entry(entry, true), 16U);
    const std::uint32_t end = 16 + 1 + 4 + 2 + 4 + 1 + 1 + 1 + 2U * address_size + 1 + 1;
    expected.b1(NUMBER).b4(end).text("f").b4(HEADER_SIZE).raw({1, 1, 2});
    // Under `never` the first range stands for all.
    address(0x10);
    address(0x1F);
    expected.b1(0).b1(0);
    EXPECT_EQ(unit.top(), end);
}

TEST_P(debug_info, inlined_subprogram_has_no_pc_range)
{
    const trace_log log;
    for (const std::uint8_t inline_value : std::initializer_list<std::uint8_t>{1, 3}) {
        dwarf_info_finish_subprogram_entry(dwarf_info_start_subprogram_entry(cu, NUMBER, "f", nullptr, false, 1, 2,
                                                                             false, inline_value, nullptr, 0, false),
                                           false);
        expected.b1(NUMBER).text("f").raw({1, 2, inline_value});
    }
    EXPECT_EQ(log.failed(), strings{});
}

TEST_P(debug_info, subprogram_pc_range_by_mode)
{
    const auto start = [&](dwarf_use_mode mode, const sdb_range *ranges, std::uint32_t num_ranges) -> section_bytes & {
        dwarf_use_ranges = mode;
        dwarf_info_finish_subprogram_entry(dwarf_info_start_subprogram_entry(cu, NUMBER, "f", nullptr, false, 1, 2,
                                                                             false, 0, ranges, num_ranges, false),
                                           false);
        return expected.b1(NUMBER).text("f").raw({1, 2});
    };
    start(DWARF_USE_NEVER, &second_range, 1);
    address(0x60);
    address(0x6F).b1(0);
    start(DWARF_USE_NEVER, &two_ranges, 1); // one of several is passed
    address(0x10);
    address(0x1F).b1(0);
    start(DWARF_USE_AUTO, &second_range, 1);
    address(0x60);
    address(0x6F).b1(0);
    std::uint32_t offset = next_range_list();
    start(DWARF_USE_AUTO, &two_ranges, 2).b4(offset).b1(0);
    offset = next_range_list();
    start(DWARF_USE_ALWAYS, &second_range, 1).b4(offset).b1(0);
}

TEST_P(debug_info, subprogram_without_ranges)
{
    const trace_log log;
    dwarf_info_finish_subprogram_entry(
        dwarf_info_start_subprogram_entry(cu, NUMBER, "f", nullptr, false, 1, 2, false, 0, nullptr, 0, false), false);
    EXPECT_EQ(log.failed(), (strings{"ranges != NULL", "num_ranges != 0"}));
    // The bounds of no range count as 0.
    expected.b1(NUMBER).text("f").raw({1, 2});
    address(0);
    address(0).b1(0);
}

class frame_base : public database {};

TEST_F(frame_base, is_a_fixed_address)
{
    const dwarf_room room;
    read("[d frameptr 0x1234 ]\n");
    for (const bool big : {false, true}) {
        for (const std::uint8_t address_size : std::initializer_list<std::uint8_t>{1, 2, 4, 8}) {
            opt_big_endian = big;
            unit_writer unit(address_size);
            dwarf_info_finish_subprogram_entry(dwarf_info_start_subprogram_entry(unit.cu, NUMBER, "f", nullptr, true, 1,
                                                                                 2, true, 1, nullptr, 0, false),
                                               false);
            section_bytes expected = section_bytes().b1(NUMBER).text("f").raw({1, 1, 2});
            expected.b1(address_size + 1U).b1(3).number(0x1234, address_size).b1(1);
            EXPECT_EQ(unit.body(), expected) << big << int{address_size};
        }
    }
}

class blocks : public debug_info {
protected:
    void SetUp() override
    {
        opt_strip_ext = false;
        opt_verbose = 0;
        fresh_model();
        block->block.bl_file = "main.c";
        block->block.bl_first = 10;
        block->block.bl_last = 20;
    }
    void set_ranges(sdb_range *ranges, std::uint32_t count)
    {
        block->block.bl_ranges = ranges;
        block->block.bl_nranges = count;
    }
    // Line records of the model.
    static void add_lines(const std::vector<std::pair<std::uint32_t, std::uint32_t>> &lines)
    {
        for (const auto &[line, line_address] : lines) {
            tarn_add_line({.ln_file = tarn_add_file("main.c"), .ln_addr = line_address, .ln_line = line});
        }
        distribute_by_file(0);
    }
    void write(bool no_pc = false)
    {
        dwarf_info_finish_lexical_block(dwarf_info_start_lexical_block(cu, NUMBER, block, false, no_pc), false);
        expected.b1(NUMBER);
    }

    sdb_node *block = sdb_new_node(sc_block, "");
};
INSTANTIATE_TEST_SUITE_P(targets, blocks, testing::Combine(testing::Bool(), testing::Values<std::uint8_t>(1, 2, 4, 8)));

TEST_P(blocks, without_a_pc_range)
{
    for (const dwarf_use_mode mode : {DWARF_USE_NEVER, DWARF_USE_AUTO, DWARF_USE_ALWAYS}) {
        dwarf_use_ranges = mode;
        write(true);
    }
}

TEST_P(blocks, with_children)
{
    dwarf_entry_info *outer = dwarf_info_start_lexical_block(cu, NUMBER, block, true, true);
    dwarf_entry_info *inner = dwarf_info_start_lexical_block(cu, NUMBER, block, true, true);
    EXPECT_EQ(dwarf_info_finish_lexical_block(inner, true), HEADER_SIZE + 5);
    EXPECT_EQ(dwarf_info_finish_lexical_block(outer, true), HEADER_SIZE);
    // The inner one's sibling is the end of the outer one's children.
    expected.b1(NUMBER).b4(HEADER_SIZE + 5 + 5 + 1 + 1).b1(NUMBER).b4(HEADER_SIZE + 5 + 5 + 1).b1(0).b1(0);
}

TEST_P(blocks, one_range)
{
    set_ranges(&second_range, 1);
    for (const dwarf_use_mode mode : {DWARF_USE_NEVER, DWARF_USE_AUTO}) {
        dwarf_use_ranges = mode;
        write();
        address(0x60);
        address(0x6F);
    }
    dwarf_use_ranges = DWARF_USE_ALWAYS;
    const std::uint32_t offset = next_range_list();
    write();
    expected.b4(offset);
}

TEST_P(blocks, several_ranges_are_listed)
{
    set_ranges(&two_ranges, 2);
    for (const dwarf_use_mode mode : {DWARF_USE_AUTO, DWARF_USE_ALWAYS}) {
        dwarf_use_ranges = mode;
        const std::uint32_t offset = next_range_list();
        write();
        expected.b4(offset);
    }
}

TEST_P(blocks, several_ranges_unlisted_are_those_of_the_lines)
{
    const trace_log log;
    set_ranges(&two_ranges, 2);
    // Line 10 has code at 0x05 also, which no range of the block holds, and line 20 at 0x70.
    add_lines({{9, 0x04}, {10, 0x05}, {10, 0x12}, {15, 0x30}, {20, 0x64}, {20, 0x70}, {30, 0x72}});
    write();
    address(0x12);
    address(0x64);
    EXPECT_EQ(log.failed(), strings{});
}

TEST_P(blocks, a_line_without_an_address_is_0)
{
    set_ranges(&two_ranges, 2);
    write(); // no line at all
    address(0);
    address(0);

    // A first line with code in no range of the block, a last line with.
    add_lines({{10, 0x05}, {11, 0x06}, {20, 0x64}, {21, 0x72}});
    block->block.bl_first = 5; // before all lines of the file
    write();
    address(0);
    address(0x64);
    // The other way round the end comes before the start.
    const trace_log log;
    block->block.bl_first = 20;
    block->block.bl_last = 40;
    write();
    address(0x64);
    address(0);
    EXPECT_EQ(log.failed(), (strings{"end_addr >= start_addr"}));
}

TEST_P(blocks, no_range)
{
    const trace_log log;
    write();
    address(0);
    address(0);
    EXPECT_EQ(log.failed(), strings{});
    dwarf_use_ranges = DWARF_USE_AUTO;
    const std::uint32_t offset = next_range_list();
    write();
    expected.b4(offset);
    EXPECT_EQ(next_range_list(), offset + 4U * address_size); // a selection and the end
    EXPECT_EQ(log.failed(), (strings{"ranges != NULL"}));
}

// ---- Limits

// Writes an entry whose number is too large, and expects the stop and its trace.
class limits : public testing::Test {
protected:
    // What `write` traces; the run would have ended there.
    static void expect_stop(const std::function<dwarf_entry_info *(compile_unit_handle cu)> &write,
                            const std::string &text)
    {
        const dwarf_room room;
        const unit_writer unit;
        const survived_errors errors;
        add_base_type(unit.cu, "i");
        dwarf_entry_info *entry = write(unit.cu);
        EXPECT_EQ(errors.count(), text.empty() ? 0U : 1U) << text;
        EXPECT_EQ(errors.traced(), text.empty() ? strings{} : strings{text});
        dwarf_info_finish_variable_entry(entry);
    }
};

constexpr const char *VARIABLE_OPERATIONS[] = {
    "dwarf_info_start_variable_entry_no_location", "dwarf_info_start_variable_entry_single_location",
    "dwarf_info_start_variable_entry_multiple_locations", "dwarf_info_start_typedef_entry"};

dwarf_entry_info *start_object(compile_unit_handle cu, std::size_t operation, std::uint32_t file, std::uint32_t line)
{
    const sdb_location location = {.lo_kind = LO_ADDRESS};
    switch (operation) {
    case 0:
        return dwarf_info_start_variable_entry_no_location(cu, NUMBER, "v", file, line, "i", false, false);
    case 1:
        return dwarf_info_start_variable_entry_single_location(cu, NUMBER, "v", file, line, "i", false, &location);
    case 2:
        return dwarf_info_start_variable_entry_multiple_locations(cu, NUMBER, "v", file, line, "i", false, 0);
    default:
        return dwarf_info_start_typedef_entry(cu, NUMBER, "v", file, line, "i");
    }
}

TEST_F(limits, file_and_line_of_variables_and_typedefs)
{
    for (std::size_t i = 0; i < std::size(VARIABLE_OPERATIONS); ++i) {
        const std::string where = std::string(VARIABLE_OPERATIONS[i]) + " (dwarf_entries.cpp : N): ";
        expect_stop([&](compile_unit_handle cu) { return start_object(cu, i, 255, 65535); }, "");
        expect_stop([&](compile_unit_handle cu) { return start_object(cu, i, 256, 65535); },
                    where + "file number index exceeds value 0xff - can not be encoded in single byte");
        expect_stop([&](compile_unit_handle cu) { return start_object(cu, i, 255, 65536); },
                    where + "Line number exceeds value 0xffff - can not be encoded in two bytes");
    }
}

TEST_F(limits, file_and_line_of_structures_and_enumerations)
{
    for (const bool is_enum : {false, true}) {
        const auto start = [&](std::uint32_t file, std::uint32_t line) {
            return [=](compile_unit_handle cu) {
                return is_enum ? dwarf_info_start_enum_type_entry(cu, NUMBER, "e", "e", 1, file, line)
                               : dwarf_info_start_compound_type(cu, NUMBER, false, "s", "s", 1, file, line);
            };
        };
        const std::string where =
            std::string(is_enum ? "dwarf_info_start_enum_type_entry" : "dwarf_info_start_compound_type") +
            " (dwarf_entries.cpp : N): ";
        expect_stop(start(255, 65535), "");
        expect_stop(start(256, 65535), where + "File number exceeds 255 bytes - can not be encoded in single byte");
        expect_stop(start(255, 65536), where + "File number exceeds 65535 bytes - can not be encoded in 2 bytes");
    }
}

TEST_F(limits, size_of_an_enumeration)
{
    const auto start = [](std::uint32_t size) {
        return
            [=](compile_unit_handle cu) { return dwarf_info_start_enum_type_entry(cu, NUMBER, "e", "e", size, 1, 1); };
    };
    expect_stop(start(255), "");
    expect_stop(start(256), "dwarf_info_start_enum_type_entry (dwarf_entries.cpp : N): Size of the enum exceeds 255 "
                            "bytes - can not be encoded in single byte");
}

TEST_F(limits, size_of_a_bitfield_member)
{
    const auto start = [](std::uint32_t size, std::uint32_t bits) {
        return [=](compile_unit_handle cu) {
            return dwarf_info_start_member_entry(cu, NUMBER, "m", "i", size, bits, 0, 0, false);
        };
    };
    expect_stop(start(255, 1), "");
    expect_stop(start(256, 0), ""); // a plain member does not say its size
    expect_stop(start(256, 1),
                "dwarf_info_start_member_entry (dwarf_entries.cpp : N): Size of the struct member exceeds "
                "255 bytes - can not be encoded in single byte");
}

TEST_F(limits, widths_of_bitfields_are_assertions)
{
    const dwarf_room room;
    const unit_writer unit;
    add_base_type(unit.cu, "i");
    const trace_log log;
    const auto add = [&](std::uint32_t bits, std::uint32_t bits_offset) {
        dwarf_info_finish_member_entry(
            dwarf_info_start_member_entry(unit.cu, NUMBER, "m", "i", 1, bits, bits_offset, 0, true));
    };
    add(255, 255);
    EXPECT_EQ(log.failed(), strings{});
    add(256, 0);
    add(1, 256);
    EXPECT_EQ(log.failed(), (strings{"bits <= 0xff", "bits_offset <= 0xff"}));
}

TEST_F(limits, end_the_run)
{
    expect_run(
        [] {
            const dwarf_room room;
            const unit_writer unit;
            dwarf_info_finish_subprogram_entry(dwarf_info_start_subprogram_entry(unit.cu, NUMBER, "f", nullptr, false,
                                                                                 256, 65536, false, 1, nullptr, 0,
                                                                                 false),
                                               false);
            note("a subprogram has no limit");
            dwarf_info_start_typedef_entry(unit.cu, NUMBER, "t", 256, 1, nullptr);
            note("not reached");
        },
        "a subprogram has no limit\n" + INTERNAL_ERROR_TEXT + "\n", 1);
}

// ---- Faults of callers

TEST(debug_info_faults, null_entries_are_assertions)
{
    const dwarf_room room;
    const trace_log log;
    EXPECT_EQ(dwarf_info_finish_basic_type_entry(nullptr), 0U);
    EXPECT_EQ(dwarf_info_finish_qualified_type_entry(nullptr), 0U);
    EXPECT_EQ(dwarf_info_finish_pointer_type_entry(nullptr), 0U);
    EXPECT_EQ(dwarf_info_finish_array_type_entry(nullptr), 0U);
    EXPECT_EQ(dwarf_info_finish_typedef_entry(nullptr), 0U);
    EXPECT_EQ(dwarf_info_finish_subroutine_entry(nullptr, true), 0U);
    EXPECT_EQ(dwarf_info_finish_compound_type_entry(nullptr, true), 0U);
    EXPECT_EQ(log.failed(),
              (strings{"NULL != basic_type_entry_info", "NULL != qualified_type_entry_info",
                       "NULL != pointer_type_entry_info", "NULL != array_type_entry_info", "NULL != typedef_entry_info",
                       "NULL != subroutine_type_entry_info", "NULL != compound_type_info"}));
}

TEST(debug_info_faults, null_arguments_are_assertions)
{
    const dwarf_room room;
    const unit_writer unit;
    add_base_type(unit.cu, "i");
    trace_log log;
    const auto expect = [&](const strings &texts) {
        EXPECT_EQ(log.failed(), texts);
        log.failed().clear();
    };
    dwarf_info_finish_compound_type_entry(
        dwarf_info_start_compound_type(unit.cu, NUMBER, false, nullptr, nullptr, 1, 1, 1), false);
    expect({"NULL != type_id"});
    dwarf_info_finish_variable_entry(
        dwarf_info_start_variable_entry_no_location(unit.cu, NUMBER, "v", 1, 1, nullptr, false, false));
    expect({"NULL != type_id"});
    dwarf_info_finish_array_type_entry(dwarf_info_start_array_type_entry(unit.cu, NUMBER, "a", nullptr));
    expect({"NULL != base_type_id"});
    dwarf_info_finish_array_type_entry(dwarf_info_start_array_type_entry(unit.cu, NUMBER, nullptr, "i"));
    expect({"NULL != array_type_id", "NULL != type_id"});
    EXPECT_EQ(dwarf_info_start_typedef_entry(nullptr, NUMBER, nullptr, 1, 1, nullptr), nullptr);
    expect({"NULL != compile_unit_info", "NULL != name"});
}

TEST(debug_info_faults, children_without_a_sibling_field)
{
    const dwarf_room room;
    unit_writer unit;
    const trace_log log;
    dwarf_info_finish_compound_type_entry(dwarf_info_start_compound_type(unit.cu, NUMBER, false, nullptr, "s", 1, 2, 3),
                                          true);
    EXPECT_EQ(log.failed(), (strings{"DWARF_INFO_INVALID_SIBLING_FIELD_OFFSET != entry->sibling_field_unit_offset"}));
    EXPECT_EQ(unit.body(), section_bytes().b1(NUMBER).b1(1).b1(2).b2(3).b1(0));
}

TEST(debug_info_faults, section_that_was_not_opened)
{
    const dwarf_room room;
    const survived_errors errors;
    std::free(dwarf_info_section.ds_start);
    dwarf_info_section = {};
    const compile_unit_handle cu = dwarf_info_start_compile_unit(2, 0, 4);
    EXPECT_EQ(errors.count(), 1U);
    EXPECT_EQ(errors.traced(), (strings{"dwarf_section_ensure_initalisation_and_enough_memory: "
                                        "Module wasn't properly initialised"}));
    dwarf_info_finish_compile_unit(cu);
}

// A target whose memory unit has two bytes: what is stored is counted in units, what moves the top in bytes.
TEST(debug_info_units, of_a_word_addressed_target)
{
    const dwarf_room room;
    dwarf_accessors words = dwarf_byte_accessors;
    words.dwarf_scale_offset = [](std::uint32_t units) { return units * 2; };
    words.dwarf_unscale_offset = [](std::uint32_t bytes) { return bytes / 2; };
    dwarf_access = &words;
    unit_writer unit(4, false);
    const compile_unit_handle cu = dwarf_info_start_compile_unit(2, 0, 4); // 8 reserved, 2, 4, 1
    EXPECT_EQ(add_base_type(cu, "i"), 15U / 2);                            // 5 bytes from 15
    dwarf_entry_info *entry = dwarf_info_start_compound_type(cu, NUMBER, true, nullptr, "s", 2, 1, 2); // from 20
    EXPECT_EQ(dwarf_info_entry_offset(entry), 10U);
    dwarf_info_finish_member_entry(dwarf_info_start_member_entry(cu, NUMBER, "", "i", 1, 0, 0, 300, false));
    EXPECT_EQ(dwarf_info_finish_compound_type_entry(entry, true), 10U);
    dwarf_info_finish_typedef_entry(dwarf_info_start_typedef_entry(cu, NUMBER, "", 1, 2, "Qs"));
    dwarf_info_redirect_references(cu, "Qs", 10);

    section_bytes expected;
    expected.b4(0).raw({0, 0, 0, 0}).b2(2).b4(0).b1(4);
    expected.raw({NUMBER, 'b', 0, 1, 5});
    expected.b1(NUMBER).b4(0).raw({0, 0, 0, 0}).b1(2).b1(1).b2(2);
    // The member's location: two bytes for the one unit of its length, which counts 3 bytes all the same.
    expected.b1(NUMBER).text("").b4(15 / 2).raw({3, 0}).raw({0x23, 0xAC, 0x02}).b1(0);
    const std::uint32_t sibling = static_cast<std::uint32_t>(expected.size()) / 2;
    expected.b1(NUMBER).text("").b1(1).b2(2).b4(10);
    const std::uint32_t length = (static_cast<std::uint32_t>(expected.size()) - 8) / 2;
    EXPECT_EQ(dwarf_info_finish_compile_unit(cu), length);

    expected[0] = static_cast<std::uint8_t>(length);
    expected[21] = static_cast<std::uint8_t>(sibling);
    EXPECT_EQ(unit.all(), expected);
}

} // namespace
