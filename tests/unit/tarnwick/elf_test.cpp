// SPDX-License-Identifier: MIT
// The ELF writer: whole files, and segments.
#include "compiler/tarnwick/elf.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "compiler/tarnwick/dwarf_accessors.h"
#include "tests/unit/scenario.h"
#include "tests/unit/tarnwick/elf_testing.h"
#include "tests/unit/tarnwick/trace_log.h"

namespace {

using namespace elf_testing;

// --- building the expected file -----------------------------------------------------------------------------------------

// Bytes put one behind the other in a given byte order.
class image {
public:
    explicit image(bool big) : big_(big) {}

    image &u8(std::uint32_t value)
    {
        data.push_back(static_cast<std::uint8_t>(value));
        return *this;
    }
    image &u16(std::uint32_t value) { return big_ ? u8(value >> 8).u8(value) : u8(value).u8(value >> 8); }
    image &u32(std::uint32_t value) { return big_ ? u16(value >> 16).u16(value) : u16(value).u16(value >> 16); }
    image &words(std::initializer_list<std::uint32_t> values)
    {
        for (const std::uint32_t value : values) {
            u32(value);
        }
        return *this;
    }
    image &text(const std::string &value)
    {
        data.insert(data.end(), value.begin(), value.end());
        return *this;
    }
    image &symbol(std::uint32_t name, std::uint32_t value, std::uint32_t info, std::uint32_t section)
    {
        return words({name, value, 0}).u8(info).u8(0).u16(section);
    }

