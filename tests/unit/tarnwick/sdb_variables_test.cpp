// SPDX-License-Identifier: MIT
// Variable records and their merging.
#include <string>
#include <vector>

#include "common/catalogue.h"
#include "tests/unit/tarnwick/sdb_testing.h"
#include "tests/unit/tarnwick/trace_log.h"

namespace {

// A function's body around the records of a test.
std::string in_function(const std::string &body)
{
    return "\"10 /a.c\n[v _f f `(i 1 e 0 @256 ]\n{\n" + body + "}\n";
}

class variables : public database {
public:
    void SetUp() override
    {
        // What some tests of one process leave behind must not count in others.
        alert_set_level(-9);
    }
    sdb_node *read_body(const std::string &body)
    {
        sdb_node *module = read(in_function(body));
        return member(module, sc_func);
    }
};

void expect_location(const sdb_location *loc, std::uint32_t kind, std::uint32_t value, std::uint32_t space,
                     const char *name)
{
    ASSERT_NE(loc, nullptr);
    EXPECT_EQ(loc->lo_kind, kind);
    EXPECT_EQ(loc->lo_value, value);
    EXPECT_EQ(loc->lo_space, space);
    EXPECT_STREQ(loc->lo_name, name);
}

TEST_F(variables, have_the_fields_of_their_record)
{
    const sdb_node *module = read("\"12 /src/a.c\n[v _x alias `[3]*c 5 e 6 @293 ]\n");
    const sdb_node *node = member(module, "_x");
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(node->sdb_sclass, sc_extern);
    EXPECT_EQ(node->sdb_line, 12U);
    EXPECT_EQ(node->sdb_parent, module);
    EXPECT_EQ(node->sdb_index, 1U); // behind the file's mark
    EXPECT_STREQ(node->var.va_alias, "alias");
    EXPECT_EQ(node->var.va_asmname, nullptr);
    EXPECT_EQ(type_text(node->var.va_type), "[3]<3> *<0> c");
    EXPECT_EQ(node->var.va_dim, 5);
    EXPECT_EQ(node->var.va_size, 6U);
    EXPECT_EQ(node->var.va_inline, 0U);
    ASSERT_EQ(node->var.va_locations.count(), 1U);
    const sdb_location *loc = location(node);
    expect_location(loc, LO_ADDRESS, 293, static_cast<std::uint32_t>(set_min(data_spaces)), nullptr);
    EXPECT_STREQ(loc->lo_file, "/src/a.c");
    EXPECT_EQ(loc->lo_line, 12U);
    EXPECT_EQ(loc->lo_low, 0U);
    EXPECT_EQ(loc->lo_high, 0U);
    EXPECT_EQ(loc->lo_end, 0U);
}

TEST_F(variables, have_a_place_without_a_file)
{
    const sdb_node *module = read("[v _x x `i 1 e 2 @5 ]\n");
    EXPECT_STREQ(location(member(module, "_x"))->lo_file, "nofile");
    EXPECT_EQ(location(member(module, "_x"))->lo_line, 0U); // before the first line record of a run
}

TEST_F(variables, take_an_array_from_their_dimension)
{
    const sdb_node *module = read("[v x x `i 8a e 16 @5 ]\n[v y y `nosuch 8a e 16 @5 ]\n[v z z `i 8 e 16 @5 ]\n"
                                  "[v w w `i -1a e 16 @5 ]\n");
    EXPECT_EQ(type_text(member(module, "x")->var.va_type), "[8]<8> i");
    EXPECT_EQ(member(module, "x")->var.va_dim, 8);
    EXPECT_EQ(type_text(member(module, "y")->var.va_type), "[8]<8>");
    EXPECT_EQ(type_text(member(module, "z")->var.va_type), "i");
    EXPECT_EQ(type_text(member(module, "w")->var.va_type), "[4294967295]<4294967295> i");
}

TEST_F(variables, have_storage_classes_by_letter)
{
    const sdb_node *body = read_body("[v a a `i 1 a 2 0 ]\n[v e e `i 1 e 2 @1 ]\n[v p p `i 1 p 2 0 ]\n"
                                     "[v r r `i 1 r 2 ptra ]\n[v s s `i 1 s 2 @2 ]\n[v t t `i 1 t 2 ]\n");
    EXPECT_EQ(member(body, "a")->sdb_sclass, sc_auto);
    EXPECT_EQ(member(body, "e")->sdb_sclass, sc_extern);
    EXPECT_EQ(member(body, "p")->sdb_sclass, sc_param);
    EXPECT_EQ(member(body, "r")->sdb_sclass, sc_reg);
    EXPECT_EQ(member(body, "s")->sdb_sclass, sc_static);
    EXPECT_EQ(member(body, "t")->sdb_sclass, sc_typedef);
    EXPECT_FALSE(member(body, "t")->var.va_locations);
}

TEST_F(variables, live_in_registers)
{
    const sdb_node *body = read_body("[v p p `i 1 p 2 ptrb ]\n[v s s `i 1 s 2 acca ]\n[v r r `i 1 r 2 scrl0 ]\n");
    expect_location(location(member(body, "p")), LO_REGISTER, 14, 0, "ptrb");
    expect_location(location(member(body, "s")), LO_REGISTER, 0, 0, "acca");
    expect_location(location(member(body, "r")), LO_REGISTER, 20, 0, "scrl0");
}

TEST_F(variables, live_on_the_stack)
{
    const sdb_node *body = read_body("[v a a `i 1 a 2 12 ]\n[v p p `i 1 p 2 -3 ]\n[v q q `i 1 a 2 x ]\n");
    expect_location(location(member(body, "a")), LO_OFFSET, 12, 0, "a");
    expect_location(location(member(body, "p")), LO_OFFSET, 0xFFFFFFFD, 0, "p");
    expect_location(location(member(body, "q")), LO_OFFSET, 0, 0, "q");
}

TEST_F(variables, live_at_symbols)
{
    add_symbol("_sdbv_static", 0x111, 3);
    add_symbol("_sdbv_extern", 0x222, 4);
    const sdb_node *module = read("[v _sdbv_static x `i 1 s 2 0 ]\n[v _sdbv_extern y `i 1 e 2 _other ]\n");
    expect_location(location(member(module, "_sdbv_static")), LO_ADDRESS, 0x111, 3, "_sdbv_static");
    expect_location(location(member(module, "_sdbv_extern")), LO_ADDRESS, 0x222, 4, "_sdbv_extern");
}

TEST_F(variables, live_at_numbers_in_the_smallest_data_space)
{
    set *spaces = data_spaces;
    data_spaces = set_new();
    sdb_node *module = read("[v x x `i 1 s 2 @77 ]\n[v y y `i 1 e 2 @9999999999 ]\n");
    expect_location(location(member(module, "x")), LO_ADDRESS, 77, 0, nullptr); // 0 when there is none
    expect_location(location(member(module, "y")), LO_ADDRESS, 0x7FFFFFFF, 0, nullptr);
    set_add(data_spaces, 6);
    set_add(data_spaces, 4);
    module = read("[v x x `i 1 s 2 @77 ]\n");
    expect_location(location(member(module, "x")), LO_ADDRESS, 77, 4, nullptr);
    set_free(data_spaces);
    data_spaces = spaces;
}

TEST_F(variables, statics_of_functions_have_two_names)
{
    add_symbol("Fsdbv1", 0x333, 2);
    const sdb_node *body = read_body("[v Fsdbv1 calls `i 1 s 2 Scalls ]\n");
    const sdb_node *node = member(body, "_calls");
    ASSERT_NE(node, nullptr);
    EXPECT_STREQ(node->var.va_asmname, "Fsdbv1");
    EXPECT_STREQ(node->var.va_alias, "calls");
    expect_location(location(node), LO_ADDRESS, 0x333, 2, "Fsdbv1");
    EXPECT_EQ(sdb_scope_lookup("calls", const_cast<sdb_node *>(body), 1), node);
    EXPECT_EQ(member(body, "Fsdbv1"), nullptr);
}

TEST_F(variables, other_statics_have_one_name)
{
    add_symbol("Fsdbv2", 0x333, 2);
    const sdb_node *body = read_body("[v Fsdbv2 f `i 1 s 2 0 ]\n[v Fsdbv3 g `i 1 s 2 @7 ]\n");
    EXPECT_EQ(member(body, "Fsdbv2")->var.va_asmname, nullptr);
    expect_location(location(member(body, "Fsdbv2")), LO_ADDRESS, 0x333, 2, "Fsdbv2");
    EXPECT_EQ(location(member(body, "Fsdbv3"))->lo_value, 7U);
}

TEST_F(variables, externals_are_never_statics_of_functions)
{
    add_symbol("Fsdbv4", 0x444, 2);
    const sdb_node *module = read("[v Fsdbv4 f `i 1 e 2 Sname ]\n");
    ASSERT_NE(member(module, "Fsdbv4"), nullptr);
    EXPECT_EQ(member(module, "Fsdbv4")->var.va_asmname, nullptr);
}

TEST_F(variables, bits_remember_their_place_in_the_byte)
{
    const sdb_node *module = read("[v x x `b 1 e 0 @21 ]\n[v y y `VCb 1 e 0 @14 ]\n[v z z `a 1 e 1 @15 ]\n"
                                  "[v w w `[2]b 1 e 0 @15 ]\n[v u u `b 1 e 0 @8 ]\n");
    EXPECT_EQ(member(module, "x")->var.va_type->elements[0].basic.te_bitpos, 5U);
    EXPECT_EQ(member(module, "y")->var.va_type->elements[0].basic.te_bitpos, 6U); // past its qualifiers
    EXPECT_EQ(member(module, "z")->var.va_type->elements[0].basic.te_bitpos, 0U); // a boolean
    EXPECT_EQ(member(module, "w")->var.va_type->elements[0].basic.te_bitpos, 0U); // an array
    EXPECT_EQ(member(module, "u")->var.va_type->elements[0].basic.te_bitpos, 0U);
    EXPECT_EQ(member(sdb_global, "b")->var.va_type->elements[0].basic.te_bitpos, 0U);
}

TEST_F(variables, of_unknown_place_stay_without_location)
{
    const std::string text = errors_of([this] {
        const sdb_node *module = read("[v _sdbv_nowhere x `i 1 e 2 0 ]\n");
        ASSERT_NE(member(module, "_sdbv_nowhere"), nullptr);
        EXPECT_FALSE(member(module, "_sdbv_nowhere")->var.va_locations);
    });
    EXPECT_EQ(text, "(1303) invalid variable location detected: _sdbv_nowhere -  _sdbv_nowhere (warning)\n");
}

TEST_F(variables, functions_have_a_location_of_any_kind)
{
    const std::string text = errors_of([this] {
        const sdb_node *module = read("[v _sdbv_gone x `(i 1 e 0 0 ]\n");
        expect_location(location(member(module, "_sdbv_gone")), LO_NAME, 0, 0, "_sdbv_gone");
    });
    EXPECT_EQ(text, "");
}

TEST_F(variables, refused_locations_are_traced)
{
    const trace_log log;
    gDebugMask = TRACE_SDB;
    errors_of([this] { read("[v _sdbv_nowhere x `i 1 e 2 0 ]\n"); });
    EXPECT_EQ(log.lines(), std::vector<std::string>{"check_location: Location for variable _sdbv_nowhere is invalid"});
}

TEST_F(variables, locations_are_numbered_and_told)
{
    opt_verbose = 1;
    const std::string text = errors_of([this] {
        const sdb_node *module = read("[v x x `i 1 e 2 @16 ]\n[v y y `i 1 s 2 ptra ]\n");
        EXPECT_EQ(location(member(module, "x"))->lo_id, 0U);
        EXPECT_EQ(location(member(module, "y"))->lo_id, 1U);
        EXPECT_EQ(sdb_next_location_id(), 2U);
    });
    const std::string space = std::to_string(set_min(data_spaces));
    EXPECT_EQ(text, "Added location to 'x':  10[" + space + "]\nAdded location to 'y':  ptra\n");
}

TEST_F(variables, locals_outside_of_functions_are_dropped)
{
    const std::string text = errors_of([this] {
        const sdb_node *module = read("[v a a `i 1 a 2 0 ]\n[v p p `i 1 p 2 0 ]\n[v r r `i 1 r 2 ptra ]\n");
        EXPECT_EQ(member(module, "a"), nullptr);
        EXPECT_EQ(member(module, "p"), nullptr);
        EXPECT_NE(member(module, "r"), nullptr);
    });
    EXPECT_EQ(text, "");
}

TEST_F(variables, of_another_class_are_dropped)
{
    const std::string text = errors_of([this] {
        const sdb_node *module =
            read("[v x x `i 1 e 2 @5 ]\n[v x x `l 1 s 4 @6 ]\n[s S1 . 0 ]\n[v S1 S1 `i 1 e 2 @5 ]\n");
        EXPECT_EQ(type_text(member(module, "x")->var.va_type), "i");
        EXPECT_EQ(member(module, "x", 2), nullptr);
        EXPECT_EQ(member(module, "S1", 2), nullptr);
    });
    EXPECT_EQ(text, "(1305) inconsistent storage class for variable: \"x\" (warning)\n"
                    "(1305) inconsistent storage class for variable: \"S1\" (warning)\n");
}

TEST_F(variables, externals_and_statics_grow)
{
    for (const char *letter : {"e", "s"}) {
        const std::string cls = letter;
        const std::string text = errors_of([&] {
            const sdb_node *module =
                read("\"3 /a.c\n[v x first `i 0 " + cls + " 2 @5 ]\n\"8\n[v x second `l 1 " + cls + " 4 @5 ]\n");
            const sdb_node *node = member(module, "x");
            EXPECT_EQ(type_text(node->var.va_type), "l");
            EXPECT_EQ(node->var.va_size, 4U);
            EXPECT_EQ(node->sdb_line, 3U);
            EXPECT_EQ(node->var.va_dim, 0);
            EXPECT_STREQ(node->var.va_alias, "first");
            EXPECT_EQ(member(module, "x", 2), nullptr);
        });
        EXPECT_EQ(text, "");
    }
}

TEST_F(variables, externals_and_statics_do_not_shrink)
{
    for (const char *letter : {"e", "s"}) {
        const std::string cls = letter;
        const std::string text = errors_of([&] {
            const sdb_node *module = read("[v x x `l 1 " + cls + " 4 @5 ]\n[v x x `i 1 " + cls + " 2 @6 ]\n");
            const sdb_node *node = member(module, "x");
            EXPECT_EQ(type_text(node->var.va_type), "l");
            EXPECT_EQ(node->var.va_locations.count(), 1U);
        });
        EXPECT_EQ(text, "(1306) inconsistent size (4 vs 2) for variable: \"x\" (warning)\n");
    }
}

TEST_F(variables, of_equal_size_replace_the_type_of_externals_alone)
{
    const sdb_node *body = read_body("[v x x `i 1 e 2 @5 ]\n[v x x `ui 1 e 2 @6 ]\n"
                                     "[v y y `i 1 a 2 5 ]\n[v y y `ui 1 a 2 6 ]\n");
    EXPECT_EQ(type_text(member(body, "x")->var.va_type), "ui");
    EXPECT_EQ(type_text(member(body, "y")->var.va_type), "i");
    EXPECT_EQ(member(body, "y")->var.va_locations.count(), 2U);
}

TEST_F(variables, of_other_classes_keep_their_size)
{
    const std::string text = errors_of([this] {
        const sdb_node *body = read_body("[v y y `i 1 a 2 5 ]\n[v y y `l 1 a 4 6 ]\n[v y y `c 1 a 1 6 ]\n");
        EXPECT_EQ(member(body, "y")->var.va_size, 2U);
        EXPECT_EQ(member(body, "y")->var.va_locations.count(), 1U);
    });
    EXPECT_EQ(text, "(1306) inconsistent size (2 vs 4) for variable: \"y\" (warning)\n"
                    "(1306) inconsistent size (2 vs 1) for variable: \"y\" (warning)\n");
}

TEST_F(variables, gather_locations)
{
    const sdb_node *body =
        read_body("\"11\n[v y y `i 1 a 2 5 ]\n\"12\n[v y y `i 1 a 2 6 ]\n\"14\n[v y y `i 1 a 2 ptra ]\n");
    const sdb_node *node = member(body, "y");
    EXPECT_EQ(member(body, "y", 2), nullptr);
    ASSERT_EQ(node->var.va_locations.count(), 3U);
    expect_location(location(node, 0), LO_OFFSET, 5, 0, "y");
    EXPECT_EQ(location(node, 0)->lo_line, 11U);
    EXPECT_EQ(location(node, 0)->lo_end, 12U);
    EXPECT_EQ(location(node, 1)->lo_line, 12U);
    EXPECT_EQ(location(node, 1)->lo_end, 14U); // the third location closes the second
    EXPECT_EQ(location(node, 2)->lo_kind, LO_REGISTER);
    EXPECT_EQ(location(node, 2)->lo_end, 0U);
}

TEST_F(variables, compare_new_locations_with_the_first_alone)
{
    // Equal to the first: nothing is added, as long as the first is open.
    const sdb_node *body = read_body("\"11\n[v y y `i 1 a 2 5 ]\n[v y y `i 1 a 2 5 ]\n");
    EXPECT_EQ(member(body, "y")->var.va_locations.count(), 1U);
    // The first was closed at the line of the second, and so differs; the second is not looked at.
    body = read_body("\"11\n[v y y `i 1 a 2 5 ]\n[v y y `i 1 a 2 6 ]\n[v y y `i 1 a 2 5 ]\n[v y y `i 1 a 2 5 ]\n");
    EXPECT_EQ(member(body, "y")->var.va_locations.count(), 4U);
}

TEST_F(variables, compare_locations_by_line_file_kind_and_value)
{
    const auto locations = [this](const std::string &second) {
        const sdb_node *body = read_body("\"11\n[v y y `i 1 a 2 5 ]\n" + second);
        return member(body, "y")->var.va_locations.count();
    };
    EXPECT_EQ(locations("[v y y `i 1 a 2 5 ]\n"), 1U);
    EXPECT_EQ(locations("[v y y `i 1 a 2 6 ]\n"), 2U);
    EXPECT_EQ(locations("[v y y `i 1 a 2 mulr_lo ]\n"), 2U); // register 5
    EXPECT_EQ(locations("\"12\n[v y y `i 1 a 2 5 ]\n"), 2U);
    EXPECT_EQ(locations("\"11 /b.c\n[v y y `i 1 a 2 5 ]\n"), 2U);
}

TEST_F(variables, compare_addresses_with_their_space)
{
    add_symbol("_sdbv_spaced", 5, 77);
    sdb_node *module = read("[v _sdbv_spaced y `i 1 e 2 0 ]\n[v _sdbv_spaced y `i 1 e 2 @5 ]\n");
    EXPECT_EQ(member(module, "_sdbv_spaced")->var.va_locations.count(), 2U);
    module = read("[v _sdbv_spaced y `i 1 e 2 0 ]\n[v _sdbv_spaced y `i 1 e 2 other ]\n");
    EXPECT_EQ(member(module, "_sdbv_spaced")->var.va_locations.count(), 1U);
}

TEST_F(variables, report_a_refused_second_location_twice)
{
    const std::string text = errors_of([this] {
        const sdb_node *module = read("\"3 /a.c\n[v _sdbv_lost y `i 1 e 2 @5 ]\n\"4\n[v _sdbv_lost y `i 1 e 2 0 ]\n");
        const sdb_node *node = member(module, "_sdbv_lost");
        EXPECT_EQ(node->var.va_locations.count(), 1U);
        EXPECT_EQ(location(node)->lo_end, 4U); // closed all the same
    });
    const std::string report = "(1303) invalid variable location detected: _sdbv_lost -  _sdbv_lost (warning)\n";
    EXPECT_EQ(text, report + report);
}

TEST_F(variables, of_functions_compare_unresolved_names)
{
    const sdb_node *module = read("\"3 /a.c\n[v _sdbv_fn f `(i 1 e 0 0 ]\n[v _sdbv_fn f `(i 1 e 0 0 ]\n");
    EXPECT_EQ(member(module, "_sdbv_fn")->var.va_locations.count(), 1U);
}

TEST_F(variables, typedefs_declared_twice_are_two)
{
    const std::string text = errors_of([this] {
        const sdb_node *module =
            read("[v t t `i 1 t 2 ]\n[v t t `ui 1 t 2 ]\n[v x x `t 1 e 2 @5 ]\n[v t t `l 1 t 4 ]\n");
        EXPECT_NE(member(module, "t", 2), nullptr);
        EXPECT_EQ(member(module, "t", 3), nullptr);
        EXPECT_EQ(type_text(member(module, "x")->var.va_type), "ui"); // later look-ups find the second
    });
    EXPECT_EQ(text, "(1306) inconsistent size (2 vs 4) for variable: \"t\" (warning)\n");
}

TEST_F(variables, shadow_each_other_in_real_blocks)
{
    const sdb_node *body = read_body("[v y y `i 1 a 2 5 ]\n{\n[v y y `l 1 a 4 7 ]\n}\n");
    EXPECT_EQ(member(body, "y")->var.va_locations.count(), 1U);
    EXPECT_EQ(member(member(body, sc_block), "y")->var.va_size, 4U);
}

TEST_F(variables, become_faked_blocks_when_asked)
{
    opt_fake_blocks = true;
    const sdb_node *body = read_body("\"11\n[v y y `i 1 a 2 5 ]\n\"12\n[v y y `i 1 a 2 6 ]\n[v z z `i 1 a 2 8 ]\n"
                                     "[v y y `i 1 a 2 7 ]\n\"20\n{\n}\n\"30\n");
    ASSERT_EQ(body->block.bl_count, 2U);
    EXPECT_EQ(member(body, "y")->var.va_locations.count(), 1U);
    EXPECT_EQ(location(member(body, "y"))->lo_end, 0U);
    const sdb_node *first = member(body, 1U);
    EXPECT_EQ(first->sdb_sclass, sc_block);
    EXPECT_EQ(first->sdb_flags, SDB_FAKED);
    EXPECT_EQ(first->sdb_parent, body);
    EXPECT_EQ(first->sdb_index, 1U);
    EXPECT_EQ(first->block.bl_first, 12U);
    EXPECT_EQ(first->block.bl_last, 30U); // the line at which the real block closed
    EXPECT_STREQ(first->block.bl_file, "/a.c");
    EXPECT_EQ(location(member(first, "y"))->lo_value, 6U);
    EXPECT_EQ(location(member(first, "z"))->lo_value, 8U); // it is the current block from now on
    // Each redefinition makes one more, on the same line as well.
    const sdb_node *second = member(first, sc_block);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second->sdb_flags, SDB_FAKED);
    EXPECT_EQ(second->sdb_parent, first);
    EXPECT_EQ(second->sdb_index, 2U);
    EXPECT_EQ(second->block.bl_last, 30U);
    EXPECT_EQ(location(member(second, "y"))->lo_value, 7U);
    // A real block inside belongs to the innermost faked one.
    const sdb_node *real = member(second, sc_block);
    ASSERT_NE(real, nullptr);
    EXPECT_EQ(real->sdb_flags, 0U);
    EXPECT_EQ(real->block.bl_first, 20U);
}

