// SPDX-License-Identifier: MIT
// The OS ABI search, and what the back ends do.
#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "compiler/tarnwick/dwarf_accessors.h"
#include "compiler/tarnwick/elf.h"
#include "compiler/tarnwick/elf_osabi.h"
#include "compiler/tarnwick/encdec.h"
#include "compiler/tarnwick/options.h"
#include "tests/unit/tarnwick/fresh_model.h"
#include "tests/unit/tarnwick/trace_log.h"

namespace {

constexpr std::uint32_t E_FLAGS = 36; // offset in the header

void set_words(const std::vector<const char *> &words)
{
    processor_args.fill(nullptr);
    std::copy(words.begin(), words.end(), processor_args.begin());
}

std::uint32_t osabi_of(const std::vector<const char *> &words)
{
    set_words(words);
    return elf_find_osabi();
}

class elf_back_end : public testing::Test {
protected:
    void SetUp() override
    {
        fresh_model();
        opt_big_endian = false;
        set_words({});
    }
    void TearDown() override
    {
        opt_big_endian = false;
        set_words({});
    }
};

TEST_F(elf_back_end, osabi_table_stands_in_the_order_of_the_search)
{
    std::ostringstream text;
    for (const elf_osabi_row &row : elf_osabi_table) {
        text << unsigned{row.number} << ' ' << row.text << '\n';
    }
    EXPECT_EQ(text.str(), "32 Vantrel Technology (KORB) base-line KOR\n"
                          "33 Vantrel Technology (KORBE) enhanced base-line KOR\n"
                          "35 Vantrel Technology (KORBIE) enhanced base-line KOR with interrupts\n"
                          "66 Vantrel Technology (KORM) mid-range KOR\n"
                          "67 Vantrel Technology (KORME) enhanced mid-range KOR\n"
                          "71 Vantrel Technology (KORMEX) enhanced mid-range KOR with extended RAM\n"
                          "130 Vantrel Technology KORH\n"
                          "134 Vantrel Technology KORH (KORHX) with extended RAM\n"
                          "142 Vantrel Technology KORH (KORHXV) with extended RAM and multi-vector interrupts\n"
                          "0 UNIX System V Revision 4\n"
                          "1 HP-UX\n"
                          "2 NetBSD\n"
                          "3 Linux\n"
                          "4 Hurd\n"
                          "6 Solaris\n"
                          "7 AIX\n"
                          "8 IRIX\n"
                          "9 FreeBSD\n"
                          "10 TRU64 UNIX\n"
                          "11 Novell Modesto\n"
                          "12 OpenBSD\n"
                          "97 ARM\n"
                          "255 Standalone (embedded)\n");
}

TEST_F(elf_back_end, the_search_takes_the_first_row_with_the_word_in_its_text)
{
    EXPECT_EQ(osabi_of({"KORB"}), 32U);
    EXPECT_EQ(osabi_of({"KORBE"}), 33U);
    EXPECT_EQ(osabi_of({"KORBIE"}), 35U);
    EXPECT_EQ(osabi_of({"KORM"}), 66U);
    EXPECT_EQ(osabi_of({"KORME"}), 67U);
    EXPECT_EQ(osabi_of({"KORMEX"}), 71U);
    EXPECT_EQ(osabi_of({"KORH"}), 130U);
    EXPECT_EQ(osabi_of({"KORHX"}), 134U);
    EXPECT_EQ(osabi_of({"KORHXV"}), 142U);
    EXPECT_EQ(osabi_of({"KOR"}), 32U);
    EXPECT_EQ(osabi_of({"Linux"}), 3U);
    EXPECT_EQ(osabi_of({"64"}), 10U); // digits hit as well
    EXPECT_EQ(osabi_of({"embedded"}), 255U);
}

TEST_F(elf_back_end, the_search_minds_the_case)
{
    EXPECT_EQ(osabi_of({"korh"}), 0U);
}

TEST_F(elf_back_end, the_first_word_with_a_hit_decides)
{
    EXPECT_EQ(osabi_of({"1234", "KORH", "KORB"}), 130U);
    EXPECT_EQ(osabi_of({"KORB", "KORH"}), 32U);
}

TEST_F(elf_back_end, words_behind_an_absent_one_are_not_looked_at)
{
    EXPECT_EQ(osabi_of({nullptr, "KORH"}), 0U);
}

TEST_F(elf_back_end, all_words_there_can_be_are_looked_at)
{
    std::vector<const char *> words(OPTION_LIST_MAX, "none");
    EXPECT_EQ(osabi_of(words), 0U);
    words.back() = "KORH";
    EXPECT_EQ(osabi_of(words), 130U);
}

TEST_F(elf_back_end, a_number_of_0_is_an_assertion)
{
    const trace_log log;
    EXPECT_EQ(osabi_of({}), 0U);
    EXPECT_EQ(osabi_of({"UNIX System"}), 0U); // a hit on the row of number 0 counts as none
    EXPECT_EQ(osabi_of({"KORB"}), 32U);
    EXPECT_EQ(log.failed(), (std::vector<std::string>{"osabi != 0", "osabi != 0"}));
}

TEST_F(elf_back_end, bits_in_common_choose_the_extension)
{
    const std::pair<const char *, const extension *> rows[] = {
        {"KORB", &elf_kor},    {"KORBE", &elf_kor},     {"KORBIE", &elf_korh}, {"KORM", &elf_korh},
        {"KORME", &elf_korh},  {"KORMEX", &elf_korh},   {"KORH", &elf_korh},   {"KORHX", &elf_korh},
        {"KORHXV", &elf_korh}, {"none", &elf_default},  {"NetBSD", &elf_korh}, {"HP-UX", &elf_default},
        {"ARM", &elf_kor},     {"embedded", &elf_korh},
    };
    for (const auto &[word_text, expected] : rows) {
        set_words({word_text});
        EXPECT_TRUE(elf_select_extension());
        EXPECT_EQ(elf_extension, expected) << word_text;
    }
}

TEST_F(elf_back_end, each_extension_tests_its_bits)
{
    for (std::uint32_t number = 0; number < 256; ++number) {
        EXPECT_EQ(elf_korh.is_for(number), (number & 0x82) != 0) << number;
        EXPECT_EQ(elf_kor.is_for(number), (number & 0x60) != 0) << number;
        EXPECT_TRUE(elf_default.is_for(number)) << number;
    }
}

TEST_F(elf_back_end, the_default_traces_that_it_was_asked)
{
    const trace_log log;
    elf_default.is_for(0);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"is_for_default: DEFAULT elf"});
}

