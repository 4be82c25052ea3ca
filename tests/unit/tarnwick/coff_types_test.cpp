// SPDX-License-Identifier: MIT
// Types in a COFF output. Expected words are worked out by hand: base type in bits 0 to 4, outermost derivation in bits 5
// to 7 (20 pointer, 40 function, 60 array), inner ones above.
#include "compiler/tarnwick/coff_types.h"

#include "tests/unit/tarnwick/coff_testing.h"

namespace {

class coff_types_test : public coff_model {
public:
    // "word", and behind it the auxiliary entry when there is one.
    std::string word(type_record *tp)
    {
        const coff_type type = vcoff_type_word(tags, tp);
        return text_of(type);
    }
    std::string word(std::string_view text, sdb_node *node = nullptr) { return word(type_maker::make(text, node)); }
    static std::string text_of(const coff_type &type)
    {
        return format_numbers({type.word}).substr(1) + (type.has_aux ? " " + aux_text(type.aux) : "");
    }

    coff_tables tables;
    coff_tags tags{&tables};
};

TEST_F(coff_types_test, basic_types_go_by_class_and_size)
{
    struct row {
        std::uint32_t te_class;
        std::uint32_t words[10]; // by size from 0 to 9
    };
    constexpr row ROWS[] = {
        {0, {1, 1, 1, 1, 1, 1, 1, 1, 1, 1}},          // void
        {1, {0, 2, 4, 17, 5, 0, 0, 0, 5, 0}},         // signed: 8 bytes as 4
        {2, {0, 12, 14, 18, 15, 0, 0, 0, 15, 0}},     // unsigned
        {3, {7, 7, 7, 6, 7, 7, 7, 7, 7, 7}},          // float: 3 bytes or any other size
        {4, {0, 12, 12, 12, 12, 12, 12, 12, 12, 12}}, // bit, boolean
        {5, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},          {0xFFFFFFFF, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    };
    for (const row &r : ROWS) {
        for (std::uint8_t size = 0; size < 10; ++size) {
            const coff_type type = vcoff_type_word(tags, type_maker::basic(r.te_class, size));
            EXPECT_EQ(type.word, r.words[size]) << r.te_class << " " << int{size};
            EXPECT_FALSE(type.has_aux);
        }
        EXPECT_EQ(vcoff_type_word(tags, type_maker::basic(r.te_class, 255)).word, r.words[9]);
    }
}

TEST_F(coff_types_test, derivations_move_inward)
{
    EXPECT_EQ(coff_derive(4, COFF_POINTER), 0x24U);
    EXPECT_EQ(coff_derive(0x24, COFF_FUNCTION), 0x144U);
    EXPECT_EQ(coff_derive(0x144, COFF_ARRAY), 0xA64U);
    EXPECT_EQ(coff_derive(0xFFFFFFFF, COFF_POINTER), 0xFFFFFF3FU) << "what is moved out of the word is lost";
    EXPECT_EQ(word("*i2"), "24");
    EXPECT_EQ(word("(i2"), "44");
    EXPECT_EQ(word("(*i2"), "144"); // function that returns a pointer
    EXPECT_EQ(word("*(i2"), "224"); // pointer to a function
    EXPECT_EQ(word("**(*v0"),
              "5121");                                    // 1 | 20 | 100 | 1000 | 4000
    EXPECT_EQ(word("*******************i2"), "24924924"); // ten levels have room
}

TEST_F(coff_types_test, qualifiers_and_enums_add_nothing)
{
    EXPECT_EQ(word("?i2"), "4");
    EXPECT_EQ(word("?*?i2"), "24");
    sdb_node *node = sdb_new_node(sc_enum, "E");
    node->enumeration.en_size = 4;
    EXPECT_EQ(word("E", node), "2");
    EXPECT_EQ(word("*E", node), "22");
    EXPECT_EQ(word("[3]E", node), "62 + 0 0 3 3");
}

TEST_F(coff_types_test, types_that_are_no_types)
{
    EXPECT_EQ(word(nullptr), "0");
    EXPECT_EQ(word(""), "0");
    EXPECT_EQ(word("?"), "0");
    EXPECT_EQ(word("*"), "20");
    EXPECT_EQ(word("[5]"), "60 + 0 0 0 5");
    type_record *tp = type_maker::derived(type_new(), static_cast<type_kind>(99), 0);
    EXPECT_EQ(word(tp), "0");
    EXPECT_EQ(word(type_maker::derived(tp, ty_ptr, 0)), "20") << "an unknown kind ends a type";
}

TEST_F(coff_types_test, arrays_have_their_dimensions_outermost_first)
{
    EXPECT_EQ(word("[7]i2"), "64 + 0 0 E 7");
    EXPECT_EQ(word("[3][4]i2"), "364 + 0 0 18 3 4");
    EXPECT_EQ(word("[2][3][4]u1"), "1B6C + 0 0 18 2 3 4");        // the third dimension in the last word's low half
    EXPECT_EQ(word("[2][3][4][5]u1"), "DB6C + 0 0 78 2 3 50004"); // and the fourth in its high half
    EXPECT_EQ(word("[300]u4"), "6F + 0 0 4B0 12C");
}

TEST_F(coff_types_test, the_fifth_dimension_loses_the_innermost)
{
    // The multiplier is that of the three outer old ones, so the size loses it as well: 6 * 2 * 3 * 4.
    EXPECT_EQ(word("[6][2][3][4][5]u1"), "6DB6C + 0 0 90 6 2 40003");
}

TEST_F(coff_types_test, a_dimension_of_0_ends_the_old_ones)
{
    EXPECT_EQ(word("[0]i2"), "64 +");
    EXPECT_EQ(word("[5][0]i2"), "364 + 0 0 A 5") << "nothing is moved, and the 0 is overwritten";
    EXPECT_EQ(word("[5][0][3]i2"), "1B64 + 0 0 A 5 3") << "the second dimension stays where it was";
    EXPECT_EQ(word("[0][3]i2"), "364 + 0 0 0 0 3");
}

TEST_F(coff_types_test, dimensions_and_sizes_have_sixteen_bits)
{
    EXPECT_EQ(word("[65537]i2"), "64 + 0 0 2 1");
    EXPECT_EQ(word("[65536]i2"), "64 +");
    EXPECT_EQ(word("[40000]i2"), "64 + 0 0 3880 9C40");        // 80000 = 1 3880
    EXPECT_EQ(word("[300][300]u1"), "36C + 0 0 5F90 12C 12C"); // 90000 = 1 5F90
}

TEST_F(coff_types_test, elements_have_the_size_of_their_base_type)
{
    struct row {
        const char *element;
        std::uint32_t size; // of two
    };
    constexpr row ROWS[] = {{"v0", 0}, {"i1", 2}, {"i2", 4}, {"i3", 6},  {"i4", 8},   {"i8", 8}, {"i5", 0},
                            {"u1", 2}, {"u2", 4}, {"u3", 6}, {"u4", 8},  {"u8", 8},   {"f3", 6}, {"f4", 8},
                            {"f8", 8}, {"b0", 0}, {"b1", 2}, {"*i4", 4}, {"*(i4", 4}, {"(i4", 8}};
    for (const row &r : ROWS) {
        const coff_type type = vcoff_type_word(tags, type_maker::make(std::string("[2]") + r.element));
        EXPECT_EQ(field(type.aux.data(), CAX_SIZE, 2), r.size) << r.element;
    }
}

TEST_F(coff_types_test, an_array_of_pointers_to_arrays_counts_the_inner_dimensions)
{
    // The dimensions of what is pointed to stand in the same entry.
    EXPECT_EQ(word("*[4]i2"), "324 + 0 0 8 4");
    EXPECT_EQ(word("[3]*[4]i2"), "1964 + 0 0 18 3 4"); // 3 * 4 * 2
}

TEST_F(coff_types_test, a_struct_names_its_tag)
{
    sdb_node *node = make_struct("tag", 6);
    type_record *tp = type_maker::make("S", node);
    vcoff_emit_tag(&tags, tp);
    coff_append_marker(&tables, "x", {});
    sdb_node *second = make_struct("other", 2);
    vcoff_emit_tag(&tags, type_maker::make("S", second));
    EXPECT_EQ(word("S", node), "8 + 0 0 6");
    EXPECT_EQ(word("S", second), "8 + 5 0 2");
    EXPECT_EQ(word("*S", second), "28 + 5 0 2");
    EXPECT_EQ(word("(*S", second), "148 + 5 0 2");
    node->structure.st_union = true;
    EXPECT_EQ(word("S", node), "8 + 0 0 6") << "a union has no type of its own";
}

TEST_F(coff_types_test, arrays_over_structs_go_by_the_size_that_stands_there)
{
    sdb_node *node = make_struct("tag", 6);
    vcoff_emit_tag(&tags, type_maker::make("S", node));
    EXPECT_EQ(word("[2]S", node), "68 + 0 0 C 2");
    EXPECT_EQ(word("[3][2]S", node), "368 + 0 0 48 3 2") << "3 * 2 * 12: the inner dimension counts twice";
    EXPECT_EQ(word("[3]*S", node), "168 + 0 0 12 3") << "3 * 6: pointers have the size of the struct";
    EXPECT_EQ(word("*[3]S", node), "328 + 0 0 12 3");
    sdb_node *large = make_struct("large", 0x10003);
    vcoff_emit_tag(&tags, type_maker::make("S", large));
    EXPECT_EQ(word("[2]S", large), "68 + 4 0 6 2") << "16 bits of the size stand there";
}

TEST_F(coff_types_test, a_tag_has_its_members_and_its_end)
{
    sdb_node *node = make_struct("pair", 5);
    set_members(node, {{"first", type_maker::make("u2"), 0},
                       {"bits", type_maker::make("u1"), 2, 3, 4},
                       {"a_long_member", type_maker::make("[2]u1"), 3}});
    const coff_type type = vcoff_type(&tags, type_maker::make("S", node));
    EXPECT_EQ(text_of(type), "8 + 0 0 5");
    EXPECT_EQ(listing(tables), (text_lines{"0 pair 0 0 0 10", "+ 0 0 5 0 0 8", // names no tag; points behind .eos
                                           "2 first 0 0 E 8",                  //
                                           "3 bits 13 0 C 18", "+ 0 0 4",      // bit 3 of byte 2
                                           "5 'a_long_member' 3 0 6C 8", "+ 0 0 2 2", //
                                           "7 .eos 0 0 0 102", "+ 0 0 5"}));
    EXPECT_EQ(strings_of(tables), (text_lines{"a_long_member"}));
}

TEST_F(coff_types_test, the_end_names_the_tag)
{
    coff_append_marker(&tables, "x", {});
    vcoff_emit_tag(&tags, type_maker::make("S", make_struct("t", 1)));
    EXPECT_EQ(listing(tables),
              (text_lines{"0 x 0 0 0 0", "1 t 0 0 0 10", "+ 0 0 1 0 0 4", "3 .eos 0 0 0 102", "+ 1 0 1"}));
}

TEST_F(coff_types_test, a_bit_field_goes_by_its_width_alone)
{
    sdb_node *inner = make_struct("in", 2);
    sdb_node *node = make_struct("out", 1);
    set_members(node, {{"w0", type_maker::make("u1"), 1, 5, 0}, // not a bit field: the bit offset is not looked at
                       {"w1", type_maker::make("S", inner), -1, 1, 1},
                       {"none", nullptr, 2, 0, -3}});
    vcoff_emit_tag(&tags, type_maker::make("S", node));
    EXPECT_EQ(listing(tables), (text_lines{"0 out 0 0 0 10", "+ 0 0 1 0 0 8", "2 w0 1 0 C 8", "3 w1 FFFFFFF9 0 C 18",
                                           "+ 0 0 1", "5 none 10 0 C 18", "+ 0 0 FFFD", "7 .eos 0 0 0 102", "+ 0 0 1",
                                           "9 in 0 0 0 10", "+ 0 0 2 0 0 C", "11 .eos 0 0 0 102", "+ 9 0 2"}))
        << "the tag of a bit field's type is written, though the field does not name it";
}

TEST_F(coff_types_test, missing_names_are_made_up_in_order)
{
    const name_watch generated;
    opt_strip_underscore = true; // plays no part here
    sdb_node *node = make_struct(nullptr, 3);
    set_members(node,
                {{nullptr, type_maker::make("u1"), 0}, {nullptr, type_maker::make("u1"), 1, 0, 2}, {"_m", nullptr, 2}});
    node->structure.st_union = true;
    vcoff_emit_tag(&tags, type_maker::make("S", node));
    EXPECT_EQ(listing(tables),
              (text_lines{"0 " + generated(0) + " 0 0 0 10", "+ 0 0 3 0 0 7", "2 " + generated(1) + " 0 0 C 8",
                          "3 " + generated(2) + " 8 0 C 18", "+ 0 0 2", "5 _m 2 0 0 8", "6 .eos 0 0 0 102", "+ 0 0 3"}))
        << "a union's tag has the class of a struct's";
}

TEST_F(coff_types_test, a_tag_is_written_once)
{
    sdb_node *node = make_struct("t", 1);
    vcoff_type(&tags, type_maker::make("S", node));
    const std::size_t count = tables.coff_symbols.size();
    vcoff_type(&tags, type_maker::make("*[2]?S", node));
    EXPECT_EQ(text_of(vcoff_type(&tags, type_maker::make("(S", make_struct("t", 1)))), "48 + 0 0 1")
        << "an equal type of another node has no tag of its own";
    EXPECT_EQ(tables.coff_symbols.size(), count);
}

TEST_F(coff_types_test, types_without_struct_write_no_tag)
{
    for (const char *text : {"", "i2", "*(v0", "[2]u1", "?", "*"}) {
        vcoff_emit_tag(&tags, type_maker::make(text));
    }
    vcoff_emit_tag(&tags, nullptr);
    vcoff_emit_tag(&tags, type_maker::make("*E", sdb_new_node(sc_enum, "E")));
    EXPECT_TRUE(tables.coff_symbols.empty());
}

// outer { middle m; first *f; } middle { last l; }: the walk goes on into a member's struct before the next member's.
TEST_F(coff_types_test, tags_of_members_follow_depth_first)
{
    sdb_node *outer = make_struct("outer", 4);
    sdb_node *middle = make_struct("middle", 2);
    sdb_node *last = make_struct("last", 1);
    sdb_node *first = make_struct("first", 1);
    set_members(middle, {{"l", type_maker::make("S", last), 0}});
    set_members(outer, {{"m", type_maker::make("S", middle), 0}, {"f", type_maker::make("*S", first), 2}});
    EXPECT_EQ(text_of(vcoff_type(&tags, type_maker::make("[2]S", outer))), "68 + 0 0 8 2");
    EXPECT_EQ(listing(tables),
              (text_lines{"0 outer 0 0 0 10",  "+ 0 0 4 0 0 7", //
                          "2 m 0 0 8 8",       "+ 8 0 2",          "4 f 2 0 28 8",      "+ 12 0 1",
                          "6 .eos 0 0 0 102",  "+ 0 0 4", //
                          "8 middle 0 0 0 10", "+ 0 0 2 0 0 D",    "10 l 0 0 8 8",      "+ E 0 1",
                          "12 .eos 0 0 0 102", //
                          "+ 8 0 2",           "14 last 0 0 0 10", "+ 0 0 1 0 0 11",    "16 .eos 0 0 0 102",
                          "+ E 0 1", //
                          "18 first 0 0 0 10", "+ 0 0 1 0 0 15",   "20 .eos 0 0 0 102", "+ 12 0 1"}))
        << "what waited for a tag has its index";
}

TEST_F(coff_types_test, a_struct_can_name_itself)
{
    sdb_node *node = make_struct("list", 4);
    set_members(node, {{"next", type_maker::make("*S", node), 0}, {"all", type_maker::make("[2]*S", node), 2}});
    vcoff_type(&tags, type_maker::make("S", node));
    coff_append_marker(&tables, "x", {});
    EXPECT_EQ(listing(tables),
              (text_lines{"0 list 0 0 0 10", "+ 0 0 4 0 0 7", "2 next 0 0 28 8", "+ 0 0 4", "4 all 2 0 168 8",
                          "+ 0 0 8 2", "6 .eos 0 0 0 102", "+ 0 0 4", "8 x 0 0 0 0"}));
}

// Two nodes of one type are met before the tag is there: the index comes to the node that has the tag, and the entry of
// the other stays without one.
TEST_F(coff_types_test, the_index_belongs_to_the_node)
{
    sdb_node *one = make_struct("same", 2);
    sdb_node *two = make_struct("same", 2);
    sdb_node *outer = make_struct("outer", 6);
    set_members(outer, {{"a", type_maker::make("S", one), 0},
                        {"b", type_maker::make("S", two), 2},
                        {"c", type_maker::make("S", one), 4}});
    coff_append_marker(&tables, "x", {});
    vcoff_type(&tags, type_maker::make("S", outer));
    EXPECT_EQ(listing(tables),
              (text_lines{"0 x 0 0 0 0", "1 outer 0 0 0 10", "+ 0 0 6 0 0 A", "3 a 0 0 8 8", "+ B 0 2", "5 b 2 0 8 8",
                          "+ 0 0 2", "7 c 4 0 8 8", "+ B 0 2", "9 .eos 0 0 0 102", "+ 1 0 6", "11 same 0 0 0 10",
                          "+ 0 0 2 0 0 E", "13 .eos 0 0 0 102", "+ B 0 2"}));
    EXPECT_EQ(one->structure.st_coff_index, 0U) << "cleared with those that waited";
    EXPECT_FALSE(one->structure.st_waiting);
    EXPECT_FALSE(two->structure.st_waiting);
    EXPECT_EQ(outer->structure.st_coff_index, 1U) << "nothing waited for it";
    EXPECT_EQ(word("S", two), "8 + B 0 2") << "from now on the table gives it";
}

TEST_F(coff_types_test, different_structs_of_one_tag_have_tags_of_their_own)
{
    sdb_node *small = make_struct("t", 1);
    sdb_node *large = make_struct("t", 2);
    sdb_node *members = make_struct("t", 2);
    sdb_node *others = make_struct("t", 2);
    set_members(members, {{"a", type_maker::make("u2"), 0}});
    set_members(others, {{"b", type_maker::make("u2"), 0}});
    for (sdb_node *node : {small, large, members, others, small}) {
        vcoff_type(&tags, type_maker::make("S", node));
    }
    EXPECT_EQ(word("S", small), "8 + 0 0 1");
    EXPECT_EQ(word("S", large), "8 + 4 0 2");
    EXPECT_EQ(word("S", members), "8 + 8 0 2");
    EXPECT_EQ(word("S", others), "8 + D 0 2");
    EXPECT_EQ(tables.coff_symbols.size(), 18U);
}

// With the table of types itself as the reference, which puts all structs into one chain.
TEST_F(coff_types_test, tags_are_found_as_in_the_table_of_types)
{
    hash_table *reference = type_table_new();
    for (std::uint32_t i = 0; i < 300; ++i) {
        const char *names[] = {nullptr, "a", "b"};
        sdb_node *node = make_struct(names[i % 3], i % 5);
        std::vector<test_member> members;
        for (std::uint32_t k = 0; k < i % 4; ++k) {
            members.push_back(
                {names[(i + k) % 3], type_maker::make(i % 7 == 0 ? "u2" : "*u2"), static_cast<std::int32_t>(k)});
        }
        set_members(node, members);
        type_record *tp = type_maker::make("S", node);
        if (type_table_get(reference, &tp->elements[0]) == nullptr) {
            type_table_add(reference, &tp->elements[0], static_cast<std::uint32_t>(tables.coff_symbols.size()));
        }
        const coff_type type = vcoff_type(&tags, tp);
        ASSERT_EQ(field(type.aux.data(), CAX_TAG, 4), *type_table_get(reference, &tp->elements[0])) << i;
    }
    type_table_free(reference);
}

TEST_F(coff_types_test, the_size_of_a_variable_tells_which_float_it_is)
{
    struct row {
        const char *type;
        std::uint32_t size;
        std::uint32_t word;
    };
    constexpr row ROWS[] = {{"f4", 4, 7}, {"f4", 3, 6}, {"f3", 3, 6}, {"f3", 4, 7},    {"f3", 8, 6},
                            {"f4", 8, 7}, {"f4", 0, 7}, {"i2", 3, 4}, {"*f4", 3, 0x27}};
    for (const row &r : ROWS) {
        sdb_var variable;
        variable.va_type = type_maker::make(r.type);
        variable.va_size = r.size;
        EXPECT_EQ(coff_variable_type(&tags, variable).word, r.word) << r.type << " " << r.size;
    }
}

TEST_F(coff_types_test, depth_of_types_and_structs_is_the_inputs)
{
    constexpr std::uint32_t DEPTH = 100000;
    type_record *tp = type_maker::make("u1");
    for (std::uint32_t i = 0; i < DEPTH; ++i) {
        tp = type_maker::derived(tp, i % 2 == 0 ? ty_ptr : ty_array, 3);
    }
    EXPECT_EQ(vcoff_type(&tags, tp).word & 0xFF, 0x6CU);

    sdb_node *node = make_struct("s", 0);
    for (std::uint32_t i = 1; i < DEPTH; ++i) {
        sdb_node *outer = make_struct("s", i);
        set_members(outer, {{"m", type_maker::make("S", node), 0}});
        node = outer;
    }
    vcoff_type(&tags, type_maker::make("S", node));
    EXPECT_EQ(tables.coff_symbols.size(), std::size_t{DEPTH} * 6 - 2);
    // Each member names the tag behind its own struct's end.
    EXPECT_EQ(field(tables.coff_symbols[3].data(), CAX_TAG, 4), 6U);
    EXPECT_EQ(field(tables.coff_symbols[6 * 99 + 3].data(), CAX_TAG, 4), 600U);
}

TEST_F(coff_types_test, many_members_can_wait_for_one_tag)
{
    constexpr std::uint32_t COUNT = 50000;
    sdb_node *inner = make_struct("inner", 1);
    std::vector<test_member> members;
    for (std::uint32_t i = 0; i < COUNT; ++i) {
        members.push_back({"m", type_maker::make("S", inner), static_cast<std::int32_t>(i)});
    }
    sdb_node *outer = make_struct("outer", COUNT);
    set_members(outer, members);
    vcoff_type(&tags, type_maker::make("S", outer));
    const std::uint32_t tag = 2 + 2 * COUNT + 2;
    for (std::uint32_t i = 0; i < COUNT; ++i) {
        ASSERT_EQ(field(tables.coff_symbols[3 + 2 * i].data(), CAX_TAG, 4), tag);
    }
}

} // namespace