TEST_F(variables, make_no_faked_block_for_an_equal_location_or_a_typedef)
{
    opt_fake_blocks = true;
    const sdb_node *body =
        read_body("[v y y `i 1 a 2 5 ]\n[v y y `i 1 a 2 5 ]\n[v t t `i 1 t 2 ]\n[v t t `i 1 t 2 ]\n");
    EXPECT_EQ(body->block.bl_count, 3U);
    EXPECT_EQ(member(body, sc_block), nullptr);
}

TEST_F(variables, end_faked_blocks_with_their_block)
{
    opt_fake_blocks = true;
    const sdb_node *module =
        read(in_function("[v y y `i 1 a 2 5 ]\n\"11\n[v y y `i 1 a 2 6 ]\n") + "3\n[v z z `i 1 e 2 @5 ]\n");
    EXPECT_NE(member(module, "z"), nullptr);
    EXPECT_EQ(member(module, sc_func)->block.bl_frame[0], 3U);
}

TEST_F(variables, declare_functions)
{
    const sdb_node *module = read("[v _f f `(i 1 e 0 @9 ]\n{\n}\n6\n");
    EXPECT_EQ(member(module, sc_func)->block.bl_func, member(module, "_f"));
    EXPECT_EQ(member(module, "_f")->var.va_size, 6U); // the frame number
}

