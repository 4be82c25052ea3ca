// SPDX-License-Identifier: MIT
#include "compiler/tarnwick/type.h"

#include <algorithm>
#include <vector>

#include <gtest/gtest.h>

#include "common/alloc.h"
#include "compiler/tarnwick/sdb.h"
#include "tests/unit/scenario.h"
#include "tests/unit/tarnwick/trace_log.h"

namespace {

type_element element(std::uint32_t kind, std::uint64_t value = 0)
{
    type_element te;
    te.te_kind = kind;
    te.te_value = value;
    return te;
}

type_element basic(std::uint32_t cls, std::uint8_t size)
{
    type_element te;
    te.te_kind = ty_basic;
    te.basic = {cls, size, 0};
    return te;
}

type_element reference(std::uint32_t kind, sdb_node *node)
{
    type_element te;
    te.te_kind = kind;
    te.node = node;
    return te;
}

// A type from its base outwards.
type_record *make(const std::vector<type_element> &elements)
{
    type_record *tp = type_new();
    for (const type_element &te : elements) {
        tp = type_append(tp, te);
    }
    return tp;
}

const type_element INT = basic(TE_SIGNED, 2);
const type_element CHAR = basic(TE_SIGNED, 1);

std::uint32_t hash_of_type(const std::vector<type_element> &elements)
{
    return type_hash(to_word(type_top(make(elements))));
}

bool equal(const type_record *left, const type_record *right)
{
    return type_compare(to_word(type_top(left)), to_word(type_top(right))) == 0;
}

bool equal(const std::vector<type_element> &left, const std::vector<type_element> &right)
{
    return equal(make(left), make(right));
}

sdb_node *make_struct(const std::vector<sdb_member> &members, std::uint32_t size = 2, const char *tag = nullptr)
{
    sdb_node *node = sdb_new_node(sc_struct, "S");
    node->structure.st_size = size;
    node->structure.st_tag = tag;
    node->structure.st_count = static_cast<std::uint32_t>(members.size());
    node->structure.st_members = static_cast<sdb_member *>(xarena((members.size() + 1) * sizeof(sdb_member), 8));
    std::copy(members.begin(), members.end(), node->structure.st_members);
    return node;
}

sdb_member make_member(const char *name, type_record *tp, std::int32_t offset = 0, std::int32_t size = 2)
{
    return {.sm_name = name, .sm_type = tp, .sm_offset = offset, .sm_size = size};
}

bool structs_equal(sdb_node *left, sdb_node *right)
{
    return equal({reference(ty_struct, left)}, {reference(ty_struct, right)});
}

TEST(type_record, has_room_for_three_and_grows_by_three)
{
    type_record *tp = type_new();
    EXPECT_EQ(tp->ty_cnt, 0U);
    EXPECT_EQ(tp->ty_alloc, 3U);
    for (std::uint64_t i = 0; i < 4; ++i) {
        tp = type_append(tp, element(ty_array, i));
    }
    EXPECT_EQ(tp->ty_cnt, 4U);
    EXPECT_EQ(tp->ty_alloc, 6U);
    for (std::uint32_t i = 0; i < 4; ++i) {
        EXPECT_EQ(tp->elements[i].dimension, i);
        EXPECT_EQ(tp->elements[i].te_index, i);
    }
}

TEST(type_record, of_a_basic_type_has_room_for_one)
{
    const type_record *tp = type_append(type_new(1), INT);
    EXPECT_EQ(tp->ty_cnt, 1U);
    EXPECT_EQ(tp->ty_alloc, 1U);
}

TEST(type_record, grows_to_any_length)
{
    constexpr std::uint32_t LENGTH = 100000;
    type_record *tp = type_append(type_new(), INT);
    for (std::uint32_t i = 1; i < LENGTH; ++i) {
        tp = type_append(tp, element(ty_ptr));
    }
    EXPECT_EQ(tp->ty_cnt, LENGTH);
    EXPECT_EQ(type_top(tp)->te_kind, ty_ptr);
    EXPECT_EQ(type_hash(to_word(type_top(tp))), (LENGTH - 1) * 0x300 + 1 + 2);
}

TEST(type_top, is_the_last_element)
{
    type_record *tp = make({INT, element(ty_ptr), element(ty_array, 4)});
    EXPECT_EQ(type_top(tp), &tp->elements[2]);
    EXPECT_EQ(type_below(tp, &tp->elements[2]), &tp->elements[1]);
    EXPECT_EQ(type_below(tp, &tp->elements[0]), nullptr);
}

TEST(type_top, asserts_a_type_with_elements)
{
    const trace_log log;
    EXPECT_EQ(type_top(static_cast<type_record *>(nullptr)), nullptr);
    EXPECT_EQ(log.failed(), std::vector<std::string>{"tp != NULL"});
    log.failed().clear();
    EXPECT_EQ(type_top(type_new()), nullptr);
    EXPECT_EQ(log.failed(), std::vector<std::string>{"tp->ty_cnt != 0"});
}

TEST(isfunc, looks_at_the_first_element_that_is_no_qualifier)
{
    EXPECT_TRUE(isfunc(make({INT, element(ty_func)})));
    EXPECT_TRUE(isfunc(make({INT, element(ty_func), element(ty_qual, 0x40)})));
    EXPECT_TRUE(isfunc(make({INT, element(ty_func), element(ty_qual, 0x40), element(ty_qual, 2)})));
    EXPECT_FALSE(isfunc(make({INT, element(ty_func), element(ty_ptr)})));
    EXPECT_FALSE(isfunc(make({INT, element(ty_func), element(ty_ptr), element(ty_qual, 2)})));
    EXPECT_FALSE(isfunc(make({INT})));
    EXPECT_FALSE(isfunc(make({element(ty_qual, 2)})));
    EXPECT_FALSE(isfunc(type_new()));
    EXPECT_FALSE(isfunc(nullptr));
}

TEST(type_has_qualifier, looks_at_the_top_alone)
{
    EXPECT_TRUE(type_has_qualifier(make({INT, element(ty_qual, 0x6)}), 0x2));
    EXPECT_FALSE(type_has_qualifier(make({INT, element(ty_qual, 0x6)}), 0x8));
    EXPECT_FALSE(type_has_qualifier(make({INT, element(ty_qual, 0x2), element(ty_ptr)}), 0x2));
    EXPECT_FALSE(type_has_qualifier(make({INT, element(ty_array, 0x2)}), 0x2));
    EXPECT_FALSE(type_has_qualifier(nullptr, 0x2));
    EXPECT_FALSE(type_has_qualifier(type_new(), 0x2));
}

TEST(type_bits, are_told_from_booleans_by_their_size)
{
    const type_element bit = basic(TE_BIT, 0);
    const type_element boolean = basic(TE_BIT, 1);
    const type_element other = element(ty_array, TE_BIT);
    EXPECT_TRUE(isBitType(&bit));
    EXPECT_FALSE(isBoolType(&bit));
    EXPECT_FALSE(isBitType(&boolean));
    EXPECT_TRUE(isBoolType(&boolean));
    EXPECT_FALSE(isBitType(&INT));
    EXPECT_FALSE(isBoolType(&INT));
    EXPECT_FALSE(isBitType(&other));
    EXPECT_FALSE(isBitType(nullptr));
    EXPECT_FALSE(isBoolType(nullptr));
}

TEST(type_hash, sums_the_elements_from_the_top_down)
{
    sdb_node *node = sdb_new_node(sc_struct, "S1");
    EXPECT_EQ(hash_of_type({INT}), 1U + 2U);
    EXPECT_EQ(hash_of_type({basic(TE_FLOAT, 4)}), 3U + 4U);
    EXPECT_EQ(hash_of_type({INT, element(ty_func)}), 0x200U + 3U);
    EXPECT_EQ(hash_of_type({INT, element(ty_ptr, 37)}), 0x300U + 3U);
    EXPECT_EQ(hash_of_type({INT, element(ty_array, 12)}), 0x600U + 3U);
    EXPECT_EQ(hash_of_type({INT, element(ty_qual, 0x400002)}), 0x400002U + 0x700U + 3U);
    EXPECT_EQ(hash_of_type({reference(ty_enum, node)}), 0x400U);
    EXPECT_EQ(hash_of_type({reference(ty_struct, node), element(ty_ptr)}), 0x300U + 0x500U);
    // A type that was cut short.
    EXPECT_EQ(hash_of_type({element(ty_array, 3), element(ty_ptr)}), 0x600U + 0x300U);
}

TEST(type_hash, takes_arrays_of_any_dimension_for_alike)
{
    EXPECT_EQ(hash_of_type({INT, element(ty_array, 3)}), hash_of_type({INT, element(ty_array, 4)}));
    EXPECT_FALSE(equal({INT, element(ty_array, 3)}, {INT, element(ty_array, 4)}));
}

TEST(type_compare, goes_by_kind)
{
    sdb_node *one = sdb_new_node(sc_enum, "E1");
    sdb_node *two = sdb_new_node(sc_enum, "E1");
    EXPECT_TRUE(equal({INT}, {basic(TE_SIGNED, 2)}));
    EXPECT_FALSE(equal({INT}, {CHAR}));
    EXPECT_FALSE(equal({INT}, {basic(TE_UNSIGNED, 2)}));
    EXPECT_TRUE(equal({reference(ty_enum, one)}, {reference(ty_enum, one)}));
    EXPECT_FALSE(equal({reference(ty_enum, one)}, {reference(ty_enum, two)}));
    EXPECT_TRUE(equal({INT, element(ty_func)}, {INT, element(ty_func)}));
    EXPECT_FALSE(equal({INT, element(ty_func)}, {CHAR, element(ty_func)}));
    EXPECT_FALSE(equal({INT, element(ty_func)}, {INT, element(ty_ptr)}));
    EXPECT_TRUE(equal({INT, element(ty_qual, 2)}, {INT, element(ty_qual, 2)}));
    EXPECT_FALSE(equal({INT, element(ty_qual, 2)}, {INT, element(ty_qual, 6)}));
    EXPECT_FALSE(equal({INT, element(ty_ptr)}, {INT}));
}

TEST(type_compare, ignores_pointer_classes_bit_numbers_and_high_halves)
{
    EXPECT_TRUE(equal({INT, element(ty_ptr, 37)}, {INT, element(ty_ptr, 0)}));
    type_element bit = basic(TE_BIT, 0);
    type_element other = bit;
    other.basic.te_bitpos = 5;
    EXPECT_TRUE(equal({bit}, {other}));
    EXPECT_TRUE(equal({INT, element(ty_array, 3)}, {INT, element(ty_array, 0x100000003)}));
}

TEST(type_compare, of_types_cut_short)
{
    EXPECT_TRUE(equal({element(ty_ptr)}, {element(ty_ptr)}));
    EXPECT_FALSE(equal({element(ty_ptr)}, {INT, element(ty_ptr)}));
    EXPECT_FALSE(equal({INT, element(ty_ptr)}, {element(ty_ptr)}));
}

TEST(struct_equal, needs_like_heads_and_members)
{
    type_record *integer = make({INT});
    const auto base = [integer](const char *tag) {
        return make_struct({make_member("a", integer), make_member(nullptr, integer, 2)}, 4, tag);
    };
    EXPECT_TRUE(structs_equal(base("t"), base("t")));
    EXPECT_TRUE(structs_equal(base(nullptr), base(nullptr)));
    EXPECT_FALSE(structs_equal(base("t"), base("u")));
    EXPECT_FALSE(structs_equal(base("t"), base(nullptr)));
    EXPECT_FALSE(structs_equal(base(nullptr), base("t")));
    EXPECT_FALSE(structs_equal(base("t"), make_struct({make_member("a", integer)}, 4, "t")));
    EXPECT_FALSE(structs_equal(make_struct({}, 2), make_struct({}, 3)));
    EXPECT_TRUE(structs_equal(make_struct({}, 2), make_struct({}, 2)));
    EXPECT_TRUE(
        equal({reference(ty_struct, base("t")), element(ty_ptr)}, {reference(ty_struct, base("t")), element(ty_ptr)}));
}

TEST(struct_equal, compares_every_field_of_a_member)
{
    type_record *integer = make({INT});
    const sdb_member reference_member{
        .sm_name = "a", .sm_type = integer, .sm_offset = 1, .sm_size = 2, .sm_bitoff = 3, .sm_bitwidth = 4};
    const auto differs = [&](sdb_member changed) {
        return !structs_equal(make_struct({reference_member}), make_struct({changed}));
    };
    EXPECT_FALSE(differs(reference_member));
    sdb_member changed = reference_member;
    changed.sm_name = "b";
    EXPECT_TRUE(differs(changed));
    changed.sm_name = nullptr;
    EXPECT_TRUE(differs(changed));
    changed = reference_member;
    changed.sm_offset = 0;
    EXPECT_TRUE(differs(changed));
    changed = reference_member;
    changed.sm_size = 1;
    EXPECT_TRUE(differs(changed));
    changed = reference_member;
    changed.sm_bitoff = 0;
    EXPECT_TRUE(differs(changed));
    changed = reference_member;
    changed.sm_bitwidth = 0;
    EXPECT_TRUE(differs(changed));
    changed = reference_member;
    changed.sm_type = make({CHAR});
    EXPECT_TRUE(differs(changed));
    changed.sm_type = nullptr;
    EXPECT_TRUE(differs(changed));
}

TEST(struct_equal, takes_members_of_one_struct_for_equal_whatever_stands_above)
{
    sdb_node *shared = make_struct({}, 8);
    type_record *pointer = make({reference(ty_struct, shared), element(ty_ptr)});
    type_record *array = make({reference(ty_struct, shared), element(ty_array, 7)});
    EXPECT_TRUE(structs_equal(make_struct({make_member("m", pointer)}), make_struct({make_member("m", array)})));
}

TEST(struct_equal, goes_into_structs_of_members)
{
    const auto outer = [](const type_element &inner_type) {
        sdb_node *inner = make_struct({make_member("x", make({inner_type}))});
        return make_struct({make_member("in", make({reference(ty_struct, inner)})), make_member("y", make({INT}))});
    };
    EXPECT_TRUE(structs_equal(outer(INT), outer(INT)));
    EXPECT_FALSE(structs_equal(outer(INT), outer(CHAR)));
}

// A struct with a member that leads back to it.
sdb_node *make_recursive()
{
    sdb_node *node = make_struct({make_member("next", nullptr)}, 2, "node");
    node->structure.st_members[0].sm_type = make({reference(ty_struct, node), element(ty_ptr)});
    return node;
}

TEST(struct_equal, takes_like_recursive_structs_for_different)
{
    sdb_node *one = make_recursive();
    EXPECT_TRUE(structs_equal(one, one));
    EXPECT_FALSE(structs_equal(one, make_recursive()));
}

TEST(struct_equal, takes_a_struct_met_twice_for_different)
{
    // Two members of like structs: the first pair is equal and stays on the visiting stacks, so the second is not.
    const auto outer = [] {
        sdb_node *inner = make_struct({make_member("x", make({INT}))});
        type_record *tp = make({reference(ty_struct, inner)});
        return make_struct({make_member("a", tp), make_member("b", tp)});
    };
    EXPECT_FALSE(structs_equal(outer(), outer()));
}

TEST(struct_equal, looks_at_the_second_stack_for_the_second_side)
{
    // Left the two members have structs of their own, right they share one.
    const auto inner = [] { return make({reference(ty_struct, make_struct({make_member("x", make({INT}))}))}); };
    type_record *shared = inner();
    sdb_node *left = make_struct({make_member("a", inner()), make_member("b", inner())});
    sdb_node *right = make_struct({make_member("a", shared), make_member("b", shared)});
    EXPECT_FALSE(structs_equal(left, right));
    EXPECT_FALSE(structs_equal(right, left));
}

TEST(struct_equal, forgets_its_stacks_between_comparisons)
{
    const auto plain = [] { return make_struct({make_member("x", make({INT}))}); };
    sdb_node *left = plain();
    sdb_node *right = plain();
    EXPECT_TRUE(structs_equal(left, right));
    EXPECT_TRUE(structs_equal(left, right));
}

TEST(struct_equal, survives_structs_within_structs_without_end)
{
    constexpr int DEPTH = 100000;
    const auto chain = [](const type_element &base) {
        type_record *tp = make({base});
        for (int i = 0; i < DEPTH; ++i) {
            tp = make({reference(ty_struct, make_struct({make_member("m", tp)}))});
        }
        return tp;
    };
    EXPECT_TRUE(equal(chain(INT), chain(INT)));
    EXPECT_FALSE(equal(chain(INT), chain(CHAR)));
}

TEST(type_table, finds_the_number_of_an_equal_type)
{
    hash_table *table = type_table_new();
    EXPECT_EQ(table->size, 123U);
    type_record *pointer = make({INT, element(ty_ptr)});
    type_table_add(table, type_top(pointer), 7);
    type_table_add(table, &pointer->elements[0], 8);
    type_record *again = make({INT, element(ty_ptr, 39)});
    ASSERT_NE(type_table_get(table, type_top(again)), nullptr);
    EXPECT_EQ(*type_table_get(table, type_top(again)), 7U);
    EXPECT_EQ(*type_table_get(table, &again->elements[0]), 8U);
    type_table_add(table, type_top(again), 9); // an equal type keeps its number
    EXPECT_EQ(*type_table_get(table, type_top(pointer)), 7U);
    const type_record *other = make({CHAR});
    EXPECT_EQ(type_table_get(table, type_top(other)), nullptr);
    type_table_free(table);
}

TEST(type_kinds, that_do_not_exist_are_fatal)
{
    expect_run([] { hash_of_type({element(9), element(ty_ptr)}); }, "(623) bad class in type hashing\n", 1);
    expect_run([] { equal({element(9)}, {element(9)}); }, "(624) bad class in type compare\n", 1);
}

} // namespace
