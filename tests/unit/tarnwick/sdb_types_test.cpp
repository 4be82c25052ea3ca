// SPDX-License-Identifier: MIT
// Type strings.
#include <string>
#include <vector>

#include "tests/unit/tarnwick/sdb_testing.h"
#include "tests/unit/tarnwick/trace_log.h"

namespace {

class type_strings : public database {
public:
    void SetUp() override
    {
        choose(machkor);
        module_ = sdb_new_node(sc_module, "m.obj");
        module_->sdb_parent = sdb_global;
        module_->sdb_index = sdb_global->block.bl_count;
        sdb_add_member(sdb_global, module_);
        sdb_current = module_;
    }
    static std::string parse(const std::string &text) { return type_text(sdb_parse_type(text.c_str())); }
    static sdb_node *declare(sclass cls, const char *name, const char *type = nullptr)
    {
        sdb_node *node = sdb_new_node(cls, name);
        if (type != nullptr) {
            node->var.va_type = sdb_parse_type(type);
        }
        sdb_enter_named(node);
        return node;
    }

protected:
    sdb_node *module_ = nullptr;
};

TEST_F(type_strings, name_basic_types)
{
    for (const char *key :
         {"i", "s", "c", "m", "l", "o", "ui", "us", "uc", "um", "ul", "uo", "f", "d", "x", "ux", "a", "b", "v"}) {
        EXPECT_EQ(parse(key), key);
        EXPECT_EQ(parse(std::string("`") + key), key);
    }
    const type_record *tp = sdb_parse_type("`um");
    EXPECT_EQ(tp->ty_cnt, 1U);
    EXPECT_EQ(tp->ty_alloc, 1U);
    EXPECT_EQ(tp->elements[0].basic.te_class, TE_UNSIGNED);
    EXPECT_EQ(tp->elements[0].basic.te_size, 3U);
}

TEST_F(type_strings, read_from_the_outermost_prefix)
{
    EXPECT_EQ(parse("`*i"), "*<0> i");
    EXPECT_EQ(parse("`*.37i"), "*.37<37> i");
    EXPECT_EQ(parse("`[3][4]*c"), "[3]<3> [4]<4> *<0> c");
    EXPECT_EQ(parse("`*.34(ui"), "*.34<34> ( ui");
    EXPECT_EQ(parse("`*`[2]`i"), "*<0> [2]<2> i"); // one "`" in front of each part
}

TEST_F(type_strings, need_no_more_than_their_elements)
{
    const type_record *tp = sdb_parse_type("`*[2]i");
    EXPECT_EQ(tp->ty_cnt, 3U);
    EXPECT_EQ(tp->ty_alloc, 3U);
}

TEST_F(type_strings, have_arrays_with_and_without_their_parts)
{
    EXPECT_EQ(parse("`[]i"), "[0]<0> i");
    EXPECT_EQ(parse("`[7i"), "[7]<7> i");
    EXPECT_EQ(parse("`[9999999999]i"), "[4294967295]<4294967295> i"); // saturates at 32 bits
}

TEST_F(type_strings, may_have_a_pointer_class_without_digits)
{
    const trace_log log;
    EXPECT_EQ(parse("`*.i"), "*.<0> i");
    EXPECT_EQ(log.failed(), std::vector<std::string>{"bp > cp+2"});
    log.failed().clear();
    EXPECT_EQ(errors_of([] { EXPECT_EQ(parse("`*.5"), "*.5<5>"); }), "Encountered type string \n");
    EXPECT_EQ(log.failed(), std::vector<std::string>{"*bp != '\\0'"});
    log.failed().clear();
    EXPECT_EQ(parse("`*.5i"), "*.5<5> i");
    EXPECT_TRUE(log.failed().empty());
}

TEST_F(type_strings, gather_qualifier_letters_in_one_element)
{
    EXPECT_EQ(parse("`Ci"), "C<400000> i");
    EXPECT_EQ(parse("`CVi"), "CV<400002> i"); // outermost letter first
    EXPECT_EQ(parse("`C`Vi"), "CV<400002> i");
    EXPECT_EQ(parse("`C*Vi"), "C<400000> *<0> V<2> i");
    EXPECT_EQ(parse("`Di"), "D<400000> i");
    EXPECT_EQ(parse("`R(v"), "R<40> ( v");
}

TEST_F(type_strings, merge_qualifiers_into_a_typedefs)
{
    declare(sc_typedef, "vreg", "`Vui");
    EXPECT_EQ(parse("`Cvreg"), "CV<400002> ui");
    EXPECT_EQ(parse("`vreg"), "V<2> ui"); // the typedef's own text stays
}

TEST_F(type_strings, report_unknown_qualifiers)
{
    EXPECT_EQ(errors_of([] { EXPECT_EQ(parse("`CGi"), "C<400000> i"); }), "Unknown qualifier G\n");
    // The element is there, with nothing in it.
    EXPECT_EQ(errors_of([] { EXPECT_EQ(parse("`Gi"), "<0> i"); }), "Unknown qualifier G\n");
    EXPECT_EQ(sdb_parse_type("`i")->ty_cnt, 1U);
    EXPECT_EQ(errors_of([] { parse("`G!"); }), "Encountered type string !\nUnknown qualifier G\n");
}

TEST_F(type_strings, report_what_cannot_begin_a_type)
{
    for (const char *text : {"9", "!x", ")", "."}) {
        EXPECT_EQ(errors_of([text] { EXPECT_EQ(sdb_parse_type(text), nullptr); }),
                  std::string("Encountered type string ") + text + "\n");
    }
    EXPECT_EQ(errors_of([] { EXPECT_EQ(sdb_parse_type(""), nullptr); }), "Encountered type string \n");
}

TEST_F(type_strings, may_be_cut_short)
{
    EXPECT_EQ(errors_of([] { EXPECT_EQ(parse("`*"), "*<0>"); }), "Encountered type string \n");
    EXPECT_EQ(errors_of([] { EXPECT_EQ(parse("`[2]*!"), "[2]<2> *<0>"); }), "Encountered type string !\n");
    EXPECT_EQ(parse("`*nosuch"), "*<0>");
    EXPECT_EQ(sdb_parse_type("`nosuch"), nullptr);
    EXPECT_EQ(sdb_parse_type("`_nosuch"), nullptr);
    EXPECT_EQ(parse("`Cnosuch"), "C<400000>");
}

TEST_F(type_strings, refer_to_structs_and_enums)
{
    sdb_node *structure = declare(sc_struct, "S10");
    sdb_node *enumeration = declare(sc_enum, "E7");
    EXPECT_EQ(parse("`*S10"), "*<0> struct:S10");
    EXPECT_EQ(sdb_parse_type("`S10")->elements[0].node, structure);
    EXPECT_EQ(parse("`[2]E7"), "[2]<2> enum:E7");
    EXPECT_EQ(sdb_parse_type("`E7")->elements[0].node, enumeration);
}

TEST_F(type_strings, take_the_text_of_the_reference_as_name)
{
    sdb_node *node = declare(sc_struct, "_S10");
    const type_record *tp = sdb_parse_type("`S10");
    EXPECT_EQ(tp->elements[0].node, node);
    EXPECT_STREQ(tp->elements[0].te_name, "S10");
}

TEST_F(type_strings, resolve_typedefs_at_once)
{
    declare(sc_typedef, "pc", "`*Cc");
    EXPECT_EQ(parse("`[2]pc"), "[2]<2> *<0> C<400000> c");
    const type_record *first = sdb_parse_type("`pc");
    const type_record *second = sdb_parse_type("`pc");
    EXPECT_NE(first, second); // each has elements of its own
    EXPECT_EQ(first->elements[1].te_name, second->elements[1].te_name);
    declare(sc_typedef, "none", nullptr);
    EXPECT_EQ(sdb_parse_type("`none"), nullptr);
}

TEST_F(type_strings, prefer_a_global_basic_type_to_a_local_name)
{
    declare(sc_typedef, "i", "`l");
    EXPECT_EQ(parse("`i"), "i");
}

TEST_F(type_strings, take_the_name_of_any_variable)
{
    declare(sc_static, "_thing", "`ul");
    EXPECT_EQ(parse("`*thing"), "*<0> ul");
}

TEST_F(type_strings, make_forward_references)
{
    sdb_reading.line = 42;
    EXPECT_EQ(parse("`*S5"), "*<0> struct:S5");
    EXPECT_EQ(parse("`E5"), "enum:E5");
    sdb_node *structure = member(module_, "S5");
    sdb_node *enumeration = member(module_, "E5");
    ASSERT_NE(structure, nullptr);
    ASSERT_NE(enumeration, nullptr);
    EXPECT_EQ(structure->sdb_sclass, sc_struct);
    EXPECT_EQ(structure->structure.st_count, 0U);
    EXPECT_EQ(structure->sdb_line, 42U);
    EXPECT_EQ(structure->sdb_parent, module_);
    EXPECT_EQ(structure->sdb_index, 0U);
    EXPECT_EQ(enumeration->sdb_sclass, sc_enum);
    EXPECT_EQ(enumeration->enumeration.en_count, 0U);
    EXPECT_EQ(enumeration->sdb_index, 1U);
    parse("`S5"); // the second time it is found
    EXPECT_EQ(module_->block.bl_count, 2U);
    EXPECT_EQ(sdb_lookup_local("S5"), structure);
}

TEST_F(type_strings, of_any_length_are_read)
{
    constexpr std::uint32_t LENGTH = 100000;
    const type_record *tp = sdb_parse_type(("`" + std::string(LENGTH, '*') + "i").c_str());
    EXPECT_EQ(tp->ty_cnt, LENGTH + 1);
    EXPECT_EQ(tp->ty_alloc, LENGTH + 1);
    tp = sdb_parse_type(("`" + std::string(LENGTH, 'C') + "i").c_str());
    EXPECT_EQ(tp->ty_cnt, 2U);
    EXPECT_EQ(std::strlen(tp->elements[1].te_name), LENGTH);
}

} // namespace