TEST_F(variables, of_inlined_functions_know_their_offset)
{
    add_symbol("_inlined$_sdbv_in", 0x70, 0);
    const sdb_node *module = read("[v _sdbv_in in `(i 1 s 0 @9 ]\n{\n[v p p `i 1 p 2 0 ]\n[v a a `i 1 a 2 1 ]\n"
                                  "[v s s `i 1 s 2 @3 ]\n{\n}\n}\n4\n[v _sdbv_out out `(i 1 s 0 @9 ]\n{\n"
                                  "[v p p `i 1 p 2 0 ]\n}\n");
    EXPECT_EQ(member(module, "_sdbv_in")->var.va_inline, 0x70U);
    const sdb_node *inlined = member(module, sc_func);
    EXPECT_EQ(inlined->block.bl_inline, 0x70U);
    EXPECT_EQ(member(inlined, "p")->var.va_inline, 0x70U);
    EXPECT_EQ(member(inlined, "a")->var.va_inline, 0x70U);
    EXPECT_EQ(member(inlined, "s")->var.va_inline, 0U);
    EXPECT_EQ(member(inlined, sc_block)->block.bl_inline, 0x70U);
    EXPECT_EQ(member(module, "_sdbv_out")->var.va_inline, 0U);
    EXPECT_EQ(member(module, sc_func, 2)->block.bl_inline, 0U);
    EXPECT_EQ(member(member(module, sc_func, 2), "p")->var.va_inline, 0U);
}