std::uint32_t flags_after(const extension &ext, std::uint32_t before)
{
    elf_out elf;
    put32(elf.eo_header + E_FLAGS, before);
    EXPECT_TRUE(ext.fix_header(&elf));
    return get32(elf.eo_header + E_FLAGS);
}

void add_symbol(const char *name, std::uint32_t value)
{
    tarn_symbol record;
    record.sy_name = name;
    record.sy_value = value;
    tarn_add_symbol(record);
}

TEST_F(elf_back_end, the_default_leaves_the_flags)
{
    EXPECT_EQ(flags_after(elf_default, 0), 0U);
    EXPECT_EQ(flags_after(elf_default, 0x18), 0x18U);
}

TEST_F(elf_back_end, kor_sets_5_and_keeps_the_rest)
{
    add_symbol("isa$xinst", 1);
    EXPECT_EQ(flags_after(elf_kor, 0), 5U);
    EXPECT_EQ(flags_after(elf_kor, 0x12), 0x17U);
}

TEST_F(elf_back_end, korh_clears_the_bit_of_the_extended_instructions_without_the_symbol)
{
    EXPECT_EQ(flags_after(elf_korh, 0), 5U);
    EXPECT_EQ(flags_after(elf_korh, 0x12), 7U);
}

TEST_F(elf_back_end, korh_clears_it_for_a_symbol_of_value_0)
{
    add_symbol("isa$xinst", 0);
    add_symbol("isa$xinst", 1); // the first of a name counts
    EXPECT_EQ(flags_after(elf_korh, 0x10), 5U);
}

TEST_F(elf_back_end, korh_sets_it_for_a_symbol_with_a_value)
{
    add_symbol("isa$xinst", 1);
    EXPECT_EQ(flags_after(elf_korh, 0), 0x15U);
}

TEST_F(elf_back_end, the_flags_follow_the_byte_order)
{
    opt_big_endian = true;
    elf_out elf;
    elf_kor.fix_header(&elf);
    EXPECT_EQ(elf.eo_header[E_FLAGS], 0);
    EXPECT_EQ(elf.eo_header[E_FLAGS + 3], 5);
}

TEST_F(elf_back_end, the_other_slots_are_the_same_in_all_three)
{
    const tarn_segment seg;
    const tarn_symbol symbol;
    for (const extension *ext : {&elf_korh, &elf_kor, &elf_default}) {
        EXPECT_TRUE(ext->slot_always_true());
        EXPECT_EQ(ext->section_flags(&seg, 8, 0x20000003), 0x20000003U);
        EXPECT_EQ(ext->symbol_other(&symbol, 0x12), 0);
        EXPECT_EQ(ext->accessors(), &dwarf_byte_accessors);
        EXPECT_EQ(ext->slot_always_zero(), 0U);
        EXPECT_EQ(ext->sp_register(), 0U);
        EXPECT_EQ(ext->debug_section_type, 7U);
    }
}

TEST_F(elf_back_end, none_has_a_stack_pointer_register)
{
    const trace_log log;
    elf_korh.sp_register();
    elf_kor.sp_register();
    elf_default.sp_register();
    const std::vector<std::string> expected = {
        "!\"There is no SP register index for KORH\"",
        "!\"There is no SP register index for KOR\"",
        "!\"There is no default SP register index\"",
    };
    EXPECT_EQ(log.failed(), expected);
}

} // namespace
