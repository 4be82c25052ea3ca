// SPDX-License-Identifier: MIT
#include "compiler/tarnwick/sdb.h"

#include <iterator>
#include <string>
#include <vector>

#include "common/alloc.h"
#include "tests/unit/tarnwick/random_numbers.h"
#include "tests/unit/tarnwick/sdb_testing.h"
#include "tests/unit/tarnwick/trace_log.h"

namespace {

class tree : public database {
public:
    void SetUp() override { choose(machkor); }

    static sdb_node *add(sdb_node *block, sclass cls, const char *name)
    {
        sdb_node *node = sdb_new_node(cls, name);
        node->sdb_parent = block;
        node->sdb_index = block->block.bl_count;
        sdb_add_member(block, node);
        return node;
    }
    static sdb_node *add_named(sdb_node *block, sclass cls, const char *name)
    {
        sdb_node *node = add(block, cls, name);
        sdb_add_to_hash(block, node);
        return node;
    }
    static sdb_node *lookup(const char *name, sdb_node *block)
    {
        return sdb_scope_lookup(name, block, block->block.bl_count);
    }
};

TEST(sdb_classes, are_scopes_or_variables_or_neither)
{
    for (std::uint32_t value = sc_null; value <= sc_asmodule; ++value) {
        const auto cls = static_cast<sclass>(value);
        const bool scope = value == 7 || value == 9 || value == 10 || value == 14 || value == 15;
        const bool variable = (value >= 1 && value <= 6) || value == 11;
        EXPECT_EQ(sdb_is_scope(cls), scope) << value;
        EXPECT_EQ(sdb_is_variable(cls), variable) << value;
    }
}

// Worked out by hand: from the last character to the first, times 4, modulo 47.
TEST(sdb_name_bucket, skips_one_underscore_that_has_something_behind_it)
{
    EXPECT_EQ(sdb_name_bucket(""), 0U);
    EXPECT_EQ(sdb_name_bucket(nullptr), 0U);
    EXPECT_EQ(sdb_name_bucket("a"), 97U % 47);
    EXPECT_EQ(sdb_name_bucket("ab"), (97U + 98 * 4) % 47);
    EXPECT_EQ(sdb_name_bucket("_ab"), (97U + 98 * 4) % 47);
    EXPECT_EQ(sdb_name_bucket("_"), 95U % 47);
    EXPECT_EQ(sdb_name_bucket("__"), 95U % 47);
    EXPECT_EQ(sdb_name_bucket("__ab"), (95U + 97 * 4 + 98 * 16) % 47);
    EXPECT_EQ(sdb_name_bucket("\xE9"), (0xFFFFFFFFU - 22) % 47); // -23
}

TEST_F(tree, members_grow_by_ten)
{
    sdb_node *block = sdb_new_node(sc_block, nullptr);
    EXPECT_EQ(block->block.bl_alloc, 0U);
    for (std::uint32_t i = 0; i < 21; ++i) {
        EXPECT_EQ(add(block, sc_auto, "x")->sdb_index, i);
        EXPECT_EQ(block->block.bl_alloc, i < 10 ? 10U : i < 20 ? 20U : 30U);
    }
    EXPECT_EQ(block->block.bl_count, 21U);
    EXPECT_EQ(block->block.bl_hash, nullptr);
}

TEST_F(tree, chains_are_in_order_of_insertion)
{
    sdb_node *block = sdb_new_node(sc_block, nullptr);
    sdb_node *first = add_named(block, sc_static, "ab");
    sdb_node *second = add_named(block, sc_static, "_ab");
    sdb_node *other = add_named(block, sc_static, "b");
    sdb_node *third = add_named(block, sc_typedef, "ab");
    EXPECT_EQ(block->block.bl_hash, nullptr) << "never searched";
    EXPECT_EQ(lookup("ab", block), third);
    EXPECT_EQ(block->block.bl_hash[sdb_name_bucket("ab")], first);
    EXPECT_EQ(first->sdb_chain, second);
    EXPECT_EQ(second->sdb_chain, third);
    EXPECT_EQ(third->sdb_chain, nullptr);
    EXPECT_EQ(block->block.bl_hash[sdb_name_bucket("b")], other);
    EXPECT_EQ(other->sdb_chain, nullptr);

    sdb_node *late = add_named(block, sc_static, "b");
    add(block, sc_static, "b"); // a member only
    EXPECT_EQ(other->sdb_chain, late);
    EXPECT_EQ(late->sdb_chain, nullptr);
    EXPECT_EQ(lookup("b", block), late);
}

TEST_F(tree, a_node_moves_to_another_hash_without_its_chain)
{
    sdb_node *from = sdb_new_node(sc_module, nullptr);
    sdb_node *to = sdb_new_node(sc_module, nullptr);
    sdb_node *first = add_named(from, sc_static, "x");
    sdb_node *second = add_named(from, sc_static, "_x");
    EXPECT_EQ(lookup("x", from), second);
    EXPECT_EQ(first->sdb_chain, second);
    EXPECT_EQ(lookup("x", to), nullptr);
    sdb_add_to_hash(to, first);
    EXPECT_EQ(to->block.bl_hash[sdb_name_bucket("x")], first);
    EXPECT_EQ(first->sdb_chain, nullptr);
}

// A block gets its buckets when it is first searched: none of its look-ups may show when that was.
TEST_F(tree, buckets_made_late_are_those_made_early)
{
    static constexpr const char *NAMES[] = {"x", "_x", "__x", "y", "_y", "ab", "_ab", "n", "", "_"};
    random_numbers random(17);
    for (int round = 0; round < 60; ++round) {
        sdb_node *early = sdb_new_node(sc_module, nullptr);
        sdb_node *late = sdb_new_node(sc_module, nullptr);
        EXPECT_EQ(lookup("x", early), nullptr);
        const std::uint32_t count = random() % 40;
        const std::uint32_t searched = random() % 40; // so many members come before the first search
        for (std::uint32_t i = 0; i < count; ++i) {
            if (i == searched) {
                lookup("x", late);
            }
            const char *name = NAMES[random() % std::size(NAMES)];
            if (random() % 4 == 0) {
                add(early, sc_static, name); // a member only
                add(late, sc_static, name);
            } else {
                const sclass cls = random() % 2 == 0 ? sc_static : sc_typedef;
                add_named(early, cls, name);
                add_named(late, cls, name);
            }
        }
        for (const char *name : NAMES) {
            const sdb_node *found = lookup(name, late);
            const sdb_node *expected = lookup(name, early);
            ASSERT_EQ(found == nullptr, expected == nullptr) << name;
            if (found != nullptr) {
                EXPECT_EQ(found->sdb_index, expected->sdb_index) << name;
            }
        }
        for (std::uint32_t bucket = 0; bucket < SDB_HASH_SIZE; ++bucket) {
            const sdb_node *node = late->block.bl_hash[bucket];
            for (const sdb_node *other = early->block.bl_hash[bucket]; other != nullptr; other = other->sdb_chain) {
                ASSERT_NE(node, nullptr);
                EXPECT_EQ(node->sdb_index, other->sdb_index);
                node = node->sdb_chain;
            }
            EXPECT_EQ(node, nullptr);
        }
    }
}

TEST_F(tree, find_takes_the_first_in_depth_first_order)
{
    sdb_node *one = add(sdb_global, sc_module, "one.obj");
    sdb_node *function = add(one, sc_func, nullptr);
    sdb_node *block = add(function, sc_block, nullptr);
    sdb_node *deep = add_named(block, sc_auto, "var");
    sdb_node *shallow = add_named(one, sc_static, "var");
    sdb_node *two = add(sdb_global, sc_asmodule, "two.obj");
    add_named(two, sc_static, "var");
    sdb_node *file = add(two, sc_filename, "y");
    EXPECT_EQ(sdb_find("var"), deep);
    EXPECT_NE(sdb_find("var"), shallow);
    EXPECT_EQ(sdb_find("one.obj"), one);
    EXPECT_EQ(sdb_find("y"), file);
    EXPECT_EQ(sdb_find("i"), member(sdb_global, 0U));
    EXPECT_EQ(sdb_find("_var"), nullptr);
}

TEST_F(tree, find_without_a_tree)
{
    sdb_reset();
    EXPECT_EQ(sdb_find("x"), nullptr);
    EXPECT_EQ(found_by_index("x"), nullptr);
}

TEST_F(tree, find_reaches_any_depth)
{
    sdb_node *block = add(sdb_global, sc_module, "m");
    for (int i = 0; i < 100000; ++i) {
        block = add(block, sc_block, nullptr);
    }
    sdb_node *deep = add_named(block, sc_auto, "deep");
    EXPECT_EQ(sdb_find("deep"), deep);
    EXPECT_EQ(found_by_index("deep"), deep);
}

TEST_F(tree, the_index_gives_what_the_walk_gives_while_the_tree_grows)
{
    std::vector<std::string> names;
    for (int i = 0; i < 40; ++i) {
        names.push_back(std::string("n").append(std::to_string(i)));
    }
    std::uint32_t random = 1;
    std::vector<sdb_node *> scopes{add(sdb_global, sc_module, "m")};
    for (int round = 0; round < 300; ++round) {
        random = random * 1664525 + 1013904223;
        sdb_node *block = scopes[(random >> 8) % scopes.size()];
        const char *name = names[(random >> 20) % names.size()].c_str();
        if (round % 5 == 0) {
            scopes.push_back(add(block, sc_block, round % 10 == 0 ? name : nullptr));
        } else {
            add_named(block, sc_static, name);
        }
        if (round % 7 == 0) {
            for (const std::string &wanted : names) {
                ASSERT_EQ(found_by_index(wanted.c_str()), sdb_find(wanted.c_str())) << wanted;
            }
        }
    }
}

TEST_F(tree, many_names_are_found_as_each_alone)
{
    random_numbers random(19);
    std::vector<std::string> names;
    for (int i = 0; i < 90; ++i) {
        names.push_back(std::string("n").append(std::to_string(i)));
    }
    EXPECT_TRUE(sdb_find_all({}).empty());
    sdb_node *block = add(sdb_global, sc_module, "m");
    for (const std::size_t count : {1U, 2U, 31U, 32U, 33U, 64U, 65U, 200U}) {
        // Two names in three are there, some of them twice.
        for (int i = 0; i < 15; ++i) {
            add_named(block, sc_static, names[random() % 60].c_str());
        }
        block = add(block, sc_block, random() % 2 == 0 ? "n3" : nullptr);
        std::vector<std::string> copies;
        for (std::size_t i = 0; i < count; ++i) {
            copies.push_back(random() % 20 == 0 ? "" : names[random() % names.size()]);
        }
        std::vector<const char *> wanted;
        for (const std::string &name : copies) {
            wanted.push_back(name.c_str());
        }
        const std::vector<sdb_node *> found = sdb_find_all(wanted);
        ASSERT_EQ(found.size(), count);
        for (std::size_t i = 0; i < count; ++i) {
            EXPECT_EQ(found[i], sdb_find(wanted[i])) << wanted[i];
        }
    }
    sdb_reset();
    EXPECT_EQ(sdb_find_all({"n1", "m"}), std::vector<sdb_node *>(2)) << "without a tree";
}

TEST_F(tree, the_index_is_told_of_other_changes)
{
    sdb_node *node = add_named(sdb_global, sc_static, "before");
    EXPECT_EQ(found_by_index("before"), node);
    node->sdb_name = "after";
    sdb_tree_changed();
    EXPECT_EQ(found_by_index("before"), nullptr);
    EXPECT_EQ(found_by_index("after"), node);
}

TEST_F(tree, scope_lookup_climbs)
{
    sdb_node *module = add(sdb_global, sc_module, "m.obj");
    sdb_node *type = add_named(module, sc_typedef, "t");
    sdb_node *block = add(add(module, sc_func, nullptr), sc_block, nullptr);
    EXPECT_EQ(lookup("t", block), type);
    EXPECT_EQ(lookup("i", block), member(sdb_global, 0U));
    EXPECT_EQ(lookup("m.obj", block), nullptr); // modules are not hashed
    sdb_node *inner = add_named(block, sc_typedef, "t");
    EXPECT_EQ(lookup("t", block), inner);
    EXPECT_EQ(lookup("t", module), type);
}

TEST_F(tree, scope_lookup_takes_a_name_with_underscore_as_well)
{
    sdb_node *module = add(sdb_global, sc_module, "m");
    sdb_node *with = add_named(module, sc_static, "_x");
    EXPECT_EQ(lookup("x", module), with);
    sdb_node *without = add_named(module, sc_static, "x");
    EXPECT_EQ(lookup("x", module), without); // the last of either counts
    EXPECT_EQ(lookup("_x", module), with);
    sdb_node *again = add_named(module, sc_static, "_x");
    EXPECT_EQ(lookup("x", module), again);
}

TEST_F(tree, scope_lookup_takes_the_last_of_a_name)
{
    sdb_node *module = add(sdb_global, sc_module, "m");
    add_named(module, sc_typedef, "t");
    sdb_node *last = add_named(module, sc_typedef, "t");
    EXPECT_EQ(lookup("t", module), last);
}

TEST_F(tree, scope_lookup_sees_locals_from_their_declaration_on)
{
    sdb_node *module = add(sdb_global, sc_module, "m");
    sdb_node *outer = add_named(module, sc_static, "x");
    sdb_node *function = add(module, sc_func, nullptr);
    sdb_node *block = add(function, sc_block, nullptr);
    for (const sclass cls : {sc_auto, sc_param, sc_reg}) {
        sdb_node *local = add_named(function, cls, "x");
        EXPECT_EQ(sdb_scope_lookup("x", function, local->sdb_index + 1), local);
        if (cls == sc_auto) {
            EXPECT_EQ(sdb_scope_lookup("x", function, local->sdb_index), outer);
            EXPECT_EQ(sdb_scope_lookup("x", function, 0), outer);
            EXPECT_EQ(lookup("x", block), outer); // the block stands in front of the local
        }
    }
}

TEST_F(tree, scope_lookup_takes_a_local_by_its_exact_name)
{
    sdb_node *module = add(sdb_global, sc_module, "m");
    sdb_node *function = add(module, sc_func, nullptr);
    add_named(function, sc_auto, "_q"); // found in the bucket, but of another name
    EXPECT_EQ(lookup("q", function), nullptr);
    sdb_node *type = add_named(function, sc_typedef, "q");
    add_named(function, sc_auto, "_q");
    EXPECT_EQ(lookup("q", function), type);
}

TEST_F(tree, scope_lookup_in_a_module_goes_from_its_end)
{
    sdb_node *module = add(sdb_global, sc_module, "m");
    sdb_node *local = add_named(module, sc_reg, "x");
    EXPECT_EQ(sdb_scope_lookup("x", module, 0), local);
}

TEST_F(tree, scope_lookup_never_takes_a_file_for_a_name)
{
    sdb_node *module = add(sdb_global, sc_module, "m");
    sdb_node *local = add_named(module, sc_reg, "x");
    add(module, sc_filename, "x");
    add(module, sc_block, "x");
    EXPECT_EQ(lookup("x", module), local);
}

TEST_F(tree, local_lookup_takes_the_last_of_exactly_this_name)
{
    sdb_node *module = add(sdb_global, sc_module, "m");
    sdb_current = module;
    add_named(module, sc_static, "_x");
    EXPECT_EQ(sdb_lookup_local("x"), nullptr);
    add_named(module, sc_typedef, "x");
    sdb_node *last = add_named(module, sc_typedef, "x");
    EXPECT_EQ(sdb_lookup_local("x"), last);
    EXPECT_EQ(sdb_lookup_local("i"), nullptr); // only this block
}

TEST_F(tree, local_lookup_sees_through_faked_blocks)
{
    sdb_node *function = add(add(sdb_global, sc_module, "m"), sc_func, nullptr);
    sdb_node *outside = add_named(function, sc_auto, "x");
    sdb_node *real = add(function, sc_block, nullptr);
    sdb_node *inside = add_named(real, sc_auto, "y");
    sdb_node *faked = add(add(real, sc_block, nullptr), sc_block, nullptr);
    faked->sdb_flags = SDB_FAKED;
    faked->sdb_parent->sdb_flags = SDB_FAKED;
    sdb_current = faked;
    EXPECT_EQ(sdb_lookup_local("y"), inside);
    EXPECT_EQ(sdb_lookup_local("x"), nullptr);
    sdb_current = function;
    EXPECT_EQ(sdb_lookup_local("x"), outside);
}

TEST_F(tree, reentrant_functions_have_the_qualifier_above_the_first_pointer)
{
    const auto reentrant = [](const char *text) {
        sdb_node *node = sdb_new_node(sc_extern, "_f");
        node->var.va_type = sdb_parse_type(text);
        return sdb_is_reentrant(node);
    };
    EXPECT_TRUE(reentrant("`R(v"));
    EXPECT_TRUE(reentrant("`RV(v"));
    EXPECT_TRUE(reentrant("`(Ri")); // past the function element
    EXPECT_FALSE(reentrant("`(v"));
    EXPECT_FALSE(reentrant("`V(v"));
    EXPECT_FALSE(reentrant("`(*Ri")); // below a pointer
    EXPECT_FALSE(reentrant("`*R(v")); // no function
    EXPECT_FALSE(reentrant("`Ri"));
    EXPECT_FALSE(sdb_is_reentrant(sdb_global));
}

TEST_F(tree, reentrance_asserts_a_function)
{
    const trace_log log;
    EXPECT_FALSE(sdb_is_reentrant(nullptr));
    EXPECT_EQ(log.failed(), std::vector<std::string>{"pp != NULL"});
}

void add_location(sdb_node *variable, std::uint32_t kind, std::uint32_t value, std::uint32_t space)
{
    if (!variable->var.va_locations) {
        variable->var.va_locations = vector_of<sdb_location *>::make();
    }
    variable->var.va_locations.push(xnew<sdb_location>({.lo_kind = kind, .lo_value = value, .lo_space = space}));
}

TEST_F(tree, a_symbols_value_is_its_first_location_that_is_no_register)
{
    for (const sclass cls : {sc_extern, sc_static, sc_auto, sc_param, sc_typedef, sc_reg}) {
        sdb_node *node = sdb_new_node(cls, "x");
        std::uint64_t value = 77;
        EXPECT_FALSE(sdb_symbol_value(node, &value));
        add_location(node, LO_REGISTER, 5, 0);
        EXPECT_FALSE(sdb_symbol_value(node, &value));
        EXPECT_EQ(value, 77U);
        add_location(node, LO_ADDRESS, 0xFFFFFFF0, 2);
        add_location(node, LO_ADDRESS, 1, 1);
        EXPECT_TRUE(sdb_symbol_value(node, &value));
        EXPECT_EQ(value, 0x2FFFFFFF0U);
    }
}

TEST_F(tree, other_classes_have_no_value)
{
    std::uint64_t value = 77;
    for (const sclass cls : {sc_global, sc_module, sc_func, sc_struct, sc_enum}) {
        EXPECT_FALSE(sdb_symbol_value(sdb_new_node(cls, "x"), &value));
    }
    EXPECT_FALSE(sdb_symbol_value(nullptr, &value));
    EXPECT_EQ(value, 77U);
}

TEST_F(tree, a_functions_location_is_the_first_of_its_variable)
{
    sdb_node *function = sdb_new_node(sc_func, nullptr);
    function->block.bl_func = sdb_new_node(sc_extern, "_f");
    {
        const trace_log log;
        EXPECT_EQ(sdb_function_location(function), 0U);
        EXPECT_EQ(log.failed(), std::vector<std::string>{"vec_size(sp->sdb_block.bl_func->sdb_var.va_locations) != 0"});
    }
    add_location(function->block.bl_func, LO_ADDRESS, 0x44, 1);
    add_location(function->block.bl_func, LO_ADDRESS, 0x55, 1);
    EXPECT_EQ(sdb_function_location(function), 0x44U);
    const trace_log log;
    function->sdb_sclass = sc_block;
    EXPECT_EQ(sdb_function_location(function), 0x44U);
    EXPECT_EQ(log.failed(), std::vector<std::string>{"sp->sdb_sclass == sc_func"});
}

TEST(location_text, names_or_values)
{
    const auto text = [](sdb_location loc) { return std::string(sdb_location_text(&loc).text); };
    EXPECT_EQ(text({.lo_kind = 1, .lo_name = "_x", .lo_value = 5}), " _x");
    EXPECT_EQ(text({.lo_kind = 0, .lo_name = "", .lo_value = 5}), " R5");
    EXPECT_EQ(text({.lo_kind = 0, .lo_value = 5}), " R5");
    EXPECT_EQ(text({.lo_kind = 1, .lo_value = 0xDEADBEEF, .lo_space = 3}), " DEADBEEF[3]");
    EXPECT_EQ(text({.lo_kind = 2, .lo_value = 0xFFFFFFFE}), " -2");
    EXPECT_EQ(text({.lo_kind = 3}), " unkown");
}

TEST(location_text, is_cut_to_63_characters)
{
    const std::string name(100, 'n');
    const sdb_location loc{.lo_name = name.c_str()};
    EXPECT_EQ(std::string(sdb_location_text(&loc).text), " " + std::string(62, 'n'));
}

TEST_F(tree, file_marks_are_members_without_hash_and_parent)
{
    sdb_node *module = add(sdb_global, sc_asmodule, "m");
    const std::string name = "start.as";
    sdb_node *mark = sdb_add_filename(module, name.c_str(), 12);
    EXPECT_EQ(member(module, 0U), mark);
    EXPECT_EQ(module->block.bl_count, 1U);
    EXPECT_EQ(mark->sdb_sclass, sc_filename);
    EXPECT_STREQ(mark->sdb_name, "start.as");
    EXPECT_NE(mark->sdb_name, name.c_str());
    EXPECT_EQ(mark->sdb_line, 12U);
    EXPECT_EQ(mark->sdb_parent, nullptr);
    EXPECT_EQ(module->block.bl_hash, nullptr);
}

} // namespace
