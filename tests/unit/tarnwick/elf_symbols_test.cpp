// SPDX-License-Identifier: MIT
// Symbols and notes of ELF files, and which files are taken for ELF.
#include "compiler/tarnwick/elf.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/unit/scenario.h"
#include "tests/unit/tarnwick/elf_testing.h"
#include "tests/unit/tarnwick/trace_log.h"

namespace {

using namespace elf_testing;

// --- symbols ------------------------------------------------------------------------------------------------------------

TEST(elf_symbols, stand_by_section_and_then_in_the_order_of_the_files)
{
    start_model("KORH");
    add_segment(code_segment("a", 0x100, 4));
    add_segment(code_segment("b", 0x200, 4));
    add_symbol("x.obj", "x1", 2, 1);
    add_symbol("y.obj", "y1", 1, 2);
    add_symbol("x.obj", "x2", 1, 3);
    add_symbol("x.obj", "x3", 0, 4);
    add_symbol("y.obj", "y2", 2, 5);
    add_symbol("y.obj", "lost", 3, 6); // no such segment
    const elf_view elf;
    EXPECT_EQ(
        elf.symbols(),
        (symbol_list_of{
            {"x3", 4, 0x10, 0xFFF1}, {"x2", 3, 0x10, 1}, {"y1", 2, 0x10, 1}, {"x1", 1, 0x10, 2}, {"y2", 5, 0x10, 2}}));
}

TEST(elf_symbols, a_symbol_of_no_file_is_not_written)
{
    start_model("KORH");
    tarn_symbol record;
    record.sy_name = "homeless";
    tarn_add_symbol(record);
    const elf_view elf;
    EXPECT_TRUE(elf.symbols().empty());
}

// The stored number decides which symbols a section has, its place what they are told.
TEST(elf_symbols, belong_to_the_segment_of_their_stored_number)
{
    start_model("KORH");
    add_segment(code_segment("fake", 0x100, 4))->sg_index = 0;
    add_segment(code_segment("a", 0x200, 4))->sg_index = 7;
    add_segment(code_segment("b", 0x300, 4))->sg_index = 7;
    add_symbol("x.obj", "none", 0, 1);
    add_symbol("x.obj", "seven", 7, 2);
    const elf_view elf;
    EXPECT_EQ(elf.symbols(), (symbol_list_of{{"none", 1, 0x10, 0xFFF1}, {"seven", 2, 0x10, 2}, {"seven", 2, 0x10, 3}}));
}

sdb_node *add_node(sclass cls, const char *name)
{
    sdb_node *node = sdb_new_node(cls, name);
    node->sdb_parent = sdb_global;
    sdb_add_member(sdb_global, node);
    return node;
}

type_record *type_of(type_kind kind)
{
    type_element base;
    base.te_kind = ty_basic;
    type_element te;
    te.te_kind = kind;
    return type_append(type_append(type_new(), base), te);
}

TEST(elf_symbols, have_the_type_that_the_database_tells)
{
    start_model("KORH");
    sdb_global = sdb_new_node(sc_module, "global");
    const struct {
        const char *name;
        sclass cls;
        bool function;
        std::uint32_t type;
    } rows[] = {
        {"extern", sc_extern, false, 1},     {"extern_fn", sc_extern, true, 2},
        {"global", sc_global, false, 1},     {"global_fn", sc_global, true, 2},
        {"static", sc_static, false, 1},     {"static_fn", sc_static, true, 2},
        {"auto", sc_auto, true, 1},          {"param", sc_param, true, 1},
        {"func", sc_func, false, 2},         {"module", sc_module, false, 3},
        {"asmodule", sc_asmodule, false, 3}, {"file", sc_filename, false, 4},
        {"typedef", sc_typedef, true, 0},    {"reg", sc_reg, true, 0},
        {"block", sc_block, false, 0},       {"struct", sc_struct, false, 0},
        {"enum", sc_enum, false, 0},         {"line", sc_line, false, 0},
    };
    for (const auto &row : rows) {
        sdb_node *node = add_node(row.cls, row.name);
        if (sdb_is_variable(row.cls)) {
            node->var.va_type = type_of(row.function ? ty_func : ty_ptr);
        }
        add_symbol("x.obj", row.name, 0, 0);
    }
    add_node(sc_extern, "untyped");
    add_symbol("x.obj", "untyped", 0, 0);
    add_symbol("x.obj", "unknown", 0, 0);
    add_symbol("x.obj", "dabs", 0, 0, SYM_DABS);
    add_node(sc_struct, "dabs_struct");
    add_symbol("x.obj", "dabs_struct", 0, 0, SYM_DABS);
    add_symbol("x.obj", "func", 0, 0, SYM_DABS | SYM_LOCAL);

    const elf_view elf;
    symbol_list_of expected;
    for (const auto &row : rows) {
        expected.push_back({row.name, 0, 0x10 | row.type, 0xFFF1});
    }
    expected.push_back({"untyped", 0, 0x11, 0xFFF1});
    expected.push_back({"unknown", 0, 0x10, 0xFFF1});
    expected.push_back({"dabs", 0, 0x11, 0xFFF1});
    expected.push_back({"dabs_struct", 0, 0x11, 0xFFF1});
    expected.push_back({"func", 0, 0x02, 0xFFF1});
    EXPECT_EQ(elf.symbols(), expected);
    sdb_global = nullptr;
}

TEST(elf_symbols, need_an_extension)
{
    start_model("KORH");
    elf_extension = nullptr;
    const trace_log log;
    elf_out elf;
    elf_add_symbols(&elf, 0, {});
    EXPECT_EQ(log.failed(), std::vector<std::string>{"NULL != extension"});
    EXPECT_EQ(elf.eo_symbols, bytes(16)); // the table begins with an empty entry
}

// --- notes --------------------------------------------------------------------------------------------------------------

TEST(elf_notes, have_their_section_names_and_types_in_the_order_of_the_store)
{
    start_model("KORH");
    add_note("codecov_info_hdr", {1});
    add_note("foo", {2, 3});
    add_note("codecov_info", {4, 5, 6});
    add_note("codecov", {7});
    const elf_view elf;
    vector_of<tmf_note *> notes = tmf_notes();
    ASSERT_EQ(notes.count(), 4U);
    ASSERT_EQ(elf.u16(48), 8U);
    std::uint32_t offset = elf.section(2, SH_OFFSET) + elf.section(2, SH_SIZE);
    for (std::uint32_t i = 0; i < 4; ++i) {
        const tmf_note *note = notes.get(i);
        const std::string name = note->tmfnp_name;
        EXPECT_EQ(elf.section_name(3 + i), name == "codecov_info_hdr" ? ".codecov_info.hdr" : "." + name);
        EXPECT_EQ(elf.section(3 + i, SH_TYPE), name == "codecov_info_hdr" ? 0x80000CC1
                                               : name == "codecov_info"   ? 0x80000CC0
                                                                          : 0x80000000);
        EXPECT_EQ(elf.section(3 + i, SH_OFFSET), offset);
        EXPECT_EQ(elf.section(3 + i, SH_SIZE), note->tmfnp_length);
        EXPECT_EQ(elf.at(offset, note->tmfnp_length), bytes(note->tmfnp_data, note->tmfnp_data + note->tmfnp_length));
        offset += note->tmfnp_length;
    }
    EXPECT_EQ(elf.section_name(7), ".shstrtab");
    EXPECT_EQ(elf.section(7, SH_OFFSET), offset);
    notes.free();
}

TEST(elf_notes, none_without_a_map_file)
{
    start_model("KORH");
    tmf_initialised = false;
    const elf_view elf;
    EXPECT_EQ(elf.u16(48), 4U);
    tmf_initialised = true;
}

// --- identification -----------------------------------------------------------------------------------------------------

bytes elf_start()
{
    bytes header(52);
    const std::uint8_t ident[] = {0x7F, 'E', 'L', 'F', 1, 1, 1};
    std::copy(std::begin(ident), std::end(ident), header.begin());
    return header;
}

bool identify(const bytes &content)
{
    std::FILE *stream = std::tmpfile();
    std::fwrite(content.data(), 1, content.size(), stream);
    std::rewind(stream);
    const bool result = format_elf.identify(stream);
    std::fclose(stream);
    return result;
}

bytes changed(std::size_t offset, std::uint8_t value)
{
    bytes header = elf_start();
    header[offset] = value;
    return header;
}

TEST(elf_identify, takes_both_byte_orders_and_sets_the_one_in_force)
{
    opt_big_endian = true;
    EXPECT_TRUE(identify(elf_start()));
    EXPECT_FALSE(opt_big_endian);
    EXPECT_TRUE(identify(changed(5, 2)));
    EXPECT_TRUE(opt_big_endian);
    opt_big_endian = false;
}

TEST(elf_identify, keeps_the_byte_order_of_a_file_that_is_refused_for_its_version)
{
    bytes header = changed(5, 2);
    header[6] = 0;
    EXPECT_FALSE(identify(header));
    EXPECT_TRUE(opt_big_endian);
    opt_big_endian = false;
}

TEST(elf_identify, leaves_the_byte_order_of_a_file_that_is_refused_earlier)
{
    bytes header = changed(4, 2);
    header[5] = 2;
    EXPECT_FALSE(identify(header));
    EXPECT_FALSE(opt_big_endian);
    EXPECT_FALSE(identify(changed(5, 3)));
    EXPECT_FALSE(opt_big_endian);
}

void refuse_all(std::uint8_t verbose)
{
    opt_verbose = verbose;
    bytes short_one = elf_start();
    short_one.pop_back();
    std::uint32_t taken = 0;
    taken += identify({}) ? 1 : 0;
    taken += identify(short_one) ? 1 : 0;
    for (std::size_t i = 0; i < 4; ++i) {
        taken += identify(changed(i, 'x')) ? 1 : 0;
    }
    taken += identify(changed(4, 2)) ? 1 : 0;
    taken += identify(changed(5, 0)) ? 1 : 0;
    taken += identify(changed(5, 200)) ? 1 : 0;
    taken += identify(changed(6, 0)) ? 1 : 0;
    taken += identify(changed(6, 255)) ? 1 : 0;
    note("%u taken", taken);
}

TEST(elf_identify, says_why_when_verbose_enough)
{
    expect_run([] { refuse_all(2); }, "ELF header too short\n"
                                      "ELF header too short\n"
                                      "Magic number not ELF\n"
                                      "Magic number not ELF\n"
                                      "Magic number not ELF\n"
                                      "Magic number not ELF\n"
                                      "Not 32 bit ELF\n"
                                      "Not big or little-endian ELF (0)\n"
                                      "Not big or little-endian ELF (200)\n"
                                      "Unsupported ELF Version 0\n"
                                      "Unsupported ELF Version 255\n"
                                      "0 taken\n");
}

TEST(elf_identify, is_silent_otherwise)
{
    expect_run([] { refuse_all(1); }, "0 taken\n");
}

} // namespace
