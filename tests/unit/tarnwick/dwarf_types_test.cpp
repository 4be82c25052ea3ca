// SPDX-License-Identifier: MIT
// Type entries: the entry of each kind of type, the order of entries, and types that are written later.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/alloc.h"
#include "common/stringcache.h"
#include "compiler/common/pointers.h"
#include "tests/unit/tarnwick/dwarf_types_testing.h"

namespace {

using namespace dwarf_types_testing;

// --- entries ------------------------------------------------------------------------------------------------------------

struct base_case {
    const char *key;
    const char *entry;
};

class base_types : public type_entries, public testing::WithParamInterface<base_case> {};

TEST_P(base_types, have_their_names)
{
    EXPECT_EQ(entries_of_type(std::string("`") + GetParam().key),
              std::string("  #2 base ") + GetParam().entry + "\n" + variable(3, "#2"));
}

// The sizes are those of the machine's table; "f" and "d" have 3 bytes without the words IEEE_FLT and IEEE_DBL.
INSTANTIATE_TEST_SUITE_P(
    all, base_types,
    testing::Values(base_case{"c", "name=signed char size=1 encoding=6"},
                    base_case{"s", "name=short int size=2 encoding=5"}, base_case{"i", "name=int size=2 encoding=5"},
                    base_case{"m", "name=short long int size=3 encoding=5"},
                    base_case{"l", "name=long int size=4 encoding=5"},
                    base_case{"o", "name=long long int size=8 encoding=5"}, base_case{"x", "name=x size=2 encoding=5"},
                    base_case{"uc", "name=unsigned char size=1 encoding=8"},
                    base_case{"us", "name=short unsigned int size=2 encoding=7"},
                    base_case{"ui", "name=unsigned int size=2 encoding=7"},
                    base_case{"um", "name=short long unsigned int size=3 encoding=7"},
                    base_case{"ul", "name=long unsigned int size=4 encoding=7"},
                    base_case{"uo", "name=long long unsigned int size=8 encoding=7"},
                    base_case{"ux", "name=ux size=2 encoding=7"}, base_case{"f", "name=float size=3 encoding=4"},
                    base_case{"d", "name=double size=3 encoding=4"}, base_case{"a", "name=_Bool size=1 encoding=2"}));

TEST_F(single_type, of_a_float_of_another_name_bears_its_id)
{
    EXPECT_EQ(entry_of(type_of({basic("g", TE_FLOAT, 10)})), "#1 base name=g size=10 encoding=4\n");
}

TEST_F(single_type, of_an_unknown_class_bears_its_id_and_no_encoding)
{
    EXPECT_EQ(entry_of(type_of({basic("q", 5, 3)})), "#1 base name=q size=3 encoding=0\n");
}

TEST_F(single_type, of_an_unknown_kind_is_none)
{
    const survived_errors errors;
    EXPECT_EQ(entry_of(type_of({element(static_cast<type_kind>(8), "z")}), true), "");
    EXPECT_EQ(errors.traced(), std::vector<std::string>{"emit_type: Unknown class"});
}

TEST_F(single_type, of_an_array_of_void_is_none)
{
    const survived_errors errors;
    EXPECT_EQ(entry_of(type_of({element(ty_array, "[3]", 3), basic("v", TE_VOID, 2)}), true), "");
    EXPECT_EQ(errors.traced(), std::vector<std::string>{"die_array_type: Could not define target type for tt_array"});
}

TEST_F(single_type, that_was_cut_short_ends_where_it_was_cut)
{
    EXPECT_EQ(entry_of(type_of({element(ty_ptr, "*")})), "#1 pointer size=1 class=0\n") << "as one to void";
    EXPECT_EQ(entry_of(type_of({element(ty_func, "(")})), "#1 function\n");
    EXPECT_EQ(entry_of(type_of({element(ty_qual, "V", 2)})), "#1 volatile\n");
    EXPECT_EQ(entry_of(type_of({element(ty_array, "[2]", 2)}), true), "");
    EXPECT_EQ(entry_of(type_of({element(ty_ptr, "*"), element(ty_qual, nullptr)})), "#1 pointer size=1 class=0\n");
}

TEST_F(single_type, checks_what_it_is_given)
{
    const survived_errors errors;
    choose(machkor);
    gAssertMode = ASSERT_ERROR;
    EXPECT_EQ(do_type(nullptr, nullptr, true, nullptr), nullptr);
    EXPECT_EQ(errors.failed(), (std::vector<std::string>{"NULL != ti", "NULL != last"}));
}

TEST_F(single_type, tells_in_the_trace_what_it_does)
{
    choose(machkor);
    const debug_sections sections;
    dtype_reset();
    const compile_unit_handle cu = dwarf_info_start_compile_unit(2, 0, 4);
    type_record *tp = type_of({PLAIN_INT});
    {
        const survived_errors errors;
        const dtype *noted = do_type(tp, type_top(tp), false, cu);
        EXPECT_TRUE(has_delayed_types);
        EXPECT_TRUE(noted->dt_referenced);
        EXPECT_EQ(noted->dt_ref, 0U);
        EXPECT_EQ(errors.traced(),
                  std::vector<std::string>{"do_type: Not in \"compile unit\" level, do not create type "
                                           "yet, postpone to later stage"});
        trace_log::lines().clear();
        EXPECT_EQ(do_type(tp, type_top(tp), true, cu), noted);
        EXPECT_EQ(noted->dt_ref, 11U) << "right behind the header of the unit";
        EXPECT_EQ(errors.traced(), std::vector<std::string>{});
        has_delayed_types = false;
        EXPECT_EQ(do_type(tp, type_top(tp), false, cu), noted);
        EXPECT_FALSE(has_delayed_types) << "it has its entry";
        EXPECT_EQ(errors.traced(), std::vector<std::string>{"do_type: Type already registered"});
    }
    dwarf_info_finish_compile_unit(cu);
}

TEST_F(type_entries, of_bits_tell_their_place)
{
    // Bits 3 and 5 of the byte at 0x20, by their bit addresses.
    EXPECT_EQ(entries("[v _p _p `b 1 s 1 @259 ]\n[v _q _q `b 1 s 1 @261 ]\n"),
              "  #2 base name=bit size=1 encoding=7 bit_size=1 bit_offset=3\n"
              "  #3 variable name=_p file=1 line=1 type=#2 location=<0320000000>\n"
              "  #4 base name=bit size=1 encoding=7 bit_size=1 bit_offset=5\n"
              "  #5 variable name=_q file=1 line=1 type=#4 location=<0320000000>\n");
}

TEST_F(type_entries, of_void_are_none)
{
    std::string text;
    EXPECT_EQ(errors_of([&] { text = entries_of_type("`v"); }), no_type("_x"));
    EXPECT_EQ(text, "");
}

TEST_F(type_entries, of_unreadable_types_are_none)
{
    std::string text;
    EXPECT_EQ(errors_of([&] { text = entries_of_type("`zz"); }), no_type("_x"));
    EXPECT_EQ(text, "");
}

TEST_F(type_entries, of_pointers)
{
    EXPECT_EQ(entries_of_type("`*v"), "  #2 pointer size=1 class=0\n" + variable(3, "#2"));
    EXPECT_EQ(entries_of_type("`**i"), "  #2 base name=int size=2 encoding=5\n"
                                       "  #3 pointer type=#2 size=1 class=0\n"
                                       "  #4 pointer type=#3 size=1 class=0\n" +
                                           variable(5, "#4"));
    // The size of class 33 is 3 bytes. A plain pointer to const takes 2 on this family.
    EXPECT_EQ(entries_of_type("`*.33i"), "  #2 base name=int size=2 encoding=5\n"
                                         "  #3 pointer type=#2 size=3 class=33\n" +
                                             variable(4, "#3"));
    EXPECT_EQ(ptr_size(33), 3U);
}

TEST_F(type_entries, of_functions_have_no_parameters)
{
    EXPECT_EQ(entries_of_type("`*(v"), "  #2 function\n"
                                       "  #3 pointer type=#2 size=1 class=0\n" +
                                           variable(4, "#3"));
    EXPECT_EQ(entries_of_type("`*(uc"), "  #2 base name=unsigned char size=1 encoding=8\n"
                                        "  #3 function type=#2\n"
                                        "  #4 pointer type=#3 size=1 class=0\n" +
                                            variable(5, "#4"));
}

TEST_F(type_entries, of_arrays_have_a_dimension_for_each_level)
{
    EXPECT_EQ(entries_of_type("`[2][0][3]i"), "  #2 base name=int size=2 encoding=5\n"
                                              "  #3 array type=#2\n"
                                              "    #4 subrange upper=1\n"
                                              "    #5 subrange upper=4294967295\n"
                                              "    #6 subrange upper=2\n" +
                                                  variable(7, "#3"));
    // The dimension of the record is the outermost.
    EXPECT_EQ(entries("[v _x _x `[3]i 2a s 2 @16 ]\n"), "  #2 base name=int size=2 encoding=5\n"
                                                        "  #3 array type=#2\n"
                                                        "    #4 subrange upper=1\n"
                                                        "    #5 subrange upper=2\n" +
                                                            variable(6, "#3"));
}

TEST_F(type_entries, of_an_array_of_void_are_none)
{
    std::string text;
    EXPECT_EQ(errors_of([&] { text = entries_of_type("`[3]v"); }), no_type("_x"));
    EXPECT_EQ(text, "");
    EXPECT_EQ(entries_of_type("`*[3]v"), "  #2 pointer size=1 class=0\n" + variable(3, "#2"));
}

TEST_F(type_entries, of_enumerations)
{
    EXPECT_EQ(entries("\"4\n[e E1 colour `uc RED 0 BLUE -3 ]\n\"5\n[v _x _x `E1 1 s 1 @16 ]\n"),
              "  #2 enum name=colour size=1 file=1 line=4\n"
              "    #3 enumerator name=RED value=0\n"
              "    #4 enumerator name=BLUE value=4294967293\n"
              "  #5 variable name=_x file=1 line=5 type=#2 location=<0310000000>\n");
    // Without a size; without members, as one that is never declared. The tag is kept as it stands.
    EXPECT_EQ(entries("[e E2 . ONE 1 ]\n[v _x _x `E2 1 s 1 @16 ]\n"), "  #2 enum name=. file=1 line=1\n"
                                                                      "    #3 enumerator name=ONE value=1\n" +
                                                                          variable(4, "#2"));
    EXPECT_EQ(entries_of_type("`E9"), "  #2 enum file=1 line=1\n" + variable(3, "#2"));
}

TEST_F(type_entries, of_structures)
{
    EXPECT_EQ(entries("\"7\n[s S1 pair 4 i a 0 2 uc b 2 1 ]\n[v _x _x `S1 1 s 4 @16 ]\n"),
              "  #2 struct name=pair size=4 file=1 line=7\n"
              "    #3 member name=a type=#6 place=<2300>\n"
              "    #4 member name=b type=#7 place=<2302>\n"
              "  #5 variable name=_x file=1 line=7 type=#2 location=<0310000000>\n"
              "  #6 base name=int size=2 encoding=5\n"
              "  #7 base name=unsigned char size=1 encoding=8\n");
    // One that is never declared claims a byte.
    EXPECT_EQ(entries_of_type("`S9"), "  #2 struct size=1 file=1 line=1\n" + variable(3, "#2"));
}

TEST_F(type_entries, of_anonymous_unions_have_no_name_and_no_places)
{
    EXPECT_EQ(entries("[u S1 . 4 l a 0 4 [2]i b 0 4 ]\n[v _x _x `S1 1 s 4 @16 ]\n"),
              "  #2 union size=4 file=1 line=1\n"
              "    #3 member name=a type=#6\n"
              "    #4 member name=b type=#8\n" +
                  variable(5, "#2") +
                  "  #6 base name=long int size=4 encoding=5\n"
                  "  #7 base name=int size=2 encoding=5\n"
                  "  #8 array type=#7\n"
                  "    #9 subrange upper=1\n");
}

TEST_F(type_entries, of_bit_fields_count_from_the_high_end)
{
    // Bits 3 to 4 of a word are 11 from its high end. A width of 0 is a plain member.
    EXPECT_EQ(entries("[s S1 f 2 ui a 0 2 :3:2 ui b 0 2 :0:0 ]\n[v _x _x `S1 1 s 2 @16 ]\n"),
              "  #2 struct name=f size=2 file=1 line=1\n"
              "    #3 member name=a type=#6 size=2 bit_size=2 bit_offset=11 place=<2300>\n"
              "    #4 member name=b type=#6 place=<2300>\n" +
                  variable(5, "#2") + "  #6 base name=unsigned int size=2 encoding=7\n");
}

TEST_F(type_entries, of_members_without_a_type_are_left_out)
{
    std::string text;
    EXPECT_EQ(errors_of([&] { text = entries("[s S1 f 2 zz a 0 2 i b 0 2 ]\n[v _x _x `S1 1 s 2 @16 ]\n"); }),
              no_type("a"));
    EXPECT_EQ(text, "  #2 struct name=f size=2 file=1 line=1\n"
                    "    #3 member name=b type=#5 place=<2300>\n" +
                        variable(4, "#2") + "  #5 base name=int size=2 encoding=5\n");
}

TEST_F(type_entries, of_a_void_member_have_no_type_to_refer_to)
{
    EXPECT_EQ(errors_of([&] {
                  EXPECT_EQ(entries("[s S1 f 2 v a 0 2 ]\n[v _x _x `S1 1 s 2 @16 ]\n"),
                            "  #2 struct name=f size=2 file=1 line=1\n"
                            "    #3 member name=a type=0 place=<2300>\n" +
                                variable(4, "#2"));
              }),
              "")
        << "members are noted, and a noted type is no failure";
}

TEST_F(type_entries, of_a_structure_that_leads_to_itself)
{
    EXPECT_EQ(entries("[s S1 node 4 *S1 next 0 2 *CS1 other 2 2 ]\n[v _x _x `*S1 1 s 2 @16 ]\n"),
              "  #2 struct name=node size=4 file=1 line=1\n"
              "    #3 member name=next type=#5 place=<2300>\n"
              "    #4 member name=other type=#8 place=<2302>\n"
              "  #5 pointer type=#2 size=1 class=0\n" +
                  variable(6, "#5") +
                  "  #7 const type=#2\n"
                  "  #8 pointer type=#7 size=2 class=0\n");
    // Directly.
    EXPECT_EQ(entries("[s S2 odd 4 S2 me 0 2 ]\n[v _x _x `S2 1 s 2 @16 ]\n"),
              "  #2 struct name=odd size=4 file=1 line=1\n"
              "    #3 member name=me type=#2 place=<2300>\n" +
                  variable(4, "#2"));
}

TEST_F(type_entries, of_qualifiers)
{
    const std::string plain_int = "  #2 base name=int size=2 encoding=5\n";
    EXPECT_EQ(entries_of_type("`Ci"), plain_int + "  #3 const type=#2\n" + variable(4, "#3"));
    EXPECT_EQ(entries_of_type("`Vi"), plain_int + "  #3 volatile type=#2\n" + variable(4, "#3"));
    // The lowest bit is the outermost, and the innermost stands first.
    EXPECT_EQ(entries_of_type("`CVi"), plain_int + "  #3 const type=#2\n  #4 volatile type=#3\n" + variable(5, "#4"));
    // Other qualifiers beside them say nothing.
    EXPECT_EQ(entries_of_type("`NCi"), plain_int + "  #3 const type=#2\n" + variable(4, "#3"));
    EXPECT_EQ(entries_of_type("`*Cv"), "  #2 const\n  #3 pointer type=#2 size=2 class=0\n" + variable(4, "#3"))
        << "a pointer to const takes 2 bytes on this family";
    // Over void the outer one of two leads nowhere: settled so.
    EXPECT_EQ(entries_of_type("`*CVv"),
              "  #2 const\n  #3 volatile type=0\n  #4 pointer type=#3 size=2 class=0\n" + variable(5, "#4"));
}

TEST_F(type_entries, of_the_other_family_have_its_masks)
{
    EXPECT_EQ(errors_of([&] { module_ = read("\"1 /p/a.c\n[v _x _x `CVi 1 s 2 @16 ]\n", "[p AVOCET LARGE_DATA ]\n"); }),
              "");
    EXPECT_EQ(machine, &machkorh);
    EXPECT_EQ(entries_of(module_),
              "  #2 base name=int size=2 encoding=5\n  #3 const type=#2\n  #4 volatile type=#3\n" + variable(5, "#4"));
}

// A qualifier that DWARF has no form for.
TEST_F(type_entries, of_a_silent_qualifier_are_those_below)
{
    const std::string plain_int = "  #2 base name=int size=2 encoding=5\n";
    EXPECT_EQ(entries_of_type("`Ni"), plain_int + variable(3, "#2"));
    EXPECT_EQ(entries_of_type("`*Ni"), plain_int + "  #3 pointer type=#2 size=1 class=0\n" + variable(4, "#3"));
    EXPECT_EQ(entries_of_type("`[2]Ni"),
              plain_int + "  #3 array type=#2\n    #4 subrange upper=1\n" + variable(5, "#3"));
    EXPECT_EQ(entries_of_type("`*Nv"), "  #2 pointer size=1 class=0\n" + variable(3, "#2"));
    std::string text;
    EXPECT_EQ(errors_of([&] { text = entries_of_type("`Nv"); }), no_type("_x"));
    EXPECT_EQ(text, "");
}

TEST_F(type_entries, of_a_qualifier_without_a_letter_are_those_below)
{
    std::string text;
    EXPECT_EQ(errors_of([&] { text = entries_of_type("`*Gi"); }), "Unknown qualifier G\n");
    EXPECT_EQ(text, "  #2 base name=int size=2 encoding=5\n  #3 pointer type=#2 size=1 class=0\n" + variable(4, "#3"));
    EXPECT_EQ(errors_of([&] { text = entries_of_type("`GS7"); }), "Unknown qualifier G\n");
    EXPECT_EQ(text, "  #2 struct size=1 file=1 line=1\n" + variable(3, "#2"));
}

TEST_F(type_entries, of_a_silent_qualifier_inside_a_function_are_found_later)
{
    // The references of x and y wait under the qualified type; those of z under its pointer.
    EXPECT_EQ(
        entries("[v _f _f `(v 1 e 0 0 ]\n{\n"
                "[v x x `Ni 1 a 2 4 ]\n[v y y `Ni 1 a 2 6 ]\n[v z z `*Ni 1 a 2 8 ]\n[v w w `Nv 1 a 2 9 ]\n}\n0\n"),
        "  #2 subprogram name=_f external=1 file=1 line=1 low=0x100 high=0x10f inline=0\n"
        "    #3 variable name=x file=1 line=1 type=#7 location=<9104>\n"
        "    #4 variable name=y file=1 line=1 type=#7 location=<9106>\n"
        "    #5 variable name=z file=1 line=1 type=#8 location=<9108>\n"
        "    #6 variable name=w file=1 line=1 type=0 location=<9109>\n"
        "  #7 base name=int size=2 encoding=5\n"
        "  #8 pointer type=#7 size=1 class=0\n");
}

TEST_F(type_entries, of_a_silent_qualifier_are_found_in_every_function)
{
    EXPECT_EQ(entries("[v _f _f `(v 1 e 0 0 ]\n{\n[v x x `Ni 1 a 2 4 ]\n}\n0\n"
                      "[v _g _g `(v 1 e 0 0 ]\n{\n[v y y `Ni 1 a 2 4 ]\n}\n0\n"),
              "  #2 subprogram name=_f external=1 file=1 line=1 low=0x100 high=0x10f inline=0\n"
              "    #3 variable name=x file=1 line=1 type=#4 location=<9104>\n"
              "  #4 base name=int size=2 encoding=5\n"
              "  #5 subprogram name=_g external=1 file=1 line=1 low=0x200 high=0x20f inline=0\n"
              "    #6 variable name=y file=1 line=1 type=#4 location=<9104>\n");
}

// --- order --------------------------------------------------------------------------------------------------------------

// The line unit of /p/a.c without lines: the header, the directory, the file, and the end of the sequence.
constexpr std::uint32_t FIRST_LINE_UNIT = 24 + (3 + 1) + (4 + 3 + 1) + 5;

TEST_F(type_entries, are_shared_within_a_unit_and_made_anew_in_the_next)
{
    sdb_node *first = read("\"1 /p/a.c\n[s S1 t 2 i a 0 2 ]\n[v _x _x `S1 1 s 2 @16 ]\n[v _y _y `S1 1 s 2 @18 ]\n");
    sdb_node *second = read("\"1 /p/b.c\n[s S1 t 2 i a 0 2 ]\n[v _x _x `S1 1 s 2 @16 ]\n");
    const std::string text = text_of({first, second});
    EXPECT_EQ(text.substr(text.find('\n') + 1),
              "  #2 struct name=t size=2 file=1 line=1\n"
              "    #3 member name=a type=#5 place=<2300>\n"
              "  #4 variable name=_x file=1 line=1 type=#2 location=<0310000000>\n"
              "  #5 base name=int size=2 encoding=5\n"
              "  #6 variable name=_y file=1 line=1 type=#2 location=<0312000000>\n"
              "#1 unit lines=" +
                  std::to_string(lines_start_ + FIRST_LINE_UNIT) + " language=1 name=" + second->sdb_name +
                  "\n"
                  "  #2 struct name=t size=2 file=1 line=1\n"
                  "    #3 member name=a type=#5 place=<2300>\n"
                  "  #4 variable name=_x file=1 line=1 type=#2 location=<0310000000>\n"
                  "  #5 base name=int size=2 encoding=5\n");
}

TEST_F(type_entries, noted_in_a_function_come_out_behind_it_in_the_order_of_their_lists)
{
    // "uc" is a global type and stands in front of the unit's own; S1's member leads to one more.
    EXPECT_EQ(entries("[s S1 t 2 i a 0 2 ]\n[v _f _f `(v 1 e 0 0 ]\n{\n"
                      "[v p p `*S1 1 a 2 4 ]\n[v q q `Vl 1 a 2 6 ]\n[v r r `uc 1 a 2 8 ]\n}\n0\n"),
              "  #2 subprogram name=_f external=1 file=1 line=1 low=0x100 high=0x10f inline=0\n"
              "    #3 variable name=p file=1 line=1 type=#9 location=<9104>\n"
              "    #4 variable name=q file=1 line=1 type=#11 location=<9106>\n"
              "    #5 variable name=r file=1 line=1 type=#6 location=<9108>\n"
              "  #6 base name=unsigned char size=1 encoding=8\n"
              "  #7 struct name=t size=2 file=1 line=1\n"
              "    #8 member name=a type=#12 place=<2300>\n"
              "  #9 pointer type=#7 size=1 class=0\n"
              "  #10 base name=long int size=4 encoding=5\n"
              "  #11 volatile type=#10\n"
              "  #12 base name=int size=2 encoding=5\n");
}

// The numbers of the abbreviations tell in which order they were first asked for.
class abbreviation_order : public single_type {
protected:
    static void write_type(type_record *tp)
    {
        dtype_reset();
        const compile_unit_handle cu = dwarf_info_start_compile_unit(2, 0, 4);
        do_type(tp, type_top(tp), true, cu);
        dwarf_info_finish_compile_unit(cu);
    }
    // The tags of all abbreviations, in the order of the table.
    static std::string table(const bytes &abbreviations)
    {
        section_cursor in(abbreviations);
        std::string text;
        while (in.uleb() != 0) {
            text += " " + std::to_string(in.uleb());
            in.number(1);
            while (in.uleb() + in.uleb() != 0) {
            }
        }
        return text;
    }
    std::string tags_for(type_record *tp)
    {
        choose(machkor);
        debug_sections sections;
        write_type(tp);
        sections.finish();
        return table(sections.abbreviations());
    }
    static sdb_node *structure(std::vector<sdb_member> *members)
    {
        sdb_node *node = sdb_new_node(sc_struct, "S1");
        node->structure.st_count = static_cast<std::uint32_t>(members->size());
        node->structure.st_members = members->data();
        return node;
    }
    static type_element reference(type_kind kind, sdb_node *node)
    {
        type_element te = element(kind, node->sdb_name);
        te.node = node;
        return te;
    }
};

TEST_F(abbreviation_order, of_a_pointer_an_array_and_a_qualifier_comes_behind_that_of_the_type_below)
{
    // base 36, volatile 53, array 1, subrange 33, pointer 15
    EXPECT_EQ(
        tags_for(type_of({element(ty_ptr, "*"), element(ty_array, "[2]", 2), element(ty_qual, "V", 2), PLAIN_INT})),
        " 36 53 1 33 15");
}

TEST_F(abbreviation_order, of_qualifiers_is_from_the_lowest_bit_up)
{
    EXPECT_EQ(tags_for(type_of({element(ty_qual, "CV", 0x400002), PLAIN_INT})), " 36 53 38");
}

TEST_F(abbreviation_order, of_an_enumerator_is_asked_for_without_any)
{
    sdb_node *node = sdb_new_node(sc_enum, "E1");
    EXPECT_EQ(tags_for(type_of({reference(ty_enum, node)})), " 4 40");
}

TEST_F(abbreviation_order, of_a_member_is_asked_for_ahead_of_its_type)
{
    const survived_errors errors; // the member's type is missing
    std::vector<sdb_member> members(1);
    members[0].sm_name = "a";
    EXPECT_EQ(tags_for(type_of({reference(ty_struct, structure(&members))})), " 19 13");
}

// --- delay --------------------------------------------------------------------------------------------------------------

TEST_F(single_type, that_cannot_be_written_is_waited_for_once)
{
    choose(machkor);
    debug_sections sections;
    dtype_reset();
    const compile_unit_handle cu = dwarf_info_start_compile_unit(2, 0, 4);
    type_record *bad = type_of({element(ty_array, "[3]", 3), basic("v", TE_VOID, 2)});
    type_record *good = type_of({element(ty_ptr, "*"), basic("v", TE_VOID, 2)});
    const dtype *failing = do_type(bad, type_top(bad), false, cu);
    do_type(good, type_top(good), false, cu);
    EXPECT_FALSE(create_delayed_types(true, cu));
    EXPECT_TRUE(create_delayed_types(false, cu));
    EXPECT_FALSE(failing->dt_referenced);
    EXPECT_TRUE(create_delayed_types(false, cu));
    EXPECT_FALSE(create_delayed_types(false, cu)) << "void does not wait";
    dwarf_info_finish_compile_unit(cu);
    sections.finish();
    EXPECT_EQ(unit_reader(sections.info.added(), sections.abbreviations()).text(), "#1 pointer size=1 class=0\n");
}

TEST_F(single_type, that_is_global_is_forgotten_by_the_next_unit)
{
    choose(machkor);
    const debug_sections sections;
    dtype_reset();
    type_record *tp = type_of({PLAIN_INT});
    dtype *global = dtype_add(str_cache("i"), tp, type_top(tp), true);
    EXPECT_EQ(dtype_add(str_cache("i"), tp, type_top(tp), true)->dt_index, 1U);
    for (int unit = 0; unit < 2; ++unit) {
        dtype_start_unit();
        EXPECT_EQ(global->dt_ref, 0U);
        EXPECT_FALSE(global->dt_referenced);
        const compile_unit_handle cu = dwarf_info_start_compile_unit(2, 0, 4);
        EXPECT_EQ(do_type(tp, type_top(tp), true, cu), global) << "the first of an id counts";
        EXPECT_EQ(global->dt_ref, 11U);
        dwarf_info_finish_compile_unit(cu);
    }
}

// A hundred thousand pointers are a hundred thousand entries: no depth of the stack, and no cost that grows with the square.
TEST_F(single_type, may_be_very_deep)
{
    constexpr std::uint32_t DEPTH = 100000;
    std::vector<type_element> elements(DEPTH, element(ty_ptr, "*"));
    elements.push_back(PLAIN_INT);
    type_record *tp = type_of(elements);
    choose(machkor);
    const debug_sections sections;
    dtype_reset();
    const compile_unit_handle cu = dwarf_info_start_compile_unit(2, 0, 4);
    const std::uint32_t start = dwarf_info_get_unit_offset(cu);
    dtype *top = do_type(tp, type_top(tp), false, cu);
    EXPECT_TRUE(create_delayed_types(false, cu));
    EXPECT_FALSE(create_delayed_types(false, cu));
    // A base type of 7 bytes, then pointers of 7 bytes each: number, reference, size, class.
    EXPECT_EQ(top->dt_ref, 11 + 7 + (DEPTH - 1) * 7);
    EXPECT_EQ(dwarf_info_get_unit_offset(cu), start);
    // An equal type of another record is found at its top.
    type_record *again = type_of(elements);
    EXPECT_EQ(do_type(again, type_top(again), true, cu), top);
    dwarf_info_finish_compile_unit(cu);
    const bytes info = sections.info.added();
    EXPECT_EQ(info.size(), top->dt_ref + 7);
    for (std::uint32_t i = 0; i < DEPTH; ++i) {
        const std::size_t at = 18 + i * 7;
        ASSERT_EQ(number_at(info, at + 1, 4), at - 7) << "pointer " << i << " leads to the one in front";
    }
}

} // namespace
