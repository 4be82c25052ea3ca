// SPDX-License-Identifier: MIT
// Types, variables and typedefs of .debug_info, and the references to types.
#include "compiler/tarnwick/dwarf_info.h"

#include <map>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "tests/unit/tarnwick/dwarf_info_testing.h"

namespace {

using namespace dwarf_info_testing;

class debug_info_types : public debug_info {};

INSTANTIATE_TEST_SUITE_P(targets, debug_info_types,
                         testing::Combine(testing::Bool(), testing::Values<std::uint8_t>(1, 2, 4, 8)));

TEST_P(debug_info_types, basic_types)
{
    EXPECT_EQ(
        dwarf_info_finish_basic_type_entry(dwarf_info_start_basic_type_entry(cu, NUMBER, "int", "i", 2, 5, false, 7)),
        HEADER_SIZE);
    expected.b1(NUMBER).text("int").raw({2, 5});
    EXPECT_EQ(dwarf_info_finish_basic_type_entry(dwarf_info_start_basic_type_entry(cu, 10, "bit", "b3", 1, 7, true, 3)),
              HEADER_SIZE + 7);
    expected.b1(10).text("bit").raw({1, 7, 1, 3});
}

TEST_P(debug_info_types, pointer_types)
{
    EXPECT_EQ(
        dwarf_info_finish_pointer_type_entry(dwarf_info_start_pointer_type_entry(cu, NUMBER, "pv", nullptr, 2, 0)),
        HEADER_SIZE);
    expected.b1(NUMBER).raw({2, 0});
    EXPECT_EQ(
        dwarf_info_finish_pointer_type_entry(dwarf_info_start_pointer_type_entry(cu, NUMBER, "ppv", "pv", 3, 200)),
        HEADER_SIZE + 3);
    expected.b1(NUMBER).b4(HEADER_SIZE).raw({3, 200});
}

TEST_P(debug_info_types, array_with_its_dimensions)
{
    add_base_type(cu, "i");
    expected = BASE_TYPE_BYTES;
    dwarf_entry_info *array = dwarf_info_start_array_type_entry(cu, NUMBER, "ai", "i");
    for (const std::uint32_t bound : {9U, 0xFFFFFFFFU}) {
        const std::uint32_t offset = unit.top();
        EXPECT_EQ(dwarf_info_finish_subrange_entry(dwarf_info_start_subrange_entry(cu, 10, bound)), offset);
    }
    EXPECT_EQ(dwarf_info_finish_array_type_entry(array), 16U);
    // Entry 9 bytes, subranges 5 each, end of children 1.
    expected.b1(NUMBER).b4(16 + 9 + 10 + 1).b4(HEADER_SIZE).b1(10).b4(9).b1(10).b4(0xFFFFFFFF).b1(0);
}

TEST_P(debug_info_types, subroutine_types)
{
    add_base_type(cu, "i");
    expected = BASE_TYPE_BYTES;
    EXPECT_EQ(
        dwarf_info_finish_subroutine_entry(dwarf_info_start_subroutine_entry(cu, NUMBER, "fv", nullptr, false), false),
        16U);
    EXPECT_EQ(
        dwarf_info_finish_subroutine_entry(dwarf_info_start_subroutine_entry(cu, NUMBER, "fi", "i", false), false),
        17U);
    EXPECT_EQ(dwarf_info_finish_subroutine_entry(dwarf_info_start_subroutine_entry(cu, NUMBER, "gi", "i", true), true),
              22U);
    expected.b1(NUMBER).b1(NUMBER).b4(HEADER_SIZE).b1(NUMBER).b4(32).b4(HEADER_SIZE).b1(0);
}

TEST_P(debug_info_types, typedefs)
{
    add_base_type(cu, "i");
    expected = BASE_TYPE_BYTES;
    EXPECT_EQ(dwarf_info_finish_typedef_entry(dwarf_info_start_typedef_entry(cu, NUMBER, "t", 255, 65535, "i")), 16U);
    expected.b1(NUMBER).text("t").b1(255).b2(65535).b4(HEADER_SIZE);
    const std::uint32_t offset = unit.top();
    EXPECT_EQ(dwarf_info_finish_typedef_entry(dwarf_info_start_typedef_entry(cu, NUMBER, "v", 1, 258, nullptr)),
              offset);
    expected.b1(NUMBER).text("v").b1(1).b2(258);
}

TEST_P(debug_info_types, compound_sizes_match_their_abbreviations)
{
    struct row {
        const char *id;
        std::uint32_t size;
        std::size_t width;
        std::uint32_t stored;
    };
    // An empty structure claims a byte.
    const row rows[] = {{"a", 0, 1, 1},
                        {"b", 1, 1, 1},
                        {"c", 255, 1, 255},
                        {"d", 256, 2, 256},
                        {"e", 65535, 2, 65535},
                        {"f", 65536, 4, 65536},
                        {"g", UINT32_MAX, 4, UINT32_MAX}};
    for (const row &r : rows) {
        const std::uint32_t offset = unit.top();
        EXPECT_EQ(dwarf_info_finish_compound_type_entry(
                      dwarf_info_start_compound_type(cu, NUMBER, false, nullptr, r.id, r.size, 1, 2), false),
                  offset);
        expected.b1(NUMBER).number(r.stored, r.width).b1(1).b2(2);
        EXPECT_EQ(dwarf_info_find_type_offset_or_record_reference(cu, r.id), offset);
    }
}

TEST_P(debug_info_types, structure_with_members)
{
    add_base_type(cu, "i");
    expected = BASE_TYPE_BYTES;
    dwarf_entry_info *entry = dwarf_info_start_compound_type(cu, NUMBER, true, "s", "s1", 300, 255, 65535);
    EXPECT_EQ(dwarf_info_entry_offset(entry), 16U); // known before there are members
    const auto add_member = [&](const char *name, std::uint32_t size, std::uint32_t bits, std::uint32_t bits_offset,
                                std::uint32_t offset) {
        const std::uint32_t at = unit.top();
        EXPECT_EQ(dwarf_info_finish_member_entry(
                      dwarf_info_start_member_entry(cu, 10, name, "i", size, bits, bits_offset, offset, false)),
                  at);
    };
    add_member("a", 2, 0, 0, 0);
    add_member("b", 1000, 0, 0, 127); // a size that matters to no plain member
    add_member("c", 2, 3, 13, 128);
    add_member(nullptr, 2, 255, 255, 0xFFFFFFFF);
    EXPECT_EQ(dwarf_info_finish_compound_type_entry(entry, true), 16U);

    section_bytes members;
    members.b1(10).text("a").b4(HEADER_SIZE).raw({2, 0x23, 0});
    members.b1(10).text("b").b4(HEADER_SIZE).raw({2, 0x23, 0x7F});
    members.b1(10).text("c").b4(HEADER_SIZE).raw({2, 3, 13}).raw({3, 0x23, 0x80, 0x01});
    members.b1(10).text("").b4(HEADER_SIZE).raw({2, 255, 255}).raw({6, 0x23, 0xFF, 0xFF, 0xFF, 0xFF, 0x0F});
    const std::size_t fields = 1 + 4 + 2 + 2 + 1 + 2;
    expected.b1(NUMBER).b4(16 + fields + members.size() + 1).text("s").b2(300).b1(255).b2(65535);
    expected.insert(expected.end(), members.begin(), members.end());
    expected.b1(0);
}

TEST_P(debug_info_types, members_of_a_union_have_no_location)
{
    add_base_type(cu, "i");
    expected = BASE_TYPE_BYTES;
    dwarf_info_finish_member_entry(dwarf_info_start_member_entry(cu, NUMBER, "a", "i", 2, 0, 0, 0, true));
    dwarf_info_finish_member_entry(dwarf_info_start_member_entry(cu, NUMBER, "b", "i", 2, 4, 5, 6, true));
    expected.b1(NUMBER).text("a").b4(HEADER_SIZE).b1(NUMBER).text("b").b4(HEADER_SIZE).raw({2, 4, 5});
}

TEST_P(debug_info_types, enumerations)
{
    dwarf_entry_info *entry = dwarf_info_start_enum_type_entry(cu, NUMBER, "e", "e1", 2, 3, 0x405);
    EXPECT_EQ(dwarf_info_finish_enumerator_entry(dwarf_info_start_enumerator_entry(cu, 10, "ONE", 1)), 22U);
    EXPECT_EQ(dwarf_info_finish_enumerator_entry(dwarf_info_start_enumerator_entry(cu, 10, "LESS", 0xFFFFFFFE)), 31U);
    EXPECT_EQ(dwarf_info_finish_enum_type_entry(entry), HEADER_SIZE);
    expected.b1(NUMBER).b4(42).text("e").b1(2).b1(3).b2(0x405);
    expected.b1(10).text("ONE").b4(1).b1(10).text("LESS").b4(0xFFFFFFFE).b1(0);

    // No name, no size.
    trace_log log;
    gDebugMask = TRACE_DWARF;
    EXPECT_EQ(
        dwarf_info_finish_enum_type_entry(dwarf_info_start_enum_type_entry(cu, NUMBER, nullptr, "e2", 0, 255, 65535)),
        42U);
    expected.b1(NUMBER).b4(51).b1(255).b2(65535).b1(0);
    EXPECT_EQ(log.lines(), (strings{"dwarf_info_start_enum_type_entry: No size"}));
}

TEST_P(debug_info_types, qualified_types)
{
    add_base_type(cu, "i");
    expected = BASE_TYPE_BYTES;
    EXPECT_EQ(dwarf_info_finish_qualified_type_entry(dwarf_info_start_qualified_type_entry(cu, {20}, "ci", "i")), 16U);
    expected.b1(20).b4(HEADER_SIZE);

    // The later element lies first; the id belongs to the first element, written last.
    EXPECT_EQ(
        dwarf_info_finish_qualified_type_entry(dwarf_info_start_qualified_type_entry(cu, {30, 31, 32}, "cvi", "i")),
        31U);
    expected.b1(32).b4(HEADER_SIZE).b1(31).b4(21).b1(30).b4(26);
    EXPECT_EQ(dwarf_info_find_type_offset_or_record_reference(cu, "ci"), 16U);
    EXPECT_EQ(dwarf_info_find_type_offset_or_record_reference(cu, "cvi"), 31U);
}

TEST_P(debug_info_types, qualified_void)
{
    EXPECT_EQ(dwarf_info_finish_qualified_type_entry(dwarf_info_start_qualified_type_entry(cu, {20}, "cv", nullptr)),
              11U);
    expected.b1(20);
    // The second entry's type is 0, the third's is the second.
    EXPECT_EQ(
        dwarf_info_finish_qualified_type_entry(dwarf_info_start_qualified_type_entry(cu, {30, 31, 32}, "cvv", nullptr)),
        18U);
    expected.b1(32).b1(31).b4(0).b1(30).b4(13);
    EXPECT_EQ(dwarf_info_find_type_offset_or_record_reference(cu, "cvv"), 18U);
}

TEST_P(debug_info_types, qualified_type_of_a_later_child)
{
    dwarf_info_finish_qualified_type_entry(dwarf_info_start_qualified_type_entry(cu, {30, 31}, "cvi", "i"));
    EXPECT_EQ(add_base_type(cu, "i"), 21U);
    expected.b1(31).b4(21).b1(30).b4(11);
    expected.insert(expected.end(), BASE_TYPE_BYTES.begin(), BASE_TYPE_BYTES.end());
}

// ---- Variables

TEST_P(debug_info_types, variables_without_a_location)
{
    add_base_type(cu, "i");
    expected = BASE_TYPE_BYTES;
    for (const bool is_extern : {false, true}) {
        for (const bool is_declaration : {false, true}) {
            const std::uint32_t offset = unit.top();
            EXPECT_EQ(dwarf_info_finish_variable_entry(dwarf_info_start_variable_entry_no_location(
                          cu, NUMBER, "v", 255, 65535, "i", is_extern, is_declaration)),
                      offset);
            expected.b1(NUMBER).text("v").b1(255).b2(65535).b4(HEADER_SIZE);
            for (int flags = is_extern + is_declaration; flags > 0; --flags) {
                expected.b1(1);
            }
        }
    }
}

TEST_P(debug_info_types, variables_with_locations)
{
    add_base_type(cu, "i");
    expected = BASE_TYPE_BYTES;
    const sdb_location in_register = {.lo_kind = LO_REGISTER, .lo_value = 30};
    const sdb_location at_address = {.lo_kind = LO_ADDRESS, .lo_value = 0x7B};
    dwarf_info_finish_variable_entry(
        dwarf_info_start_variable_entry_single_location(cu, NUMBER, "r", 1, 2, "i", false, &in_register));
    expected.b1(NUMBER).text("r").b1(1).b2(2).b4(HEADER_SIZE).b2(1).b1(0x6E);
    dwarf_info_finish_variable_entry(
        dwarf_info_start_variable_entry_single_location(cu, NUMBER, "a", 1, 2, "i", true, &at_address));
    expected.b1(NUMBER).text("a").b1(1).b2(2).b4(HEADER_SIZE).b1(1).b2(1U + address_size).b1(3);
    address(0x7B);
    dwarf_info_finish_variable_entry(
        dwarf_info_start_variable_entry_multiple_locations(cu, NUMBER, "m", 1, 2, "i", true, 0x01020304));
    expected.b1(NUMBER).text("m").b1(1).b2(2).b4(HEADER_SIZE).b1(1).b4(0x01020304);
}

// ---- References

TEST_P(debug_info_types, pointer_to_a_structure_that_comes_later)
{
    dwarf_info_finish_pointer_type_entry(dwarf_info_start_pointer_type_entry(cu, NUMBER, "ps", "s", 2, 0));
    const section_bytes waiting = section_bytes().b1(NUMBER).b4(0).raw({2, 0});
    EXPECT_EQ(unit.body(), waiting);
    dwarf_entry_info *entry = dwarf_info_start_compound_type(cu, NUMBER, true, nullptr, "s", 2, 1, 2);
    // Patched as soon as the structure has begun.
    section_bytes begun = section_bytes().b1(NUMBER).b4(18).raw({2, 0}).b1(NUMBER);
    EXPECT_EQ(section_bytes(unit.body().data(), begun.size()), begun);
    // A member that points back finds both at once.
    dwarf_info_finish_member_entry(dwarf_info_start_member_entry(cu, NUMBER, "next", "ps", 2, 0, 0, 0, false));
    dwarf_info_finish_member_entry(dwarf_info_start_member_entry(cu, NUMBER, "self", "s", 2, 0, 0, 0, false));
    dwarf_info_finish_compound_type_entry(entry, true);
    expected.b1(NUMBER).b4(18).raw({2, 0});
    expected.b1(NUMBER).b4(18 + 9 + 13 + 13 + 1).b1(2).b1(1).b2(2);
    expected.b1(NUMBER).text("next").b4(11).raw({2, 0x23, 0});
    expected.b1(NUMBER).text("self").b4(18).raw({2, 0x23, 0});
    expected.b1(0);
}

TEST_P(debug_info_types, a_type_that_never_comes_stays_0)
{
    const survived_errors errors;
    dwarf_info_finish_pointer_type_entry(dwarf_info_start_pointer_type_entry(cu, NUMBER, "ps", "s", 2, 0));
    dwarf_info_finish_pointer_type_entry(dwarf_info_start_pointer_type_entry(cu, NUMBER, "pps", "ps", 2, 0));
    dwarf_info_finish_compile_unit(cu);
    // Nor does a later unit help.
    const compile_unit_handle second = dwarf_info_start_compile_unit(2, 0, address_size);
    add_base_type(second, "s");
    dwarf_info_finish_compile_unit(second);
    unit.cu = nullptr;
    EXPECT_EQ(errors.count(), 0U);
    EXPECT_EQ(errors.traced(), strings{});
    expected.b1(NUMBER).b4(0).raw({2, 0}).b1(NUMBER).b4(11).raw({2, 0});
    expected.b4(12).b2(2).b4(0).b1(address_size).raw({NUMBER, 'b', 0, 1, 5});
}

TEST_P(debug_info_types, all_references_that_wait_are_patched)
{
    std::vector<std::uint32_t> fields;
    for (const char *name : {"a", "bb", "ccc"}) {
        dwarf_info_finish_typedef_entry(dwarf_info_start_typedef_entry(cu, NUMBER, name, 1, 2, "late"));
        fields.push_back(unit.top() - 4);
        dwarf_info_finish_typedef_entry(dwarf_info_start_typedef_entry(cu, NUMBER, name, 1, 2, "never"));
    }
    const std::uint32_t offset = add_base_type(cu, "late");
    for (const char *name : {"a", "bb", "ccc"}) {
        expected.b1(NUMBER).text(name).b1(1).b2(2).b4(offset).b1(NUMBER).text(name).b1(1).b2(2).b4(0);
    }
    expected.insert(expected.end(), BASE_TYPE_BYTES.begin(), BASE_TYPE_BYTES.end());
    // They wait no longer; a new reference is served at once.
    EXPECT_EQ(dwarf_info_find_type_offset_or_record_reference(cu, "late"), offset);
}

TEST_P(debug_info_types, ids_are_compared_as_texts)
{
    const std::string one = "same";
    const std::string other = "same";
    dwarf_info_finish_pointer_type_entry(dwarf_info_start_pointer_type_entry(cu, NUMBER, "p", one.c_str(), 2, 0));
    add_base_type(cu, other.c_str());
    expected.b1(NUMBER).b4(18).raw({2, 0});
    expected.insert(expected.end(), BASE_TYPE_BYTES.begin(), BASE_TYPE_BYTES.end());
}

TEST_P(debug_info_types, references_of_a_qualifier_without_an_entry_go_to_its_child)
{
    dwarf_info_finish_typedef_entry(dwarf_info_start_typedef_entry(cu, NUMBER, "t", 1, 2, "Qi"));
    dwarf_info_finish_typedef_entry(dwarf_info_start_typedef_entry(cu, NUMBER, "u", 1, 2, "Qi"));
    const std::uint32_t child = add_base_type(cu, "i");
    dwarf_info_redirect_references(cu, "Qi", child);
    dwarf_info_redirect_references(cu, "Qx", child); // nothing waits
    for (const char *name : {"t", "u"}) {
        expected.b1(NUMBER).text(name).b1(1).b2(2).b4(child);
    }
    expected.insert(expected.end(), BASE_TYPE_BYTES.begin(), BASE_TYPE_BYTES.end());
    // The id has no entry: a later reference waits again.
    dwarf_info_finish_typedef_entry(dwarf_info_start_typedef_entry(cu, NUMBER, "w", 1, 2, "Qi"));
    expected.b1(NUMBER).text("w").b1(1).b2(2).b4(0);
}

TEST_P(debug_info_types, a_type_that_is_there_already)
{
    const survived_errors errors;
    add_base_type(cu, "i");
    add_base_type(cu, "i");
    EXPECT_EQ(errors.count(), 1U);
    EXPECT_EQ(errors.traced(), (strings{"dwarf_info_type_entry_hash_insert: (dwarf_info.cpp : N) : "
                                        "type i has already been inserted"}));
    EXPECT_EQ(dwarf_info_find_type_offset_or_record_reference(cu, "i"), HEADER_SIZE); // the first one stays
    expected = BASE_TYPE_BYTES;
    expected.insert(expected.end(), BASE_TYPE_BYTES.begin(), BASE_TYPE_BYTES.end());
}

// Tens of thousands of types in any order, against a plain reckoning of where each reference should point.
TEST_P(debug_info_types, many_types)
{
    constexpr std::uint32_t COUNT = 20000;
    std::mt19937 random(address_size);
    std::map<std::uint32_t, std::string> references; // field to id
    std::map<std::string, std::uint32_t> types;      // id to offset
    strings ids;
    for (std::uint32_t i = 0; i < COUNT; ++i) {
        ids.push_back("type" + std::to_string(i));
    }
    std::uint32_t next = 0;
    while (next < COUNT) {
        if (random() % 2 == 0) {
            types[ids[next]] = add_base_type(cu, ids[next].c_str());
            ++next;
        } else {
            const std::string &id = ids[random() % COUNT];
            dwarf_info_finish_typedef_entry(dwarf_info_start_typedef_entry(cu, NUMBER, "t", 1, 2, id.c_str()));
            references[unit.top() - 4] = id;
        }
    }
    const section_bytes all = unit.all();
    for (const auto &[field, id] : references) {
        ASSERT_EQ(dwarf_get(all.data() + field, 4), types[id]) << id;
    }
    expected = unit.body(); // nothing but what was looked at
}

} // namespace
