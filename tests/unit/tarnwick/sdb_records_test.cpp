// SPDX-License-Identifier: MIT
// The records of structs, enums, defines and almanacs.
#include <string>
#include <vector>

#include "tests/unit/tarnwick/sdb_testing.h"
#include "tests/unit/tarnwick/trace_log.h"

namespace {

class records : public database {};

void expect_member(const sdb_node *node, std::uint32_t index, const char *name, const char *type,
                   const std::vector<std::int32_t> &numbers)
{
    ASSERT_LT(index, node->structure.st_count);
    const sdb_member &found = node->structure.st_members[index];
    EXPECT_STREQ(found.sm_name, name);
    EXPECT_EQ(type_text(found.sm_type), type);
    EXPECT_EQ((std::vector{found.sm_offset, found.sm_size, found.sm_bitoff, found.sm_bitwidth}), numbers);
}

TEST_F(records, struct_with_members_of_all_kinds)
{
    const sdb_node *module = read("\"7 /a.c\n[s S1 tag 12 i a 0 2 `*c 3 p 2 6 [2]uc 2a q 8 4 ui . 10 2 :3:5 ]\n");
    const sdb_node *node = member(module, "S1");
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(node->sdb_sclass, sc_struct);
    EXPECT_EQ(node->sdb_line, 7U);
    EXPECT_FALSE(node->structure.st_union);
    EXPECT_STREQ(node->structure.st_tag, "tag");
    EXPECT_EQ(node->structure.st_size, 12U);
    ASSERT_EQ(node->structure.st_count, 4U);
    expect_member(node, 0, "a", "i", {0, 2, 0, 0});
    expect_member(node, 1, "p", "*<0> c", {2, 6, 0, 0});           // a dimension without "a" adds nothing
    expect_member(node, 2, "q", "[2]<2> [2]<2> uc", {8, 4, 0, 0}); // with "a" the type becomes an array
    expect_member(node, 3, nullptr, "ui", {10, 2, 3, 5});          // an anonymous bit field
}

TEST_F(records, union_without_tag)
{
    const sdb_node *module = read("[u S2 . 4 l l 0 4 f f 0 4 ]\n");
    const sdb_node *node = member(module, "S2");
    EXPECT_TRUE(node->structure.st_union);
    EXPECT_EQ(node->structure.st_tag, nullptr);
    EXPECT_EQ(node->structure.st_count, 2U);
}

TEST_F(records, a_struct_tag_keeps_its_point)
{
    const sdb_node *module = read("[s S1 .x 4 ]\n");
    EXPECT_STREQ(member(module, "S1")->structure.st_tag, ".x");
}

TEST_F(records, an_array_member_of_no_type)
{
    const sdb_node *module = read("[s S1 . 4 nosuch 3a m 0 6 ]\n");
    expect_member(member(module, "S1"), 0, "m", "[3]<3>", {0, 6, 0, 0});
}

TEST_F(records, bit_fields_may_lack_numbers)
{
    const sdb_node *module = read("[s S1 . 4 i a 0 2 :6 i b 0 2 : i c 0 2 :1:2:9 ]\n");
    const sdb_node *node = member(module, "S1");
    ASSERT_EQ(node->structure.st_count, 3U);
    expect_member(node, 0, "a", "i", {0, 2, 6, 0});
    expect_member(node, 1, "b", "i", {0, 2, 0, 0});
    expect_member(node, 2, "c", "i", {0, 2, 1, 2});
}

TEST_F(records, a_forward_reference_is_filled_in_place)
{
    const sdb_node *module = read("\"3 /a.c\n[v p p `*S1 1 e 2 @5 ]\n\"9\n[s S1 node 4 *S1 next 0 2 ]\n");
    const sdb_node *node = member(module, "S1");
    EXPECT_EQ(node->structure.st_count, 1U);
    EXPECT_STREQ(node->structure.st_tag, "node");
    EXPECT_EQ(node->sdb_line, 3U); // of the reference
    EXPECT_EQ(member(module, "S1", 2), nullptr);
    EXPECT_EQ(member(module, "p")->var.va_type->elements[0].node, node);
    EXPECT_EQ(node->structure.st_members[0].sm_type->elements[0].node, node);
}

TEST_F(records, an_empty_declaration_is_filled_and_a_full_one_is_not)
{
    const sdb_node *module = read("[s S1 . 0 ]\n[s S1 . 2 i a 0 2 ]\n[s S1 . 3 i b 0 2 ]\n");
    EXPECT_EQ(member(module, "S1")->structure.st_size, 2U);
    EXPECT_EQ(member(module, "S1", 2)->structure.st_size, 3U);
    EXPECT_EQ(member(module, "S1", 3), nullptr);
}

TEST_F(records, a_struct_in_a_block_is_its_own)
{
    const sdb_node *module = read("[s S1 . 0 ]\n{\n[s S1 . 2 i a 0 2 ]\n}\n");
    EXPECT_EQ(member(module, "S1")->structure.st_count, 0U);
    EXPECT_EQ(member(member(module, sc_block), "S1")->structure.st_count, 1U);
}

TEST_F(records, another_class_of_the_name_is_not_filled)
{
    const sdb_node *module = read("[v S1 S1 `i 1 e 2 @5 ]\n[s S1 . 2 i a 0 2 ]\n[e E1 . A 1 ]\n[s E1 . 2 i a 0 2 ]\n");
    EXPECT_EQ(member(module, "S1")->sdb_sclass, sc_extern);
    EXPECT_EQ(member(module, "S1", 2)->sdb_sclass, sc_struct);
    EXPECT_EQ(member(module, "E1", 2)->sdb_sclass, sc_struct);
}

TEST_F(records, structs_may_have_many_members)
{
    std::string text = "[s S1 . 90";
    for (int i = 0; i < 45; ++i) {
        text += " i m" + std::to_string(i) + " " + std::to_string(2 * i) + " 2";
    }
    const sdb_node *module = read(text + " ]\n");
    const sdb_node *node = member(module, "S1");
    ASSERT_EQ(node->structure.st_count, 45U);
    expect_member(node, 44, "m44", "i", {88, 2, 0, 0});
}

TEST_F(records, the_end_of_the_file_ends_a_struct)
{
    sdb_node *module = read("[s S1 . 4 i a 0 2 i b");
    const sdb_node *node = member(module, "S1");
    ASSERT_EQ(node->structure.st_count, 2U);
    expect_member(node, 1, "b", "i", {0, 0, 0, 0});
    module = read("[s");
    EXPECT_STREQ(member(module, 0U)->sdb_name, "");
}

TEST_F(records, enum_with_a_type)
{
    const sdb_node *module = read("\"9 /a.c\n[e E3 color `ul RED 0 GREEN 5 BLUE -3 ]\n");
    const sdb_node *node = member(module, "E3");
    EXPECT_EQ(node->sdb_sclass, sc_enum);
    EXPECT_EQ(node->sdb_line, 9U);
    EXPECT_STREQ(node->enumeration.en_tag, "color");
    EXPECT_EQ(node->enumeration.en_size, 4U);
    ASSERT_EQ(node->enumeration.en_count, 3U);
    EXPECT_STREQ(node->enumeration.en_members[2].name, "BLUE");
    EXPECT_EQ(node->enumeration.en_members[2].value, -3);
}

TEST_F(records, enum_without_type_keeps_a_point_as_its_tag)
{
    const sdb_node *module = read("[e E4 . OFF 0 ON 9999999999 ]\n");
    const sdb_node *node = member(module, "E4");
    EXPECT_STREQ(node->enumeration.en_tag, ".");
    EXPECT_EQ(node->enumeration.en_size, 0U);
    ASSERT_EQ(node->enumeration.en_count, 2U);
    EXPECT_EQ(node->enumeration.en_members[1].value, 0x7FFFFFFF); // saturates at 32 bits
}

TEST_F(records, enum_forward_reference_is_filled_in_place)
{
    const sdb_node *module = read("[v p p `*E1 1 e 2 @5 ]\n[e E1 . A 1 ]\n[e E1 . B 1 ]\n");
    EXPECT_STREQ(member(module, "E1")->enumeration.en_members[0].name, "A");
    EXPECT_STREQ(member(module, "E1", 2)->enumeration.en_members[0].name, "B");
}

TEST_F(records, enum_sizes_come_from_basic_types_alone)
{
    const sdb_node *module = read("[s S1 . 9 ]\n[e E1 . `S1 A 1 ]\n[e E2 . `nosuch A 1 ]\n");
    EXPECT_EQ(member(module, "E1")->enumeration.en_size, 0U);
    EXPECT_EQ(member(module, "E2")->enumeration.en_size, 0U);
    EXPECT_EQ(member(module, "E2")->enumeration.en_count, 1U);
}

TEST_F(records, enums_hold_what_their_count_can_hold)
{
    std::string text = "[e E1 .";
    for (int i = 0; i < 65540; ++i) {
        text += " m 1";
    }
    const sdb_node *module = read(text + " ]\n[e E2 . A 1 ]\n");
    EXPECT_EQ(member(module, "E1")->enumeration.en_count, 65535U);
    EXPECT_EQ(member(module, "E2")->enumeration.en_count, 1U);
}

TEST_F(records, the_end_of_the_file_ends_an_enum)
{
    const sdb_node *module = read("[e E1 . A 1 B");
    EXPECT_EQ(member(module, "E1")->enumeration.en_count, 2U);
    EXPECT_EQ(member(module, "E1")->enumeration.en_members[1].value, 0);
}

TEST_F(records, declarations_are_traced)
{
    const trace_log log;
    gDebugMask = TRACE_SDB;
    read("[s S1 tag 4 i a 0 2 i b 2 2 ]\n[u S2 . 0 ]\n[e E1 . `i A 1 ]\n");
    const std::vector<std::string> expected = {
        "is_union(0)",
        "structdecl: name = S1",
        "structdecl: block name = ",
        "structdecl: next token = tag",
        "structdecl: tag name = tag",
        "structdecl: size = 4",
        "structdecl: next token is i",
        "structdecl: next token is i",
        "is_union(1)",
        "structdecl: name = S2",
        "structdecl: block name = ",
        "structdecl: next token = .",
        "structdecl: tag name = ",
        "structdecl: size = 0",
        "enumdecl: name = E1",
        "enumdecl: block name = ",
        "enumdecl: tag name = .",
        "enumdecl: next token = `i",
        "enumdecl: next token is A",
    };
    EXPECT_EQ(log.lines(), expected);
}

TEST_F(records, defines_give_the_frame_pointer)
{
    read("[d other 1 ]\n[d frameptr 0x10 ]\n");
    EXPECT_EQ(sdb_get_frameptr(), 16);
    read("[d frameptr 5 ]\n"); // the first value stays
    EXPECT_EQ(sdb_get_frameptr(), 16);
}

TEST_F(records, the_frame_pointer_is_read_once)
{
    const trace_log log;
    EXPECT_EQ(sdb_get_frameptr(), 0);
    EXPECT_EQ(log.failed(), std::vector<std::string>{"sdb_has_framptr()"});
    log.failed().clear();
    read("[d frameptr 010 ]\n");
    EXPECT_EQ(sdb_get_frameptr(), 8);
    EXPECT_TRUE(log.failed().empty());
}

TEST_F(records, the_frame_pointer_is_above_0_and_in_range)
{
    {
        const trace_log log;
        read("[d frameptr -1 ]\n");
        EXPECT_EQ(sdb_get_frameptr(), -1);
        EXPECT_EQ(log.failed(), std::vector<std::string>{"frameptr > 0"});
    }
    sdb_reset();
    const trace_log log;
    read("[d frameptr 0x80000000 ]\n");
    EXPECT_EQ(sdb_get_frameptr(), 0x7FFFFFFF);
    EXPECT_EQ(log.failed(), std::vector<std::string>{"errno == 0"});
}

TEST_F(records, a_define_without_end_is_an_error)
{
    const std::string text = errors_of([this] { read("[d frameptr 7 x\n[v a a `i 1 e 2 @5 ]\n"); });
    EXPECT_EQ(text, "(1292) malformed define in .SDB file " + path() + "\n");
    EXPECT_EQ(sdb_get_frameptr(), 7); // it is entered all the same
}

TEST_F(records, almanacs_number_their_words)
{
    read("[a r acca ptra=5 ptrb acca ]\n[a m one ]\n");
    std::int32_t number = -1;
    EXPECT_TRUE(sdb_almanac_number('r', "acca", &number));
    EXPECT_EQ(number, 0); // the first number stays
    EXPECT_TRUE(sdb_almanac_number('r', "ptra", &number));
    EXPECT_EQ(number, 5);
    EXPECT_TRUE(sdb_almanac_number('r', "ptrb", &number));
    EXPECT_EQ(number, 6);
    EXPECT_TRUE(sdb_almanac_number('m', "one", &number));
    EXPECT_EQ(number, 0);
    EXPECT_FALSE(sdb_almanac_number('m', "acca", &number));
    EXPECT_FALSE(sdb_almanac_number('x', "acca", &number));
    read("[a r more ]\n"); // the tables gather words of all files, the counter starts anew
    EXPECT_TRUE(sdb_almanac_number('r', "more", &number));
    EXPECT_EQ(number, 0);
    EXPECT_TRUE(sdb_almanac_number('r', "ptrb", &number));
}

TEST_F(records, almanac_words_are_cut_to_64_characters)
{
    const std::string longest(64, 'w');
    read("[a m " + longest + "=9 next ]\n"); // the "=" is beyond
    std::int32_t number = -1;
    EXPECT_TRUE(sdb_almanac_number('m', longest.c_str(), &number));
    EXPECT_EQ(number, 0);
    EXPECT_TRUE(sdb_almanac_number('m', "next", &number));
    EXPECT_EQ(number, 1);
}

TEST_F(records, bad_almanacs_are_errors)
{
    std::string text = errors_of([this] { read("[a ]\n"); });
    EXPECT_EQ(text, "(0) malformed almanac in .SDB file " + path() + "\n");
    text = errors_of([this] { read("[a"); });
    EXPECT_EQ(text, "(0) malformed almanac in .SDB file " + path() + "\n");
    text = errors_of([this] { read("[a x"); });
    EXPECT_EQ(text, "(0) Unknown almanac in .SDB file " + path() + "\n");
}

TEST_F(records, the_end_of_the_file_ends_an_almanac)
{
    read("[a m one two");
    std::int32_t number = -1;
    EXPECT_TRUE(sdb_almanac_number('m', "two", &number));
    EXPECT_EQ(number, 1);
}

TEST(records_run, words_of_an_unknown_almanac_are_left_in_the_input)
{
    expect_database_run("almanac", "[p KORM ]\n[a x word ]\n",
                        "(0) Unknown almanac in .SDB file %PATH%\n"
                        "(631) syntax error at token \"word\" in SDB file \"%PATH%\" line 2 column 6\n",
                        1);
}

} // namespace
