// SPDX-License-Identifier: MIT
// Identification and reading of COFF files that are put together here byte by byte.
#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/alert.h"
#include "compiler/tarnwick/coff_file.h"
#include "compiler/tarnwick/format.h"
#include "compiler/tarnwick/model.h"
#include "compiler/tarnwick/options.h"
#include "tests/unit/tarnwick/coff_bytes.h"
#include "tests/unit/tarnwick/fresh_model.h"
#include "tests/unit/tarnwick/image_testing.h"

namespace {

using namespace coff_bytes;

const std::string ZERO_WIDTH = "(639) zero bit width in Vantrel optional header (warning)\n";
const std::string UNKNOWN_OPTIONAL = "(1043) unknown optional header\n";
const std::string SHORT_TABLE = "(1038) string table length too short\n";

std::string short_read(const std::string &label)
{
    return "(1037) short read on " + label + "\n";
}

std::string unknown_class(int number)
{
    return "(633) unknown symbol class (" + std::to_string(number) + ") (warning)\n";
}

struct read_result {
    bool result;
    std::string errors;

    bool operator==(const read_result &) const = default;
};

void PrintTo(const read_result &r, std::ostream *out)
{
    *out << (r.result ? "true" : "false") << "\nerrors:\n" << r.errors;
}

const read_result CLEAN = {true, ""};

class vcoff_read_test : public testing::Test {
protected:
    void SetUp() override
    {
        set_maxerrors(1000000);
        alert_set_position(nullptr, nullptr);
        alert_set_format_mode(0);
        opt_big_endian = false;
        opt_strip_ext = false;
        coff = {};
    }
    void TearDown() override { opt_big_endian = false; }

    static bool identify(const std::string &content) { return identify_image(format_vcoff, content); }

    // Into the model as it is.
    static read_result add(const std::string &content)
    {
        const image_file file(content);
        testing::internal::CaptureStderr();
        const bool result = format_vcoff.read(file.stream(), "in.cof");
        return {result, testing::internal::GetCapturedStderr()};
    }
    // Into a new model.
    static read_result read_bytes(const std::string &content)
    {
        fresh_model();
        return add(content);
    }
    static read_result read(const file_fields &file) { return read_bytes(file.bytes()); }