TEST_F(variables, in_sight_are_what_climbing_the_tree_finds)
{
    // A program of blocks in blocks, with names that hide each other, read in both ways.
    std::string text = "\"1 /a.c\n";
    std::uint32_t random = 7;
    int depth = 0;
    const char *const names[] = {"t", "_t", "__t", "n", "_n", "S1", "E1", "_S1", "q"};
    const char *const storages[] = {"a 2 1", "e 2 @5", "p 2 2", "r 2 ptra", "s 2 @6", "t 2"};
    const auto pick = [&random](std::size_t count) {
        random = random * 1664525 + 1013904223;
        return (random >> 10) % count;
    };
    for (int i = 0; i < 4000; ++i) {
        switch (pick(8)) {
        case 0:
            text += "{\n";
            ++depth;
            break;
        case 1:
            text += depth > 0 ? "}\n" : "[v _g g `(i 1 e 0 @9 ]\n";
            depth -= depth > 0 ? 1 : 0;
            break;
        case 2:
            text += std::string("\"").append(std::to_string(i)) + (pick(3) == 0 ? " /t\n" : "\n");
            break;
        case 3:
            text += std::string("[s S1 . 2 ") + names[pick(9)] + " m 0 2 ]\n";
            break;
        default:
            text +=
                std::string("[v ") + names[pick(9)] + " alias `*" + names[pick(9)] + " 1 " + storages[pick(6)] + " ]\n";
            break;
        }
    }
    for (const bool fake : {false, true}) {
        std::string dumps[2];
        for (const bool plain : {false, true}) {
            sdb_reset();
            opt_fake_blocks = fake;
            sdb_reading.plain_lookups = plain;
            dumps[plain ? 1 : 0] = errors_of([&] {
                read(text);
                member(sdb_global, sc_module)->sdb_name = "m.obj"; // not the path, which differs
                sdb_dump();
            });
        }
        EXPECT_GT(dumps[0].size(), text.size() / 4);
        EXPECT_EQ(dumps[0], dumps[1]);
    }
}