    bytes data;

private:
    bool big_;
};

// --- the whole file -----------------------------------------------------------------------------------------------------

void make_sample()
{
    start_model("KORH");
    tarn_segment text = code_segment("text", 0x100, 8);
    text.sg_addr = 0x200;
    text.sg_flags = PDB_WRITE | PDB_EXEC;
    text.sg_delta = 2;
    add_segment(text);
    tarn_segment ee = code_segment("ee", 0x400, 4);
    ee.sg_addr = 0x20;
    ee.sg_flags = 0;
    ee.sg_space = EEPROM_SPACE;
    add_segment(ee);
    tarn_segment bss = code_segment("bss", 0x40, 16);
    bss.sg_flags = PDB_WRITE | PDB_NOSPACE;
    bss.sg_space = 2;
    add_segment(bss);
    add_segment(code_segment("none", 0x900, 0));
    add_block(1, 0x100, {0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5});
    add_block(2, 0x400, {0xB0, 0xB1, 0xB2, 0xB3});
    add_symbol("a.obj", "main", 1, 0x80);
    add_symbol("b.obj", "abs2", 0, 0x5678, SYM_ABS);
    add_symbol("a.obj", "abs1", 0, 0x1234, SYM_ABS);
    add_symbol("b.obj", "tmp", 1, 0x82, SYM_LOCAL);
    add_symbol("a.obj", "port", 3, 0x44, SYM_DABS);
    add_symbol("a.obj", "main", 1, 0x84);
    add_note("codecov_info", {1, 2, 3});
}

// Header 0 to 52, data to 62, .strtab to 92, .symtab to 204, the note to 207, section names to 265, section headers to
// 625, program headers to 753.
bytes expected_sample(bool big)
{
    image out(big);
    out.text("\x7F"
             "ELF")
        .u8(1)
        .u8(big ? 2 : 1)
        .u8(1)
        .u8(130)
        .words({0, 0});
    out.u16(2).u16(204).words({1, 0, 625, 265, 5}).u16(52).u16(32).u16(4).u16(40).u16(9).u16(8);
    out.text("\xA0\xA1\xA2\xA3\xA4\xA5\xB0\xB1\xB2\xB3");
    //                    0  1     6     11    16    21   25 30
    out.text(std::string("\0abs1\0abs2\0main\0main\0tmp\0port\0", 30));
    out.symbol(0, 0, 0, 0);
    out.symbol(1, 0x1234, 0x10, 0xFFF1);
    out.symbol(6, 0x5678, 0x10, 0xFFF1);
    out.symbol(11, 0x80, 0x10, 1);
    out.symbol(16, 0x84, 0x10, 1);
    out.symbol(21, 0x82, 0x00, 1);
    out.symbol(25, 0x44, 0x11, 3);
    out.text("\1\2\3");
    //                    0  1     6   9    13    18       26       34             48       58
    out.text(std::string("\0text\0ee\0bss\0none\0.strtab\0.symtab\0.codecov_info\0.shstrtab\0", 58));
    out.words({0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    out.words({1, 1, 7, 0x80, 52, 8, 0, 0, 0, 0});
    out.words({6, 1, 0x20000002, 0x400, 58, 4, 0, 0, 0, 0});
    out.words({9, 8, 3, 0x40, 62, 16, 0, 0, 0, 0});
    out.words({13, 1, 3, 0x900, 62, 0, 0, 0, 0, 0});
    out.words({18, 3, 0, 0, 62, 30, 0, 0, 0, 0});
    out.words({26, 2, 0, 0, 92, 112, 5, 0, 0, 16});
    out.words({34, 0x80000CC0, 0, 0, 204, 3, 0, 0, 0, 0});
    out.words({48, 3, 0, 0, 207, 58, 0, 0, 0, 0});
    out.words({6, 625, 0, 0, 128, 128, 0, 0});
    out.words({1, 52, 0x100, 0x80, 6, 8, 7, 0});
    out.words({1, 58, 0x20, 0x400, 4, 4, 4, 0});
    out.words({1, 62, 0x40, 0x40, 0, 16, 6, 0});
    return out.data;
}

TEST(elf_writer, makes_the_file_as_laid_down)
{
    make_sample();
    EXPECT_EQ(written(), expected_sample(false));
}

TEST(elf_writer, makes_the_file_in_the_other_byte_order)
{
    make_sample();
    opt_big_endian = true;
    EXPECT_EQ(written(), expected_sample(true));
    opt_big_endian = false;
}

TEST(elf_writer, makes_the_same_file_again)
{
    make_sample();
    const bytes first = written();
    std::FILE *stream = std::tmpfile();
    format_elf.write(stream, "y.elf");
    EXPECT_EQ(static_cast<std::size_t>((std::fseek(stream, 0, SEEK_END), std::ftell(stream))), first.size());
    std::fclose(stream);
}

TEST(elf_writer, installs_the_accessors_of_the_back_end)
{
    start_model("KORB");
    dwarf_access = nullptr;
    const elf_view elf;
    EXPECT_EQ(elf_extension, &elf_kor);
    EXPECT_EQ(dwarf_access, &dwarf_byte_accessors);
}

TEST(elf_writer, an_empty_model_still_has_its_tables)
{
    start_model("none");
    const elf_view elf;
    EXPECT_EQ(elf.at(7, 1)[0], 0); // OS ABI
    EXPECT_EQ(elf.u32(36), 0U);    // e_flags
    EXPECT_EQ(elf.u16(48), 4U);
    EXPECT_EQ(elf.section_name(1), ".strtab");
    EXPECT_EQ(elf.section_name(2), ".symtab");
    EXPECT_EQ(elf.section_name(3), ".shstrtab");
    EXPECT_EQ(elf.u16(50), 3U);
    EXPECT_EQ(elf.u16(44), 1U);
    EXPECT_TRUE(elf.symbols().empty());
}

TEST(elf_writer, says_which_operations_the_format_has)
{
    EXPECT_STREQ(format_elf.name, "ELF/DWARF");
    EXPECT_STREQ(format_elf.key, "elf");
    EXPECT_STREQ(format_elf.ext, "elf");
    EXPECT_TRUE(format_elf.binary);
    EXPECT_FALSE(format_elf.read(nullptr, "x.elf"));
}

// --- segments -----------------------------------------------------------------------------------------------------------

TEST(elf_segments, gaps_inside_a_segment_stay_in_the_file)
{
    start_model("KORH");
    add_segment(code_segment("a", 0x100, 0x10));
    add_segment(code_segment("b", 0x200, 2));
    add_block(1, 0x102, {1, 2});
    add_block(1, 0x106, {3});
    add_block(2, 0x200, {4, 5});
    const elf_view elf;
    EXPECT_EQ(elf.at(52, 9), (bytes{0, 0, 1, 2, 0, 0, 3, 4, 5}));
    EXPECT_EQ(elf.segment(1, P_FILESZ), 7U); // up to the highest byte
    EXPECT_EQ(elf.segment(1, P_MEMSZ), 0x10U);
    EXPECT_EQ(elf.section(1, SH_SIZE), 0x10U);
    EXPECT_EQ(elf.section(2, SH_OFFSET), 59U);
}

// Blocks need not stand in the order of their addresses, nor all blocks of a segment together.
TEST(elf_segments, blocks_find_their_place_in_any_order)
{
    start_model("KORH");
    add_segment(code_segment("a", 0x100, 4));
    add_segment(code_segment("b", 0x200, 2));
    add_block(2, 0x201, {5});
    add_block(1, 0x102, {2, 3});
    add_block(2, 0x200, {4});
    add_block(1, 0x100, {0, 1});
    const elf_view elf;
    EXPECT_EQ(elf.at(52, 6), (bytes{0, 1, 2, 3, 4, 5}));
}

TEST(elf_segments, of_blocks_at_one_place_the_later_one_stays)
{
    start_model("KORH");
    add_segment(code_segment("a", 0x100, 4));
    add_block(1, 0x100, {1, 1, 1, 1});
    add_block(1, 0x101, {2, 2});
    const elf_view elf;
    EXPECT_EQ(elf.at(52, 4), (bytes{1, 2, 2, 1}));
}

TEST(elf_segments, a_block_of_no_segment_is_not_written)
{
    start_model("KORH");
    add_segment(code_segment("a", 0x100, 4));
    add_block(0, 0x100, {1});
    add_block(2, 0x100, {2});
    const elf_view elf;
    EXPECT_EQ(elf.segment(1, P_FILESZ), 0U);
    EXPECT_EQ(elf.section(2, SH_OFFSET), 52U);
}

TEST(elf_segments, flags_and_types_by_the_flags_of_the_segment)
{
    start_model("KORH");
    const struct {
        std::uint32_t flags;
        std::uint32_t space;
        bool data;
        std::uint32_t type;
        std::uint32_t section_flags;
        std::uint32_t access;
    } rows[] = {
        {0, CODE_SPACE, false, 1, 2, 4},
        {PDB_WRITE, CODE_SPACE, true, 1, 3, 6},
        {PDB_EXEC, CODE_SPACE, true, 1, 6, 5},
        {PDB_WRITE | PDB_EXEC, CODE_SPACE, false, 1, 7, 7},
        {PDB_NOSPACE, CODE_SPACE, false, 8, 2, 4},
        {PDB_NOSPACE, CODE_SPACE, true, 1, 2, 4},
        {PDB_WRITE, EEPROM_SPACE, true, 1, 0x20000003, 6},
        {PDB_FAKE, EEPROM_SPACE, true, 1, 0x20000002, 4},
    };
    std::uint32_t number = 0;
    for (const auto &row : rows) {
        ++number;
        tarn_segment seg = code_segment(str_printf("s%u", number), 0x100 * number, 4);
        seg.sg_flags = row.flags;
        seg.sg_space = row.space;
        add_segment(seg);
        if (row.data) {
            add_block(number, 0x100 * number, {1});
        }
    }
    const elf_view elf;
    number = 0;
    for (const auto &row : rows) {
        ++number;
        EXPECT_EQ(elf.section(number, SH_TYPE), row.type) << number;
        EXPECT_EQ(elf.section(number, SH_FLAGS), row.section_flags) << number;
        EXPECT_EQ(elf.segment(number, P_TYPE), 1U) << number;
        EXPECT_EQ(elf.segment(number, P_FLAGS), row.access) << number;
    }
}

TEST(elf_segments, a_segment_of_size_0_has_no_program_header)
{
    start_model("KORH");
    add_segment(code_segment("a", 0x100, 0));
    add_segment(code_segment("b", 0x200, 1));
    const elf_view elf;
    EXPECT_EQ(elf.u16(44), 2U);
    EXPECT_EQ(elf.segment(1, P_PADDR), 0x200U);
    EXPECT_EQ(elf.section_name(1), "a");
    EXPECT_EQ(elf.section(1, SH_TYPE), 1U);
}

TEST(elf_segments, addresses_are_divided_by_the_delta_as_a_signed_byte)
{
    start_model("KORH");
    const struct {
        std::uint32_t delta;
        std::uint32_t address;
    } rows[] = {
        {1, 0xFFFFFF80},
        {2, 0x7FFFFFC0},
        {3, 0x5555552A},
        {127, 0x2040810 - 1}, // 0xFFFFFF80 / 127 = 33818639
        {128, 1},             // -128 is the divisor 0xFFFFFF80
        {255, 0},             // -1 is the divisor 0xFFFFFFFF
        {0, 0xFFFFFF80},
        {256, 0xFFFFFF80}, // a low byte of 0 counts as 1
        {0x102, 0x7FFFFFC0},
    };
    std::uint32_t number = 0;
    for (const auto &row : rows) {
        tarn_segment seg = code_segment(str_printf("s%u", ++number), 0xFFFFFF80, 4);
        seg.sg_delta = row.delta;
        add_segment(seg);
    }
    const elf_view elf;
    number = 0;
    for (const auto &row : rows) {
        ++number;
        EXPECT_EQ(elf.section(number, SH_ADDR), row.address) << row.delta;
        EXPECT_EQ(elf.segment(number, P_VADDR), row.address) << row.delta;
        EXPECT_EQ(elf.segment(number, P_PADDR), row.address) << row.delta;
    }
}

// What lies between is a hole in the file and takes no memory here.
TEST(elf_segments, a_block_gigabytes_behind_the_start_of_its_segment)
{
    start_model("KORH");
    add_segment(code_segment("a", 0, 0xC0000000));
    add_segment(code_segment("b", 0xF0000000, 1));
    add_block(1, 0, {1});
    add_block(1, 0xBFFFFFFF, {2});
    add_block(2, 0xF0000000, {3});
    const elf_view elf;
    EXPECT_EQ(elf.segment(1, P_FILESZ), 0xC0000000U);
    EXPECT_EQ(elf.segment(2, P_OFFSET), 0xC0000034U);
    EXPECT_EQ(elf.at(52 + 0xBFFFFFFFULL, 2), (bytes{2, 3}));
    EXPECT_EQ(elf.at(52 + 0xC0000001ULL, 1), (bytes{0})); // .strtab
    EXPECT_EQ(elf.section_name(1), "a");
    EXPECT_LT(elf.size(), 0xC0000000ULL + 1000);
}

// The counts have 16 bits: 70004 sections count as 4468, 70001 program headers as 4465.
TEST(elf_segments, counts_wrap_at_16_bits)
{
    start_model("KORH");
    for (std::uint32_t i = 1; i <= 70000; ++i) {
        add_segment(code_segment(str_printf("s%u", i), i * 4, 4));
    }
    add_symbol("a.obj", "first", 1, 0);
    add_symbol("a.obj", "wrapped", 65536, 0);
    add_symbol("a.obj", "second", 65538, 0);
    const elf_view elf;
    EXPECT_EQ(elf.u16(48), 4468U);
    EXPECT_EQ(elf.u16(50), 4467U);
    EXPECT_EQ(elf.u16(44), 4465U);
    EXPECT_EQ(elf.segment(0, P_FILESZ), 4465U * 32);
    // All headers are there, and the symbol table is the one in front of the last.
    const std::uint64_t table = elf.u32(32) + 70002ULL * 40;
    EXPECT_EQ(elf.u32(table + 4), 2U);
    EXPECT_EQ(elf.u32(table + 20), 4U * 16);
    const std::uint64_t entries = elf.u32(table + 16);
    EXPECT_EQ(elf.u16(entries + 16 + 14), 1U);
    EXPECT_EQ(elf.u16(entries + 32 + 14), 0U); // not 0xFFF1: the section isn't 0
    EXPECT_EQ(elf.u16(entries + 48 + 14), 2U);
    EXPECT_EQ(elf.size(), elf.u32(28) + 70001ULL * 32);
}

TEST(elf_segments, are_traced)
{
    start_model("KORH");
    tarn_segment seg = code_segment("a", 0x100, 0x10);
    seg.sg_addr = 0x280;
    seg.sg_delta = 2;
    add_segment(seg);
    distribute_by_file(0);
    std::FILE *stream = std::tmpfile();
    const trace_log log;
    format_elf.write(stream, "x.elf");
    std::fclose(stream);
    const std::vector<std::string> expected = {
        "elf_write: (0, 1) Seg name: a",
        "elf_write: Seg addr: 140",
        "elf_write: Load addr: 80",
        "elf_write: Seg length (bytes): 16\n",
    };
    EXPECT_EQ(log.lines(), expected);
}

TEST(elf_segments, a_write_error_ends_the_run)
{
    EXPECT_EXIT(
        {
            make_sample();
            distribute_by_file(0);
            format_elf.write(std::fopen("/dev/full", "wb"), "out/x.elf");
        },
        testing::ExitedWithCode(1), "\\(413\\) write error on \"out/x.elf\"");
}

} // namespace
