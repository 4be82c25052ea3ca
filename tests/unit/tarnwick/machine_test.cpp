// SPDX-License-Identifier: MIT
#include "compiler/tarnwick/machine.h"

#include <string>
#include <vector>

#include "tests/unit/tarnwick/sdb_testing.h"
#include "tests/unit/tarnwick/trace_log.h"

namespace {

class machines : public database {
public:
    static bool init(const std::vector<const char *> &words)
    {
        auto prefixes = vector_of<const char *>::make();
        for (const char *word_text : words) {
            prefixes.push(word_text);
        }
        const bool chosen = machine_init(prefixes);
        prefixes.free();
        return chosen;
    }
};

type_record *type_of(const std::vector<type_element> &elements)
{
    type_record *tp = type_new();
    for (const type_element &te : elements) {
        tp = type_append(tp, te);
    }
    return tp;
}

type_element element(std::uint32_t kind, std::uint64_t value = 0)
{
    type_element te;
    te.te_kind = kind;
    te.te_value = value;
    return te;
}

type_element basic(std::uint8_t size)
{
    type_element te;
    te.te_kind = ty_basic;
    te.basic = {TE_SIGNED, size, 0};
    return te;
}

std::uint32_t size_of(const machine_description &description, const std::vector<type_element> &elements)
{
    const type_record *tp = type_of(elements);
    return description.mc_type_size(tp, type_top(tp));
}

TEST_F(machines, differ_in_widths_and_masks)
{
    EXPECT_EQ(machkorh.mc_min_insn, 2U);
    EXPECT_EQ(machkorh.mc_max_insn, 2U);
    EXPECT_EQ(machkorh.mc_rom_mask, 0x200000U);
    EXPECT_EQ(machkorh.mc_volatile_mask, 2U);
    EXPECT_EQ(machkor.mc_min_insn, 1U);
    EXPECT_EQ(machkor.mc_max_insn, 1U);
    EXPECT_EQ(machkor.mc_rom_mask, 0x400000U);
    EXPECT_EQ(machkor.mc_volatile_mask, 2U);
}

TEST_F(machines, have_tables_of_these_sizes)
{
    EXPECT_EQ(machkorh.mc_registers.size(), 17U);
    EXPECT_EQ(machkor.mc_registers.size(), 21U);
    EXPECT_EQ(machkorh.mc_words.size(), 20U);
    EXPECT_EQ(machkor.mc_words.size(), 27U);
    EXPECT_EQ(machkorh.mc_basics.size(), 19U);
    EXPECT_EQ(machkor.mc_basics.size(), 19U);
    EXPECT_EQ(machkorh.mc_qualifiers.size(), 35U);
    EXPECT_EQ(machkor.mc_qualifiers.size(), 34U);
}

TEST_F(machines, match_a_part_of_a_processor_name_in_any_case)
{
    for (const char *name : {"H1A", "H1B", "H1C", "H2A", "xxh2ayy"}) {
        EXPECT_TRUE(machkorh.mc_matches(name)) << name;
        EXPECT_FALSE(machkor.mc_matches(name)) << name;
    }
    for (const char *name : {"N3A", "N3B", "N3C", "N4A", "N4B", "N4BV", "N4C", "N5A", "N5B", "N5C", "N5BV", "N6A",
                             "KOR", "N7A", "N7B", "N8A", "N8B", "N9A", "18kor4"}) {
        EXPECT_TRUE(machkor.mc_matches(name)) << name;
        EXPECT_FALSE(machkorh.mc_matches(name)) << name;
    }
    EXPECT_FALSE(machkor.mc_matches(nullptr));
    EXPECT_FALSE(machkor.mc_matches(""));
    EXPECT_FALSE(machkor.mc_matches("KO"));
    EXPECT_FALSE(machkorh.mc_matches("N2A"));
}

TEST_F(machines, are_chosen_by_the_processor_first)
{
    processor_name = "KOR-H2A"; // both families; the high-end one is asked first
    EXPECT_TRUE(init({"KORM"}));
    EXPECT_EQ(machine, &machkorh);
}

TEST_F(machines, are_chosen_by_the_words_when_the_processor_is_unknown)
{
    processor_name = "Z80";
    EXPECT_TRUE(init({"AVOCET", "korm"})); // in any case
    EXPECT_EQ(machine, &machkor);
}

TEST_F(machines, must_have_every_word)
{
    EXPECT_EQ(errors_of([] {
                  EXPECT_FALSE(init({"SMALL_MODEL", "KORM"}));
              }),
              "(668) prefix list did not match any SDB types\n");
    EXPECT_EQ(machine, nullptr);
    EXPECT_EQ(sdb_global, nullptr);
    EXPECT_TRUE(init({"AVOCET", "SMALL_MODEL"}));
    EXPECT_EQ(machine, &machkorh);
}

TEST_F(machines, must_not_both_match)
{
    const char *report = "(669) prefix list matched more than one SDB type\n";
    EXPECT_EQ(errors_of([] { EXPECT_FALSE(init({"AVOCET", "IEEE_FLT"})); }), report);
    EXPECT_EQ(errors_of([] { EXPECT_FALSE(init({})); }), report);
    EXPECT_EQ(machine, nullptr);
}

TEST_F(machines, are_chosen_once)
{
    EXPECT_TRUE(init({"KORM"}));
    const sdb_node *global = sdb_global;
    EXPECT_TRUE(init({"SMALL_MODEL"}));
    EXPECT_EQ(machine, &machkor);
    EXPECT_EQ(sdb_global, global);
}

TEST_F(machines, need_a_prefix_vector)
{
    const trace_log log;
    processor_name = "KOR";
    EXPECT_TRUE(machine_init({}));
    EXPECT_EQ(log.failed(), std::vector<std::string>{"prefixes != NULL"});
}

struct basic_row {
    const char *key;
    std::uint8_t size;
    std::uint32_t cls;
};

constexpr basic_row BASICS[] = {
    {"i", 2, 1},  {"s", 2, 1},  {"c", 1, 1},  {"m", 3, 1},  {"l", 4, 1},  {"o", 8, 1},
    {"ui", 2, 2}, {"us", 2, 2}, {"uc", 1, 2}, {"um", 3, 2}, {"ul", 4, 2}, {"uo", 8, 2},
    {"f", 3, 3},  {"d", 4, 3},  {"x", 2, 1},  {"ux", 2, 2}, {"a", 1, 4},  {"b", 0, 4},
};

void expect_basics(std::uint8_t void_size)
{
    ASSERT_EQ(sdb_global->block.bl_count, std::size(BASICS) + 1);
    EXPECT_EQ(sdb_global->sdb_sclass, sc_module);
    EXPECT_EQ(sdb_current, sdb_global);
    for (std::uint32_t i = 0; i < sdb_global->block.bl_count; ++i) {
        const basic_row row = i < std::size(BASICS) ? BASICS[i] : basic_row{"v", void_size, 0};
        const sdb_node *node = sdb_global->block.bl_members[i];
        EXPECT_STREQ(node->sdb_name, row.key);
        EXPECT_EQ(node->sdb_sclass, sc_typedef);
        EXPECT_EQ(node->sdb_parent, sdb_global);
        EXPECT_EQ(node->sdb_index, i);
        const type_record *tp = node->var.va_type;
        EXPECT_EQ(tp->ty_cnt, 1U);
        EXPECT_EQ(tp->ty_alloc, 1U);
        EXPECT_EQ(tp->elements[0].te_kind, ty_basic);
        EXPECT_STREQ(tp->elements[0].te_name, row.key);
        EXPECT_EQ(tp->elements[0].basic.te_class, row.cls) << row.key;
        EXPECT_EQ(tp->elements[0].basic.te_size, row.size) << row.key;
        EXPECT_EQ(sdb_scope_lookup(row.key, sdb_global, sdb_global->block.bl_count), node);
    }
}

TEST_F(machines, make_the_global_block_with_the_basic_types_in_order)
{
    choose(machkor);
    expect_basics(2);
    sdb_reset();
    choose(machkorh);
    expect_basics(0);
}

TEST_F(machines, know_flags_by_exact_words)
{
    EXPECT_FALSE(machine_set_flag("KORM")); // no table yet
    EXPECT_FALSE(machine_has_flag("KORM"));
    choose(machkor);
    EXPECT_FALSE(machine_has_flag("KORM"));
    EXPECT_TRUE(machine_set_flag("KORM"));
    EXPECT_TRUE(machine_has_flag("KORM"));
    EXPECT_TRUE(machine_set_flag("KORM"));
    EXPECT_FALSE(machine_set_flag("korm"));
    EXPECT_FALSE(machine_set_flag("SMALL_MODEL"));
    EXPECT_FALSE(machine_has_flag("SMALL_MODEL"));
    EXPECT_FALSE(machine_has_flag("IEEE_FLT"));
}

TEST_F(machines, assert_their_words)
{
    choose(machkor);
    const trace_log log;
    EXPECT_FALSE(machine_set_flag(nullptr));
    EXPECT_FALSE(machine_has_flag(nullptr));
    EXPECT_EQ(log.failed(), (std::vector<std::string>{"s != NULL", "p != NULL"}));
}

TEST_F(machines, number_registers_by_their_rows)
{
    choose(machkor);
    const char *const kor[] = {"acca",    "ptra_lo", "ptra_hi", "ptrb_lo", "ptrb_hi", "mulr_lo", "mulr_hi",
                               "romp_lo", "romp_hi", "scra+0",  "scra+1",  "scra+2",  "scra+3",  "ptra",
                               "ptrb",    "rompreg", "mulr",    "scrw0",   "scrw1",   "scrt0",   "scrl0"};
    for (std::size_t i = 0; i < std::size(kor); ++i) {
        EXPECT_EQ(machine_register_index(kor[i]), static_cast<std::int32_t>(i));
    }
    EXPECT_EQ(machine_register_index("ACCA"), -1);
    EXPECT_EQ(machine_register_index("romp"), -1);
    EXPECT_EQ(machine_register_index(""), -1);
    EXPECT_EQ(machine_register_index(nullptr), -1);
    sdb_reset();
    choose(machkorh);
    const char *const korh[] = {"acca",    "ptra_lo", "ptra_hi", "ptrb_lo", "ptrb_hi", "ptrc_lo",
                                "ptrc_hi", "romp_lo", "romp_hi", "romp_up", "mulr_lo", "mulr_hi",
                                "ptra",    "ptrb",    "ptrc",    "romp",    "mulr"};
    for (std::size_t i = 0; i < std::size(korh); ++i) {
        EXPECT_EQ(machine_register_index(korh[i]), static_cast<std::int32_t>(i));
    }
}

void expect_words(const machine_description &description, const std::vector<const char *> &words)
{
    ASSERT_EQ(description.mc_words.size(), words.size());
    for (std::size_t i = 0; i < words.size(); ++i) {
        EXPECT_STREQ(description.mc_words[i], words[i]);
    }
}

void expect_qualifiers(const machine_description &description, const std::vector<machine_qualifier> &rows)
{
    ASSERT_EQ(description.mc_qualifiers.size(), rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        EXPECT_STREQ(description.mc_qualifiers[i].keyword, rows[i].keyword) << i;
        EXPECT_EQ(description.mc_qualifiers[i].letter, rows[i].letter) << i;
        EXPECT_EQ(description.mc_qualifiers[i].mask, rows[i].mask) << i;
    }
}

void expect_registers(const machine_description &description, const std::vector<machine_register> &rows)
{
    ASSERT_EQ(description.mc_registers.size(), rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        EXPECT_STREQ(description.mc_registers[i].name, rows[i].name) << i;
        EXPECT_EQ(description.mc_registers[i].size, rows[i].size) << i;
        for (std::size_t c = 0; c < std::size(rows[i].components); ++c) {
            EXPECT_EQ(description.mc_registers[i].components[c], rows[i].components[c]) << i;
        }
    }
}

TEST_F(machines, have_registers_made_of_registers)
{
    expect_registers(machkorh, {{"acca", 1, {}},
                                {"ptra_lo", 1, {}},
                                {"ptra_hi", 1, {}},
                                {"ptrb_lo", 1, {}},
                                {"ptrb_hi", 1, {}},
                                {"ptrc_lo", 1, {}},
                                {"ptrc_hi", 1, {}},
                                {"romp_lo", 1, {}},
                                {"romp_hi", 1, {}},
                                {"romp_up", 1, {}},
                                {"mulr_lo", 1, {}},
                                {"mulr_hi", 1, {}},
                                {"ptra", 2, {2, 3}},
                                {"ptrb", 2, {4, 5}},
                                {"ptrc", 2, {6, 7}},
                                {"romp", 3, {8, 9, 10}},
                                {"mulr", 2, {11, 12}}});
    expect_registers(machkor, {{"acca", 1, {}},         {"ptra_lo", 1, {}},         {"ptra_hi", 1, {}},
                               {"ptrb_lo", 1, {}},      {"ptrb_hi", 1, {}},         {"mulr_lo", 1, {}},
                               {"mulr_hi", 1, {}},      {"romp_lo", 1, {}},         {"romp_hi", 1, {}},
                               {"scra+0", 1, {}},       {"scra+1", 1, {}},          {"scra+2", 1, {}},
                               {"scra+3", 1, {}},       {"ptra", 2, {3, 4}},        {"ptrb", 2, {5, 6}},
                               {"rompreg", 2, {9, 10}}, {"mulr", 2, {7, 8}},        {"scrw0", 2, {11, 12}},
                               {"scrw1", 2, {13, 14}},  {"scrt0", 3, {11, 12, 13}}, {"scrl0", 4, {11, 12, 13, 14}}});
}

TEST_F(machines, list_their_words_in_order)
{
    expect_words(machkorh,
                 {"AVOCET",   "NOTREGPAR",   "HARDFLOAT",   "GLOBOPT",    "AUTOSTATIC", "FAST_DBL", "IEEE_DBL",
                  "IEEE_FLT", "SMALL_MODEL", "LARGE_MODEL", "SMALL_DATA", "LARGE_DATA", "LFSROK",   "EMI_BYTE",
                  "EMI_WORD", "SPEEDOPT",    "SPACEOPT",    "LITE_MODE",  "STD_MODE",   "PRO_MODE"});
    expect_words(machkor, {"AVOCET",     "NOTREGPAR",   "HARDFLOAT", "GLOBOPT",  "AUTOSTATIC", "KORB",     "KORM",
                           "KORQ",       "IEEE_DBL",    "IEEE_FLT",  "KORMIDHI", "KORLOMID",   "KORZA",    "PAGED",
                           "NONPAGED",   "CANREADCODE", "SPACEOPT",  "SPEEDOPT", "LITE_MODE",  "PRO_MODE", "KORME",
                           "KORREGULAR", "KORMID",      "STD_MODE",  "KORBE",    "KORBIE",     "KORBCOM"});
}

TEST_F(machines, spell_their_qualifiers_row_by_row)
{
    expect_qualifiers(machkorh,
                      {{"__big_endian", '0', 0},   {"const", 'C', 0x200000},      {"volatile", 'V', 0x2},
                       {"near", 'N', 0x8},         {"interrupt", 'I', 0x10},      {"__irq", 'I', 0x10},
                       {"__fiq", 'K', 0x200},      {"persistent", 'S', 0x20},     {"__no_init", 'S', 0x20},
                       {"inline", 'T', 0x100},     {"__pack", 'Q', 0x2000000},    {"reentrant", 'R', 0x40},
                       {"software", 'R', 0x40},    {"nonreentrant", 'J', 0x400},  {"compiled", 'J', 0x400},
                       {"__discrete", 'U', 0x800}, {"__minocg", 'A', 0x1000},     {"eeprom", 'E', 0},
                       {"eeprom", 'E', 0x4000002}, {"low_priority", 'L', 0x2000}, {"high_priority", 'H', 0x4000},
                       {"__invariant", '0', 0},    {"__stable", '0', 0},          {"restrict", '0', 0},
                       {"bank0", 'W', 0x8000},     {"bank1", 'X', 0x10000},       {"bank2", 'Y', 0x20000},
                       {"bank3", 'Z', 0x40000},    {"bdata", 'B', 0x100000},      {"far", 'F', 0x4},
                       {"rom", 'P', 0x400000},     {"ram", 'M', 0x800000},        {"__rom", 'P', 0x400000},
                       {"__ram", 'M', 0x800000},   {"overlay", 'O', 0x1000000}});
    expect_qualifiers(machkor, {{"const", 'D', 0x400000},
                                {"volatile", 'V', 0x2},
                                {"far", 'F', 0x4},
                                {"near", 'N', 0x8},
                                {"interrupt", 'I', 0x10},
                                {"__irq", 'I', 0x10},
                                {"__fiq", 'K', 0x200},
                                {"persistent", 'S', 0x20},
                                {"__no_init", 'S', 0x20},
                                {"inline", 'T', 0x100},
                                {"__pack", 'Q', 0x800000},
                                {"__big_endian", '0', 0},
                                {"nonreentrant", 'J', 0x400},
                                {"compiled", 'J', 0x400},
                                {"__discrete", 'U', 0x800},
                                {"eeprom", 'E', 0},
                                {"eeprom", 'E', 0x200002},
                                {"low_priority", 'L', 0x2000},
                                {"high_priority", 'H', 0x4000},
                                {"__minocg", 'A', 0x1000},
                                {"__invariant", '0', 0},
                                {"__stable", '0', 0},
                                {"restrict", '0', 0},
                                {"control", 'W', 0x8000},
                                {"bank0", 'P', 0x10000},
                                {"bank1", 'X', 0x20000},
                                {"bank2", 'Y', 0x40000},
                                {"bank3", 'Z', 0x80000},
                                {"fastcall", 'T', 0x100000},
                                {"const", 'C', 0x400000},
                                {"reentrant", 'R', 0x40},
                                {"reentrant", 'R', 0},
                                {"__rom", 'B', 0x1000000},
                                {"__ram", 'M', 0x2000000}});
}

struct letter_row {
    char letter;
    std::uint32_t kor;
    std::uint32_t korh;
};

// By letter, the first row with a mask.
constexpr letter_row LETTERS[] = {
    {'A', 0x1000, 0x1000},
    {'B', 0x1000000, 0x100000},
    {'C', 0x400000, 0x200000},
    {'D', 0x400000, 0},
    {'E', 0x200002, 0x4000002},
    {'F', 0x4, 0x4},
    {'G', 0, 0},
    {'H', 0x4000, 0x4000},
    {'I', 0x10, 0x10},
    {'J', 0x400, 0x400},
    {'K', 0x200, 0x200},
    {'L', 0x2000, 0x2000},
    {'M', 0x2000000, 0x800000},
    {'N', 0x8, 0x8},
    {'O', 0, 0x1000000},
    {'P', 0x10000, 0x400000},
    {'Q', 0x800000, 0x2000000},
    {'R', 0x40, 0x40},
    {'S', 0x20, 0x20},
    {'T', 0x100, 0x100},
    {'U', 0x800, 0x800},
    {'V', 0x2, 0x2},
    {'W', 0x8000, 0x8000},
    {'X', 0x20000, 0x10000},
    {'Y', 0x40000, 0x20000},
    {'Z', 0x80000, 0x40000},
    {'0', 0, 0},
};

TEST_F(machines, give_letters_their_masks)
{
    EXPECT_EQ(machine_qualifier_mask('C'), 0U); // no machine yet
    choose(machkor);
    for (const letter_row &row : LETTERS) {
        EXPECT_EQ(machine_qualifier_mask(row.letter), row.kor) << row.letter;
    }
    sdb_reset();
    choose(machkorh);
    for (const letter_row &row : LETTERS) {
        EXPECT_EQ(machine_qualifier_mask(row.letter), row.korh) << row.letter;
    }
}

TEST_F(machines, size_types)
{
    sdb_node *structure = sdb_new_node(sc_struct, "S1");
    structure->structure.st_size = 6;
    sdb_node *enumeration = sdb_new_node(sc_enum, "E1");
    enumeration->enumeration.en_size = 2;
    type_element struct_element = element(ty_struct);
    struct_element.node = structure;
    type_element enum_element = element(ty_enum);
    enum_element.node = enumeration;
    for (const machine_description *description : {&machkor, &machkorh}) {
        EXPECT_EQ(size_of(*description, {basic(4)}), 4U);
        EXPECT_EQ(size_of(*description, {basic(4), element(ty_array, 3), element(ty_array, 5)}), 60U);
        EXPECT_EQ(size_of(*description, {struct_element, element(ty_array, 2)}), 12U);
        EXPECT_EQ(size_of(*description, {enum_element, element(ty_array, 2)}), 4U);
        EXPECT_EQ(size_of(*description, {basic(2), element(ty_func)}), 0U);
        EXPECT_EQ(size_of(*description, {basic(2), element(ty_qual, 2)}), 0U);
        EXPECT_EQ(size_of(*description, {basic(2), element(ty_qual, 2), element(ty_array, 3)}), 0U);
        EXPECT_EQ(size_of(*description, {element(ty_array, 3)}), 0U); // cut short
        // The element of the question need not be the top.
        const type_record *tp = type_of({basic(2), element(ty_qual, 2)});
        EXPECT_EQ(description->mc_type_size(tp, &tp->elements[0]), 2U);
    }
}

TEST_F(machines, size_pointers)
{
    const type_element far_target = element(ty_qual, 0x4);
    const type_element const_target = element(ty_qual, 0x400002);
    const type_element volatile_target = element(ty_qual, 0x2);
    EXPECT_EQ(size_of(machkor, {basic(2), element(ty_ptr)}), 1U);
    EXPECT_EQ(size_of(machkor, {basic(2), far_target, element(ty_ptr)}), 2U);
    EXPECT_EQ(size_of(machkor, {basic(2), const_target, element(ty_ptr)}), 2U);
    EXPECT_EQ(size_of(machkor, {basic(2), volatile_target, element(ty_ptr)}), 1U);
    EXPECT_EQ(size_of(machkor, {basic(2), const_target, element(ty_ptr), element(ty_array, 3)}), 6U);
    EXPECT_EQ(size_of(machkor, {element(ty_ptr), element(ty_array, 3)}), 3U); // cut short
    EXPECT_EQ(size_of(machkorh, {basic(2), element(ty_ptr)}), 2U);
    EXPECT_EQ(size_of(machkorh, {basic(2), far_target, element(ty_ptr), element(ty_array, 3)}), 6U);
}

// A place in a block of a function of a module.
class places : public machines {
public:
    void SetUp() override
    {
        choose(machkor);
        module_ = sdb_new_node(sc_module, "m");
        function_ = sdb_new_node(sc_func, nullptr);
        function_->sdb_parent = module_;
        function_->block.bl_func = sdb_new_node(sc_extern, "_f");
        function_->block.bl_func->var.va_type = type_of({basic(2), element(ty_func)});
        outer_ = sdb_new_node(sc_block, nullptr);
        outer_->sdb_parent = function_;
        inner_ = sdb_new_node(sc_block, nullptr);
        inner_->sdb_parent = outer_;
    }
    bool accepts(sclass cls, sdb_location *loc, sdb_node *block)
    {
        sdb_node *variable = sdb_new_node(cls, "x");
        const sdb_context context{.block = block};
        return machkor.mc_check_location(variable, loc, block != nullptr ? &context : nullptr);
    }

protected:
    sdb_node *module_ = nullptr;
    sdb_node *function_ = nullptr;
    sdb_node *outer_ = nullptr;
    sdb_node *inner_ = nullptr;
};

TEST_F(places, registers_pass_up_to_one_above_the_table)
{
    sdb_node *variable = sdb_new_node(sc_reg, "x");
    const auto accepted = [variable](const machine_description &description, std::uint32_t index) {
        sdb_location loc{.lo_kind = LO_REGISTER, .lo_value = index};
        return description.mc_check_location(variable, &loc, nullptr);
    };
    EXPECT_TRUE(accepted(machkor, 0));
    EXPECT_TRUE(accepted(machkor, 21));
    EXPECT_FALSE(accepted(machkor, 22));
    EXPECT_TRUE(accepted(machkorh, 17));
    EXPECT_FALSE(accepted(machkorh, 18));
}

TEST_F(places, nothing_is_refused)
{
    sdb_location loc{.lo_kind = LO_ADDRESS};
    EXPECT_FALSE(machkor.mc_check_location(nullptr, &loc, nullptr));
    EXPECT_FALSE(machkor.mc_check_location(module_, nullptr, nullptr));
}

TEST_F(places, addresses_pass_and_names_do_not)
{
    sdb_location loc{.lo_kind = LO_ADDRESS, .lo_value = 0xFFFF};
    EXPECT_TRUE(accepts(sc_static, &loc, nullptr));
    loc.lo_kind = LO_NAME;
    EXPECT_FALSE(accepts(sc_static, &loc, inner_));
}

TEST_F(places, offsets_pass_in_functions_alone)
{
    sdb_location loc{.lo_kind = LO_OFFSET, .lo_name = "x"};
    EXPECT_TRUE(accepts(sc_auto, &loc, function_));
    EXPECT_TRUE(accepts(sc_auto, &loc, inner_));
    EXPECT_FALSE(accepts(sc_auto, &loc, nullptr));
    EXPECT_FALSE(accepts(sc_auto, &loc, module_));
    outer_->sdb_parent = module_;
    EXPECT_FALSE(accepts(sc_auto, &loc, inner_));
    outer_->sdb_parent = nullptr;
    EXPECT_FALSE(accepts(sc_auto, &loc, inner_));
}

TEST_F(places, a_name_with_an_at_sign_takes_its_symbols_address)
{
    add_symbol("machine_test_f@x", 0x123, 4);
    sdb_location loc{.lo_kind = LO_OFFSET, .lo_name = "machine_test_f@x", .lo_value = 2};
    EXPECT_TRUE(accepts(sc_auto, &loc, inner_));
    EXPECT_EQ(loc.lo_kind, LO_ADDRESS);
    EXPECT_EQ(loc.lo_value, 0x123U);
    EXPECT_EQ(loc.lo_space, 4U);
}

TEST_F(places, an_offset_stays_without_at_sign_or_symbol)
{
    add_symbol("machine_test_plain", 0x123, 4);
    for (const char *name : {"machine_test_plain", "machine_test_unknown@x", static_cast<const char *>(nullptr)}) {
        sdb_location loc{.lo_kind = LO_OFFSET, .lo_name = name, .lo_value = 2};
        EXPECT_TRUE(accepts(sc_auto, &loc, inner_));
        EXPECT_EQ(loc.lo_kind, LO_OFFSET);
        EXPECT_EQ(loc.lo_value, 2U);
    }
}

TEST_F(places, what_a_reentrant_function_keeps_on_its_stack_stays_there)
{
    add_symbol("machine_test_r@x", 0x123, 4);
    function_->block.bl_func->var.va_type = type_of({basic(2), element(ty_func), element(ty_qual, 0x40)});
    for (const sclass cls : {sc_auto, sc_param}) {
        sdb_location loc{.lo_kind = LO_OFFSET, .lo_name = "machine_test_r@x", .lo_value = 2};
        EXPECT_TRUE(accepts(cls, &loc, inner_));
        EXPECT_EQ(loc.lo_kind, LO_OFFSET);
    }
    sdb_location loc{.lo_kind = LO_OFFSET, .lo_name = "machine_test_r@x", .lo_value = 2};
    EXPECT_TRUE(accepts(sc_static, &loc, inner_));
    EXPECT_EQ(loc.lo_kind, LO_ADDRESS);
}

TEST_F(places, a_known_function_spares_the_search)
{
    sdb_node *variable = sdb_new_node(sc_auto, "x");
    sdb_location loc{.lo_kind = LO_OFFSET, .lo_name = "x"};
    const sdb_context in_function{.block = inner_, .function_known = true, .function = function_};
    EXPECT_TRUE(machkor.mc_check_location(variable, &loc, &in_function));
    const sdb_context in_none{.block = inner_, .function_known = true};
    EXPECT_FALSE(machkor.mc_check_location(variable, &loc, &in_none));
}

} // namespace