TEST_F(variables, are_entered_in_time_in_large_blocks)
{
    constexpr int COUNT = 50000;
    std::string text;
    for (int i = 0; i < COUNT; ++i) {
        const std::string n = std::to_string(i);
        text += "[v _v" + n + " v" + n + " `*t" + n + " 1 e 2 @5 ]\n[v t" + n + " t" + n + " `i 1 t 2 ]\n";
    }
    const sdb_node *module = read(text);
    EXPECT_EQ(module->block.bl_count, 2U * COUNT);
}

const std::string START = "[p KORM ]\n[v _x x `i 1 ";

TEST(variable_reports, bad_storage_class)
{
    expect_database_run("class", START + "zz 2 @5 ]\n",
                        "(629) bad storage class \"zz\" in SDB file \"%PATH%\" line 2 column 14\n", 1);
    expect_database_run("class_eof", "[p KORM ]\n[v _x x `i 1",
                        "(629) bad storage class \"\" in SDB file \"%PATH%\" line 2 column 13\n", 1);
}

TEST(variable_reports, missing_end)
{
    expect_database_run("end", START + "e 2 @5\n{ }\n", "(627) missing \"]\" in SDB file \"%PATH%\" line 3 column 1\n",
                        1);
    expect_database_run("end_eof", START + "e 2 @5\n", "(627) missing \"]\" in SDB file \"%PATH%\" line 3 column 1\n",
                        1);
    expect_database_run("typedef", START + "t 2 @5 ]\n",
                        "(627) missing \"]\" in SDB file \"%PATH%\" line 2 column 18\n", 1);
}