    static const tarn_segment &segment(std::uint32_t index) { return *seg_list.get(index); }
    static const tarn_symbol &symbol(std::uint32_t index) { return *symbol_list.get(index); }
    static const tarn_line &line(std::uint32_t index) { return *line_list.get(index); }
    static const tarn_data &data(std::uint32_t index) { return *data_list.get(index); }
    static std::string bytes_of(const tarn_data &block) { return {block.da_bytes, block.da_bytes + block.da_len}; }
};

// --- the row and identification -------------------------------------------------------------------------------------

TEST_F(vcoff_read_test, is_a_binary_format)
{
    EXPECT_STREQ(format_vcoff.name, "Vantrel COFF");
    EXPECT_STREQ(format_vcoff.key, "vcoff");
    EXPECT_STREQ(format_vcoff.ext, "cof");
    EXPECT_TRUE(format_vcoff.binary);
}

TEST_F(vcoff_read_test, is_known_by_its_magic)
{
    EXPECT_TRUE(identify(file_fields().bytes()));
    EXPECT_TRUE(identify("\x40\x12" + zeros(18)));
    EXPECT_FALSE(identify("\x12\x40" + zeros(18))); // high byte first, whatever the byte order
    EXPECT_FALSE(identify("\x41\x12" + zeros(18)));
    EXPECT_FALSE(identify("\x40\x13" + zeros(18)));
}

TEST_F(vcoff_read_test, identification_needs_the_whole_header)
{
    EXPECT_FALSE(identify(""));
    EXPECT_FALSE(identify("\x40\x12" + zeros(17)));
}

TEST_F(vcoff_read_test, identification_bounds)
{
    const auto header = [](std::uint32_t sections, std::uint32_t symptr, std::uint32_t nsyms) {
        return "\x40\x12" + le16(sections) + le32(0) + le32(symptr) + le32(nsyms) + le16(99) + le16(0);
    };
    EXPECT_TRUE(identify(header(1000, 0x7FFFFFFF, 0x7FFFFFFF)));
    EXPECT_FALSE(identify(header(1001, 0, 0)));
    EXPECT_FALSE(identify(header(0xFFFF, 0, 0))); // no negative number
    EXPECT_FALSE(identify(header(0, 0x80000000, 0)));
    EXPECT_FALSE(identify(header(0, 0xFFFFFFFF, 0)));
    EXPECT_FALSE(identify(header(0, 0, 0x80000000)));
}

TEST_F(vcoff_read_test, identification_sets_the_byte_order)
{
    opt_big_endian = true;
    EXPECT_FALSE(identify("\x12\x40" + zeros(18)));
    EXPECT_FALSE(identify("\x40\x12"));
    EXPECT_TRUE(opt_big_endian);
    EXPECT_TRUE(identify(file_fields().bytes()));
    EXPECT_FALSE(opt_big_endian);
}

TEST_F(vcoff_read_test, a_file_refused_behind_the_magic_leaves_the_byte_order_set)
{
    opt_big_endian = true;
    EXPECT_FALSE(identify("\x40\x12" + le16(1001) + zeros(16)));
    EXPECT_FALSE(opt_big_endian);
}

// --- headers --------------------------------------------------------------------------------------------------------

TEST_F(vcoff_read_test, an_empty_program)
{
    EXPECT_EQ(read(file_fields()), CLEAN);
    EXPECT_EQ(seg_list.count() + data_list.count() + symbol_list.count() + line_list.count() + file_list.count(), 0U);
}

TEST_F(vcoff_read_test, settings_come_from_the_optional_header)
{
    EXPECT_EQ(read({.optional = optional_header(14, 8, 0x12345678)}), CLEAN);
    EXPECT_EQ(coff.processor, 0x12345678U);
    EXPECT_EQ(coff.rom_width, 14U);
    EXPECT_EQ(coff.ram_width, 8U);
    EXPECT_EQ(coff.rom_unit, 2U);
    EXPECT_EQ(coff.ram_unit, 1U);
}

TEST_F(vcoff_read_test, units_are_widths_rounded_up_to_bytes)
{
    const auto unit = [](std::uint32_t width) {
        EXPECT_EQ(read({.optional = optional_header(width, 9)}), CLEAN) << width;
        EXPECT_EQ(coff.ram_unit, 2U);
        return coff.rom_unit;
    };
    EXPECT_EQ(unit(1), 1U);
    EXPECT_EQ(unit(8), 1U);
    EXPECT_EQ(unit(12), 2U);
    EXPECT_EQ(unit(16), 2U);
    EXPECT_EQ(unit(17), 3U);
    EXPECT_EQ(unit(0xFFFFFFFF), 0x20000000U);
}

TEST_F(vcoff_read_test, a_width_of_zero_is_reported_once_and_counts_as_one_byte)
{
    EXPECT_EQ(read({.optional = optional_header(0, 16)}), (read_result{true, ZERO_WIDTH}));
    EXPECT_EQ(coff.rom_unit, 1U);
    EXPECT_EQ(coff.ram_unit, 2U);
    EXPECT_EQ(read({.optional = optional_header(16, 0)}), (read_result{true, ZERO_WIDTH}));
    EXPECT_EQ(coff.rom_unit, 2U);
    EXPECT_EQ(coff.ram_unit, 1U);
    EXPECT_EQ(read({.optional = optional_header(0, 0)}), (read_result{true, ZERO_WIDTH}));
}

TEST_F(vcoff_read_test, without_optional_header_a_unit_is_a_byte)
{
    EXPECT_EQ(read({.optional = optional_header(16, 16)}), CLEAN); // and nothing of it is left
    const file_fields file = {.optional = "", .sections = {{.paddr = 0x30, .flags = 0x80}}};
    EXPECT_EQ(read(file), (read_result{true, UNKNOWN_OPTIONAL + ZERO_WIDTH}));
    EXPECT_EQ(coff.rom_unit, 1U);
    EXPECT_EQ(coff.ram_unit, 1U);
    EXPECT_EQ(segment(0).sg_addr, 0x30U);
}

TEST_F(vcoff_read_test, an_optional_header_of_another_size_is_stepped_over)
{
    for (const std::size_t size : {17U, 19U, 500U}) {
        const file_fields file = {.optional = std::string(size, 'x'), .sections = {{.flags = 0x80}}};
        EXPECT_EQ(read(file), (read_result{true, UNKNOWN_OPTIONAL + ZERO_WIDTH})) << size;
        EXPECT_STREQ(segment(0).sg_name, "code");
    }
}

TEST_F(vcoff_read_test, magic_and_version_of_the_optional_header_do_not_matter)
{
    EXPECT_EQ(read({.optional = optional_header(8, 8, 0, 1, 1)}), CLEAN);
}

// --- short files ----------------------------------------------------------------------------------------------------

TEST_F(vcoff_read_test, short_headers)
{
    EXPECT_EQ(read_bytes(""), (read_result{false, short_read("COFF header")}));
    const std::string file = file_fields().bytes();
    EXPECT_EQ(read_bytes(file.substr(0, 19)), (read_result{false, short_read("COFF header")}));
    EXPECT_EQ(read_bytes(file.substr(0, 37)), (read_result{false, short_read("Vantrel optional header")}));
}

TEST_F(vcoff_read_test, short_string_table)
{
    const auto with_strings = [](const std::string &strings) { return read({.strings = strings}); };
    EXPECT_EQ(with_strings(""), (read_result{false, short_read("COFF string table size")}));
    EXPECT_EQ(with_strings(zeros(3)), (read_result{false, short_read("COFF string table size")}));
    EXPECT_EQ(with_strings(le32(3)), (read_result{false, SHORT_TABLE}));
    EXPECT_EQ(with_strings(le32(0)), (read_result{false, SHORT_TABLE}));
    EXPECT_EQ(with_strings(le32(4)), CLEAN);
    EXPECT_EQ(with_strings(le32(5)), (read_result{false, short_read("COFF string table")}));
    EXPECT_EQ(with_strings(le32(0xFFFFFFFF) + "abc"), (read_result{false, short_read("COFF string table")}));
}

TEST_F(vcoff_read_test, a_string_table_behind_the_end)
{
    EXPECT_EQ(read({.symptr = 0xFFFFFFFF}), (read_result{false, short_read("COFF string table size")}));
    EXPECT_EQ(read({.nsyms = 0x01000000}), (read_result{false, short_read("COFF string table size")}));
}

TEST_F(vcoff_read_test, the_string_table_is_read_in_front_of_the_sections)
{
    EXPECT_FALSE(read({.sections = {{}}, .strings = le32(3)}).result);
    EXPECT_EQ(seg_list.count(), 0U);
}

TEST_F(vcoff_read_test, short_section_header)
{
    // The string table lies where the section headers should, and has 39 bytes.
    const file_fields file = {.section_count = 1, .strings = string_table({std::string(34, 'x')})};
    EXPECT_EQ(read(file), (read_result{false, short_read("COFF section header")}));
    EXPECT_EQ(seg_list.count(), 0U);
}

TEST_F(vcoff_read_test, a_section_count_is_bounded_by_the_file_alone)
{
    file_fields file = {.section_count = 0xFFFF};
    for (int i = 0; i < 3; ++i) {
        file.sections.push_back({.name = short_name("s" + std::to_string(i)), .flags = 0x80});
    }
    EXPECT_EQ(read(file), (read_result{false, short_read("COFF section header")}));
    EXPECT_EQ(seg_list.count(), 3U); // what was added stays
}

TEST_F(vcoff_read_test, short_data)
{
    file_fields file = {.sections = {{.size = 16384 + 100}}};
    file.sections[0].scnptr = file.between_position();
    file.between = std::string(16384 + 99 - 4, 'd'); // the string table gives the last four bytes
    EXPECT_EQ(read(file), (read_result{false, short_read("COFF data")}));
    ASSERT_EQ(data_list.count(), 1U); // the whole piece
    EXPECT_EQ(data(0).da_len, 16384U);
    EXPECT_EQ(read({.sections = {{.size = 1, .scnptr = 0xFFFFFFFF}}}), (read_result{false, short_read("COFF data")}));
}

TEST_F(vcoff_read_test, short_symbol_table)
{
    // The size of so many entries wraps to 20 bytes, where the string table is.
    const file_fields file = {.symbols = symbol_fields{.cls = 2}.bytes(), .nsyms = 0x40000001};
    EXPECT_EQ(read(file), (read_result{false, short_read("COFF symbol table")}));
    EXPECT_EQ(symbol_list.count(), 1U);
}

TEST_F(vcoff_read_test, short_line_numbers)
{
    file_fields file = {.sections = {{.lines = 2, .flags = 0x80}}};
    file.sections[0].lnnoptr = file.between_position();
    file.between = line_record(7, 0x70) + zeros(11); // and four bytes of the string table
    EXPECT_EQ(read(file), (read_result{false, short_read("COFF line number")}));
    EXPECT_EQ(line_list.count(), 1U);
}

// --- sections and data ----------------------------------------------------------------------------------------------

TEST_F(vcoff_read_test, sections_become_segments)
{
    const file_fields file = {.optional = optional_header(16, 8),
                              .sections = {{.name = short_name("first"), .paddr = 0x100, .size = 0x20, .flags = 0x80},
                                           {.name = long_name(4), .paddr = 3, .size = 5, .flags = 0x1080}},
                              .strings = string_table({"a_long_section_name"})};
    EXPECT_EQ(read(file), CLEAN);
    ASSERT_EQ(seg_list.count(), 2U);
    const tarn_segment &first = segment(0);
    EXPECT_STREQ(first.sg_name, "first");
    EXPECT_EQ(first.sg_index, 0U); // numbered from 0
    EXPECT_EQ(first.sg_addr, 0x200U);
    EXPECT_EQ(first.sg_load, 0x200U);
    EXPECT_EQ(first.sg_size, 0x20U); // bytes already
    EXPECT_EQ(first.sg_space + first.sg_flags + first.sg_delta, 0U);
    const tarn_segment &second = segment(1);
    EXPECT_STREQ(second.sg_name, "a_long_section_name");
    EXPECT_EQ(second.sg_index, 1U);
    EXPECT_EQ(second.sg_addr, 6U);
}

TEST_F(vcoff_read_test, addresses_wrap)
{
    EXPECT_EQ(read({.optional = optional_header(16, 8), .sections = {{.paddr = 0x80000001, .flags = 0x80}}}), CLEAN);
    EXPECT_EQ(segment(0).sg_addr, 2U);
}

TEST_F(vcoff_read_test, data_of_sections)
{
    file_fields file = {.optional = optional_header(16, 8),
                        .sections = {{.paddr = 0x10, .size = 3},
                                     {.name = short_name("empty"), .size = 0},
                                     {.name = short_name("ram"), .paddr = 0x40, .size = 2, .flags = 0x40}}};
    file.sections[0].scnptr = file.between_position() + 2;
    file.sections[2].scnptr = file.between_position();
    file.between = "DDcde";
    EXPECT_EQ(read(file), CLEAN);
    ASSERT_EQ(data_list.count(), 2U);
    EXPECT_EQ(data(0).da_addr, 0x20U);
    EXPECT_EQ(data(0).da_seg, 1U); // numbered from 1
    EXPECT_EQ(bytes_of(data(0)), "cde");
    EXPECT_EQ(data(1).da_addr, 0x80U); // the program's unit, in data memory too
    EXPECT_EQ(data(1).da_seg, 3U);
    EXPECT_EQ(bytes_of(data(1)), "DD");
}

TEST_F(vcoff_read_test, data_comes_in_pieces)
{
    file_fields file = {.optional = optional_header(12, 8), .sections = {{.paddr = 0x100, .size = 2 * 16384 + 1}}};
    file.sections[0].scnptr = file.between_position();
    file.between = std::string(16384, 'a') + std::string(16384, 'b') + 'c';
    EXPECT_EQ(read(file), CLEAN);
    ASSERT_EQ(data_list.count(), 3U);
    EXPECT_EQ(data(0).da_addr, 0x200U);
    EXPECT_EQ(bytes_of(data(0)), std::string(16384, 'a'));
    EXPECT_EQ(data(1).da_addr, 0x200U + 16384);
    EXPECT_EQ(bytes_of(data(1)), std::string(16384, 'b'));
    EXPECT_EQ(data(2).da_addr, 0x200U + 2 * 16384);
    EXPECT_EQ(bytes_of(data(2)), "c");
    EXPECT_EQ(data(2).da_seg, 1U);
}

TEST_F(vcoff_read_test, data_of_whole_pieces)
{
    file_fields file = {.sections = {{.size = 16384}}};
    file.sections[0].scnptr = file.between_position();
    file.between = std::string(16384, 'a');
    EXPECT_EQ(read(file), CLEAN);
    EXPECT_EQ(data_list.count(), 1U);
}

TEST_F(vcoff_read_test, a_bss_section_has_a_segment_and_no_data)
{
    EXPECT_EQ(read({.sections = {{.size = 0x1000, .scnptr = 0xFFFFFF00, .flags = 0xA0}}}), CLEAN);
    EXPECT_EQ(segment(0).sg_size, 0x1000U);
    EXPECT_EQ(data_list.count(), 0U);
}

TEST_F(vcoff_read_test, sections_of_one_name_share_a_segment)
{
    file_fields file = {.sections = {{.paddr = 0x10, .size = 1}, {.paddr = 0x20, .size = 2}}};
    file.sections[0].scnptr = file.between_position();
    file.sections[1].scnptr = file.between_position() + 1;
    file.between = "abb";
    EXPECT_EQ(read(file), CLEAN);
    ASSERT_EQ(seg_list.count(), 1U);
    EXPECT_EQ(segment(0).sg_addr, 0x10U);
    ASSERT_EQ(data_list.count(), 2U);
    EXPECT_EQ(data(0).da_seg, 1U);
    EXPECT_EQ(data(1).da_seg, 2U);
    EXPECT_EQ(data(1).da_addr, 0x20U);
}

TEST_F(vcoff_read_test, parts_may_share_bytes)
{
    file_fields file = {.sections = std::vector<section_fields>(100, {.size = 5, .lines = 1})};
    for (section_fields &section : file.sections) {
        section.scnptr = section.lnnoptr = file.between_position();
    }
    file.between = line_record(3, 4);
    EXPECT_EQ(read(file), CLEAN);
    EXPECT_EQ(data_list.count(), 100U);
    EXPECT_EQ(line_list.count(), 100U);
}

TEST_F(vcoff_read_test, a_file_that_is_shared_beyond_all_sense_has_ended)
{
    constexpr std::uint32_t SIZE = 1 << 20;
    file_fields file = {.sections = std::vector<section_fields>(1000, {.size = SIZE})};
    for (section_fields &section : file.sections) {
        section.scnptr = file.between_position();
    }
    file.between = zeros(SIZE);
    EXPECT_EQ(read(file), (read_result{false, short_read("COFF data")}));
    EXPECT_GE(data_list.count(), 4 * SIZE / 16384);
    EXPECT_LE(data_list.count(), 32 * SIZE / 16384);
}

// --- symbols --------------------------------------------------------------------------------------------------------

TEST_F(vcoff_read_test, symbols_of_three_classes)
{
    for (const std::uint32_t cls : {2U, 3U, 6U}) {
        const symbol_fields entry = {
            .name = short_name("_main"), .value = 0x89ABCDEF, .section = 7, .type = 0x44, .cls = cls};
        EXPECT_EQ(read({.symbols = entry.bytes()}), CLEAN);
        ASSERT_EQ(symbol_list.count(), 1U) << cls;
        EXPECT_STREQ(symbol(0).sy_name, "_main");
        EXPECT_EQ(symbol(0).sy_value, 0x89ABCDEFU);
        EXPECT_EQ(symbol(0).sy_seg, 7U);
        EXPECT_EQ(symbol(0).sy_file, 0U);
        EXPECT_EQ(symbol(0).sy_psect, nullptr);
        EXPECT_EQ(symbol(0).sy_load + symbol(0).sy_flags + symbol(0).sy_space, 0U);
        EXPECT_EQ(tarn_find_symbol("_main"), symbol_list.get(0));
    }
}

TEST_F(vcoff_read_test, section_numbers_of_symbols_stay_as_they_are)
{
    const std::string symbols =
        symbol_fields{.section = 0xFFFE, .cls = 6}.bytes() + symbol_fields{.section = 0xFFFF, .cls = 6}.bytes();
    EXPECT_EQ(read({.symbols = symbols}), CLEAN);
    EXPECT_EQ(symbol(0).sy_seg, 0xFFFEU);
    EXPECT_EQ(symbol(1).sy_seg, 0xFFFFU);
}

TEST_F(vcoff_read_test, every_other_class)
{
    const std::vector<std::uint32_t> skipped = {0,  1,  8,  10,  11,  12,  13,  15,  16,
                                                17, 18, 19, 100, 101, 102, 107, 108, 109};
    const std::vector<std::uint32_t> taken = {2, 3, 6, 103};
    const auto has = [](const std::vector<std::uint32_t> &list, std::uint32_t cls) {
        return std::find(list.begin(), list.end(), cls) != list.end();
    };
    for (std::uint32_t cls = 0; cls < 256; ++cls) {
        if (has(taken, cls)) {
            continue;
        }
        const int number = static_cast<int>(cls < 128 ? cls : cls - 256); // a signed byte
        EXPECT_EQ(read({.symbols = symbol_fields{.cls = cls}.bytes()}),
                  (read_result{true, has(skipped, cls) ? "" : unknown_class(number)}));
        EXPECT_EQ(symbol_list.count() + file_list.count(), 0U) << cls;
    }
}

TEST_F(vcoff_read_test, auxiliary_entries_are_taken_for_symbols)
{
    // Byte 18 of the second one stands where a class would.
    const std::string symbols = symbol_fields{.name = short_name("a"), .cls = 2, .aux = 2}.bytes() +
                                aux_with(0, "12345678") + aux_with(18, "\x02") +
                                symbol_fields{.name = short_name("b"), .cls = 2}.bytes();
    EXPECT_EQ(read({.symbols = symbols}), CLEAN);
    ASSERT_EQ(symbol_list.count(), 3U);
    EXPECT_STREQ(symbol(0).sy_name, "a");
    EXPECT_STREQ(symbol(1).sy_name, "\x04"); // the table's own size, 4, as text
    EXPECT_STREQ(symbol(2).sy_name, "b");
    EXPECT_EQ(read({.symbols = aux_with(18, "\x05")}), (read_result{true, unknown_class(5)}));
}

TEST_F(vcoff_read_test, names)
{
    const std::string strings = string_table({"nine_char", "", "last"});
    const auto name = [&](const std::string &field) {
        EXPECT_EQ(read({.symbols = symbol_fields{.name = field, .cls = 2}.bytes(), .strings = strings}), CLEAN);
        return std::string(symbol(0).sy_name);
    };
    EXPECT_EQ(name("12345678"), "12345678"); // not terminated
    EXPECT_EQ(name(short_name("1234567")), "1234567");
    EXPECT_EQ(name(std::string("ab\0cdefg", 8)), "ab");
    EXPECT_EQ(name(std::string("\0a\0\0\0\0\0\0", 8)), ""); // the first four bytes are not all zero
    EXPECT_EQ(name(long_name(4)), "nine_char");
    EXPECT_EQ(name(long_name(6)), "ne_char");
    EXPECT_EQ(name(long_name(14)), "");
    EXPECT_EQ(name(long_name(15)), "last");
    EXPECT_EQ(name(long_name(19)), "");
    EXPECT_EQ(name(long_name(20)), ""); // outside from here on
    EXPECT_EQ(name(long_name(0xFFFFFFFF)), "");
    EXPECT_EQ(name(long_name(0)), "\x14"); // the table's size, 20 bytes
}

TEST_F(vcoff_read_test, a_name_may_end_with_the_table)
{
    const file_fields file = {.symbols = symbol_fields{.name = long_name(4), .cls = 2}.bytes(),
                              .strings = le32(7) + "abcdef"};
    EXPECT_EQ(read(file), CLEAN);
    EXPECT_STREQ(symbol(0).sy_name, "abc");
}

TEST_F(vcoff_read_test, long_names_are_whole)
{
    const std::string text(100000, 'x');
    std::string symbols;
    for (const std::size_t length : {254U, 255U, 256U, 100000U}) {
        symbols +=
            symbol_fields{.name = long_name(static_cast<std::uint32_t>(4 + text.size() - length)), .cls = 2}.bytes();
    }
    EXPECT_EQ(read({.symbols = symbols, .strings = string_table({text})}), CLEAN);
    EXPECT_EQ(symbol(0).sy_name, text.substr(0, 254));
    EXPECT_EQ(symbol(1).sy_name, text.substr(0, 255));
    EXPECT_EQ(symbol(2).sy_name, text.substr(0, 256));
    EXPECT_EQ(symbol(3).sy_name, text);
}

TEST_F(vcoff_read_test, endless_names_are_cut_when_they_outgrow_the_file)
{
    constexpr std::uint32_t LENGTH = 1 << 20;
    std::string symbols;
    for (std::uint32_t i = 0; i < 1000; ++i) {
        symbols += symbol_fields{.name = long_name(4 + i), .cls = 2}.bytes();
    }
    EXPECT_EQ(read({.symbols = symbols, .strings = string_table({std::string(LENGTH, 'x')})}), CLEAN);
    ASSERT_EQ(symbol_list.count(), 1000U);
    std::size_t sum = 0;
    for (std::uint32_t i = 0; i < 1000; ++i) {
        const std::size_t length = std::string(symbol(i).sy_name).size();
        EXPECT_GE(length, 255U);
        sum += length;
    }
    EXPECT_EQ(std::string(symbol(0).sy_name).size(), LENGTH);
    EXPECT_LE(sum, 32 * LENGTH);
}

// --- files ----------------------------------------------------------------------------------------------------------

TEST_F(vcoff_read_test, a_file_goes_by_the_entrys_own_name)
{
    const std::string symbols = symbol_fields{.name = short_name("before"), .cls = 2}.bytes() +
                                symbol_fields{.name = short_name(".file"), .cls = 103, .aux = 1}.bytes() +
                                aux_with(0, le32(4)) + symbol_fields{.name = short_name("in"), .cls = 3}.bytes() +
                                symbol_fields{.name = short_name(".eof"), .cls = 107}.bytes() +
                                symbol_fields{.name = short_name("behind"), .cls = 6}.bytes();
    EXPECT_EQ(read({.symbols = symbols, .strings = string_table({"main.c"})}), CLEAN);
    ASSERT_EQ(file_list.count(), 1U);
    EXPECT_STREQ(file_list.get(0)->fl_name, ".file");
    EXPECT_EQ(file_list.get(0)->fl_nsymbols, 2U);
    EXPECT_EQ(symbol(0).sy_file, 0U);
    EXPECT_EQ(symbol(1).sy_file, 1U);
    EXPECT_EQ(symbol(2).sy_file, 1U); // the end of a file changes nothing
}

TEST_F(vcoff_read_test, files_with_names_of_their_own)
{
    const auto file_entry = [](const std::string &name) {
        return symbol_fields{.name = short_name(name), .cls = 103}.bytes();
    };
    const std::string label = symbol_fields{.cls = 6}.bytes();
    EXPECT_EQ(read({.symbols = file_entry("a.c") + label + file_entry("b.c") + label + file_entry("a.c") + label}),
              CLEAN);
    EXPECT_EQ(symbol(0).sy_file, 1U);
    EXPECT_EQ(symbol(1).sy_file, 2U);
    EXPECT_EQ(symbol(2).sy_file, 1U);
    EXPECT_EQ(file_list.count(), 2U);
}

// --- lines ----------------------------------------------------------------------------------------------------------

// Symbols with file entries at 0, 2 and 3, named by `names`.
std::string three_files(const std::string &first, const std::string &second, const std::string &third)
{
    return symbol_fields{.name = short_name(first), .cls = 103, .aux = 1}.bytes() + zeros(20) +
           symbol_fields{.name = short_name(second), .cls = 103}.bytes() +
           symbol_fields{.name = short_name(third), .cls = 103}.bytes();
}

class vcoff_lines_test : public vcoff_read_test {
protected:
    // One section with these records.
    static read_result read_lines(const std::string &records, const std::string &symbols)
    {
        file_fields file = {.sections = {{.paddr = 0x100, .flags = 0x80}}, .between = records, .symbols = symbols};
        file.sections[0].lines = static_cast<std::uint32_t>(records.size() / 16);
        file.sections[0].lnnoptr = file.between_position();
        return read(file);
    }
    static std::vector<std::uint32_t> files_of_lines()
    {
        std::vector<std::uint32_t> files;
        for (const tarn_line *record : each(line_list)) {
            files.push_back(record->ln_file);
        }
        return files;
    }
};

TEST_F(vcoff_lines_test, a_record)
{
    EXPECT_EQ(read_lines(line_record(65535, 0xFFFFFFFF, 1, 2, 3), three_files("a.c", "b.c", "c.c")), CLEAN);
    ASSERT_EQ(line_list.count(), 1U);
    EXPECT_EQ(line(0).ln_line, 65535U);
    EXPECT_EQ(line(0).ln_addr, 0xFFFFFFFFU); // as it stands
    EXPECT_EQ(line(0).ln_flags, 2U);
    EXPECT_EQ(line(0).ln_file, 0U); // `srcndx` isn't looked at
    EXPECT_EQ(line(0).ln_seg, 0U);
    EXPECT_EQ(line(0).ln_psect, nullptr);
}

TEST_F(vcoff_lines_test, addresses_are_not_converted)
{
    file_fields file = {.optional = optional_header(16, 8), .sections = {{.lines = 1, .flags = 0x80}}};
    file.sections[0].lnnoptr = file.between_position();
    file.between = line_record(1, 0x123);
    EXPECT_EQ(read(file), CLEAN);
    EXPECT_EQ(line(0).ln_addr, 0x123U);
}

TEST_F(vcoff_lines_test, line_zero_chooses_the_file)
{
    const std::string some = line_record(1, 0x10);
    const auto choose = [](std::uint32_t index) { return line_record(0, index); };
    EXPECT_EQ(
        read_lines(some + choose(3) + some + choose(2) + some + choose(0) + some, three_files("a.c", "b.c", "c.c")),
        CLEAN);
    EXPECT_EQ(files_of_lines(), (std::vector<std::uint32_t>{0, 3, 2, 1}));
    EXPECT_EQ(file_list.get(2)->fl_nlines, 1U);
    EXPECT_EQ(file_list.get(0)->fl_nlines, 1U);
}

TEST_F(vcoff_lines_test, an_index_of_no_file_entry_changes_nothing)
{
    const std::string some = line_record(1, 0x10);
    EXPECT_EQ(read_lines(line_record(0, 2) + line_record(0, 1) + some + line_record(0, 4) + some +
                             line_record(0, 0xFFFFFFFF) + some,
                         three_files("a.c", "b.c", "c.c")),
              CLEAN);
    EXPECT_EQ(files_of_lines(), (std::vector<std::uint32_t>{2, 2, 2}));
}

TEST_F(vcoff_lines_test, the_place_of_a_file_entry_counts_as_file_number)
{
    // All three are the one file ".file"; lines of the third belong to a file that is not there.
    EXPECT_EQ(read_lines(line_record(0, 3) + line_record(5, 0x50), three_files(".file", ".file", ".file")), CLEAN);
    EXPECT_EQ(file_list.count(), 1U);
    EXPECT_EQ(files_of_lines(), std::vector<std::uint32_t>{3});
    EXPECT_EQ(file_list.get(0)->fl_nlines, 0U);
}

TEST_F(vcoff_lines_test, each_section_starts_without_a_file)
{
    file_fields file = {.sections = {{.lines = 2, .flags = 0x80}, {.lines = 1, .flags = 0x80}},
                        .symbols = three_files("a.c", "b.c", "c.c")};
    file.between = line_record(1, 1) + line_record(0, 0) + line_record(2, 2);
    file.sections[0].lnnoptr = file.between_position() + 16;
    file.sections[1].lnnoptr = file.between_position();
    EXPECT_EQ(read(file), CLEAN);
    EXPECT_EQ(files_of_lines(), (std::vector<std::uint32_t>{1, 0}));
    EXPECT_EQ(line(0).ln_line, 2U); // in section order
    EXPECT_EQ(line(1).ln_line, 1U);
}

TEST_F(vcoff_lines_test, a_section_without_lines_needs_no_place_for_them)
{
    EXPECT_EQ(read({.sections = {{.lnnoptr = 0xFFFFFFFF, .flags = 0x80}}}), CLEAN);
}

TEST_F(vcoff_lines_test, many_files)
{
    // As a search of the list from its start would find them.
    constexpr std::uint32_t COUNT = 9000;
    std::string symbols;
    std::vector<std::uint32_t> entries; // indices of file entries
    std::mt19937 random(3);
    for (std::uint32_t index = 0; index < 2 * COUNT; ++index) {
        const bool is_file = random() % 2 == 0;
        symbols += symbol_fields{.name = short_name(".file"), .cls = is_file ? 103U : 0U}.bytes();
        if (is_file) {
            entries.push_back(index);
        }
    }
    std::string records;
    std::vector<std::uint32_t> expected;
    std::uint32_t file = 0;
    for (int i = 0; i < 1000; ++i) {
        const auto index = static_cast<std::uint32_t>(random() % (2 * COUNT));
        records += line_record(0, index) + line_record(1, 0);
        const auto found = std::find(entries.begin(), entries.end(), index);
        file = found != entries.end() ? static_cast<std::uint32_t>(found - entries.begin()) + 1 : file;
        expected.push_back(file);
    }
    EXPECT_EQ(read_lines(records, symbols), CLEAN);
    EXPECT_EQ(files_of_lines(), expected);
}

// --- byte order -----------------------------------------------------------------------------------------------------

std::string reversed(std::string bytes)
{
    std::reverse(bytes.begin(), bytes.end());
    return bytes;
}

TEST_F(vcoff_read_test, reading_alone_takes_the_byte_order_in_force)
{
    const auto be16 = [](std::uint32_t value) { return reversed(le16(value)); };
    const auto be32 = [](std::uint32_t value) { return reversed(le32(value)); };
    const std::string header = "??" + be16(1) + be32(0) + be32(78) + be32(1) + be16(18) + be16(2);
    const std::string optional = be16(5000) + be32(24600) + be32(0x18) + be32(16) + be32(8);
    const std::string section = be32(0) + be32(4) + be32(0x100) + be32(0) + be32(6) + zeros(12) + zeros(4) + be32(0x80);
    const std::string entry = short_name("_main") + be32(0x1234) + be16(1) + be32(0x44) + '\x02' + '\0';
    const std::string strings = be32(10) + "flash" + '\0';
    opt_big_endian = true;
    EXPECT_EQ(read_bytes(header + optional + section + entry + strings), CLEAN);
    EXPECT_TRUE(opt_big_endian);
    EXPECT_EQ(coff.processor, 0x18U);
    ASSERT_EQ(seg_list.count(), 1U);
    EXPECT_STREQ(segment(0).sg_name, "flash");
    EXPECT_EQ(segment(0).sg_addr, 0x200U);
    ASSERT_EQ(symbol_list.count(), 1U);
    EXPECT_EQ(symbol(0).sy_value, 0x1234U);
    EXPECT_EQ(symbol(0).sy_seg, 1U);
}

// --- any bytes ------------------------------------------------------------------------------------------------------

file_fields sample_file()
{
    file_fields file = {.sections = {{.size = 6, .lines = 2}, {.name = long_name(4), .size = 4, .flags = 0x80}},
                        .symbols = three_files("a.c", "b.c", "c.c") +
                                   symbol_fields{.name = long_name(17), .section = 1, .cls = 2}.bytes(),
                        .strings = string_table({"long_section", "long_symbol"})};
    file.sections[0].scnptr = file.between_position();
    file.sections[0].lnnoptr = file.between_position() + 6;
    file.between = "abcdef" + line_record(0, 2) + line_record(4, 0x40);
    return file;
}

TEST_F(vcoff_read_test, inputs_add_up)
{
    EXPECT_EQ(read(sample_file()), CLEAN);
    EXPECT_EQ(add(sample_file().bytes()), CLEAN);
    EXPECT_EQ(seg_list.count(), 2U); // the names are known
    EXPECT_EQ(data_list.count(), 2U);
    EXPECT_EQ(symbol_list.count(), 2U);
    EXPECT_EQ(line_list.count(), 2U);
    EXPECT_EQ(file_list.count(), 3U);
}

TEST_F(vcoff_read_test, a_file_cut_anywhere_is_reported)
{
    const std::string whole = sample_file().bytes();
    EXPECT_EQ(read_bytes(whole), CLEAN);
    for (std::size_t size = 0; size < whole.size(); ++size) {
        const read_result r = read_bytes(whole.substr(0, size));
        EXPECT_FALSE(r.result) << size;
        EXPECT_EQ(r.errors.substr(0, 21), "(1037) short read on ") << size;
    }
}

TEST_F(vcoff_read_test, damaged_bytes_come_to_an_end)
{
    const std::string whole = sample_file().bytes();
    std::mt19937 random(11);
    for (int round = 0; round < 2000; ++round) {
        std::string damaged = whole;
        for (std::size_t i = 1 + random() % 4; i > 0; --i) {
            damaged[random() % damaged.size()] = static_cast<char>(random() % 3 == 0 ? 0xFF : random() % 256);
        }
        const read_result r = read_bytes(damaged);
        EXPECT_TRUE(r.result || r.errors != "") << round; // a failure never goes without a report
    }
}

} // namespace