TEST(variable_reports, unknown_register_leaves_the_end_of_its_record)
{
    expect_database_run("register", START + "r 2 nosuch ]\n",
                        "(1304) unknown register name: \"nosuch\" (warning)\n"
                        "(631) syntax error at token \"]\" in SDB file \"%PATH%\" line 2 column 25\n",
                        1);
}

TEST(variable_reports, types_out_of_proportion_are_refused)
{
    const auto bomb = [] {
        std::string text = "[p KORM ]\n[v t t `" + std::string(200000, '*') + "i 1 t 2 ]\n";
        for (int i = 0; i < 20; ++i) {
            text += "[v x" + std::to_string(i) + " x `t 1 e 2 @5 ]\n";
        }
        return text;
    };
    expect_database_run("bomb", bomb(), "(294) can't allocate 4800024 bytes of memory\n", 1);
}

// A catalogue that makes warnings of the fatal reports.
void lower_reports()
{
    const std::string path = testing::TempDir() + "tarnwick_sdb_lowered.msgs";
    write_file(path, "627 1 missing \"%c\" in SDB file \"%s\" line %u column %u\n"
                     "629 1 bad storage class \"%s\" in SDB file \"%s\" line %u column %u\n"
                     "630 1 invalid syntax for prefix list in SDB file \"%s\"\n"
                     "631 1 syntax error at token \"%s\" in SDB file \"%s\" line %u column %u\n"
                     "669 1 prefix list matched more than one SDB type\n");
    message_load(path.c_str());
    std::filesystem::remove(path);
}

// The classes and names of the last module's members.
void note_members()
{
    const sdb_node *module = sdb_global->block.bl_members[sdb_global->block.bl_count - 1];
    note("module of class %u", module->sdb_sclass);
    for (std::uint32_t i = 0; i < module->block.bl_count; ++i) {
        note("%u %s", member(module, i)->sdb_sclass, member(module, i)->sdb_name);
    }
}

TEST(variable_reports, may_be_lowered)
{
    // The bad record is dropped and its rest read as the block's; the record without end is taken all the same.
    expect_database_run("lowered", START + "z 2 @5 ]\n[v _y y `i 1 e 2 @5 9\n7\n[v _z z `i 1 s 2 @5 ]\n",
                        "(629) bad storage class \"z\" in SDB file \"%PATH%\" line 2 column 14 (warning)\n"
                        "(631) syntax error at token \"2\" in SDB file \"%PATH%\" line 2 column 16 (warning)\n"
                        "(631) syntax error at token \"@5\" in SDB file \"%PATH%\" line 2 column 18 (warning)\n"
                        "(631) syntax error at token \"]\" in SDB file \"%PATH%\" line 2 column 21 (warning)\n"
                        "(627) missing \"]\" in SDB file \"%PATH%\" line 3 column 21 (warning)\n"
                        "(631) syntax error at token \"7\" in SDB file \"%PATH%\" line 4 column 1 (warning)\n"
                        "module of class 7\n"
                        "1 _y\n"
                        "3 _z\n",
                        0, lower_reports, note_members);
}

TEST(variable_reports, a_file_that_is_no_database_may_be_passed_over)
{
    expect_database_run(
        "lowered_prefix", "nonsense\n",
        "(630) invalid syntax for prefix list in SDB file \"%PATH%\" (warning)\nmodule of class 15\n", 0,
        [] {
            lower_reports();
            processor_name = "KOR18";
        },
        note_members);
    expect_database_run("lowered_machine", "nonsense\n",
                        "(630) invalid syntax for prefix list in SDB file \"%PATH%\" (warning)\n(669) prefix list "
                        "matched more than one SDB type (warning)\n",
                        1, lower_reports);
}

} // namespace
