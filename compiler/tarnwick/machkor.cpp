// SPDX-License-Identifier: MIT
// The machine description of the standard family.
#include "compiler/tarnwick/machine_common.h"

namespace {

// In order of the register numbers of databases, which count from 0.
constexpr machine_register registers[] = {
    {"acca", 1, {}},         {"ptra_lo", 1, {}},         {"ptra_hi", 1, {}},
    {"ptrb_lo", 1, {}},      {"ptrb_hi", 1, {}},         {"mulr_lo", 1, {}},
    {"mulr_hi", 1, {}},      {"romp_lo", 1, {}},         {"romp_hi", 1, {}},
    {"scra+0", 1, {}},       {"scra+1", 1, {}},          {"scra+2", 1, {}},
    {"scra+3", 1, {}},       {"ptra", 2, {3, 4}},        {"ptrb", 2, {5, 6}},
    {"rompreg", 2, {9, 10}}, {"mulr", 2, {7, 8}},        {"scrw0", 2, {11, 12}},
    {"scrw1", 2, {13, 14}},  {"scrt0", 3, {11, 12, 13}}, {"scrl0", 4, {11, 12, 13, 14}},
};

// Of these words "IEEE_FLT" and "IEEE_DBL" alone change anything; the rest choose the machine.
constexpr const char *words[] = {
    "AVOCET",     "NOTREGPAR",   "HARDFLOAT", "GLOBOPT",  "AUTOSTATIC", "KORB",     "KORM",
    "KORQ",       "IEEE_DBL",    "IEEE_FLT",  "KORMIDHI", "KORLOMID",   "KORZA",    "PAGED",
    "NONPAGED",   "CANREADCODE", "SPACEOPT",  "SPEEDOPT", "LITE_MODE",  "PRO_MODE", "KORME",
    "KORREGULAR", "KORMID",      "STD_MODE",  "KORBE",    "KORBIE",     "KORBCOM",
};

constexpr const char *processors[] = {"N3A", "N3B",  "N3C", "N4A", "N4B", "N4BV", "N4C", "N5A", "N5B",
                                      "N5C", "N5BV", "N6A", "KOR", "N7A", "N7B",  "N8A", "N8B", "N9A"};

constexpr auto basics = machine_basic_types(2);

// The first row with a letter and a mask counts for type strings; the dump prints every row that meets a mask.
constexpr machine_qualifier qualifiers[] = {
    {"const", 'D', 0x400000},
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
    {"__ram", 'M', 0x2000000},
};

// One above the highest row: a location with that register passes.
constexpr std::uint32_t REGISTER_LIMIT = 21;
static_assert(std::size(registers) == REGISTER_LIMIT);

// The masks of the far and const qualifiers, whose targets are out of reach of a pointer of one byte.
constexpr std::uint32_t FAR_OR_CONST = 0x400004;

// One byte, two to a far or const target.
std::uint32_t pointer_size(const type_record *tp, const type_element *te)
{
    const type_element *target = type_below(tp, te);
    const bool wide = target != nullptr && target->te_kind == ty_qual && (target->mask & FAR_OR_CONST) != 0;
    return wide ? 2 : 1;
}

bool matches(const char *processor)
{
    return machine_name_matches(processor, processors);
}

bool check_location(sdb_node *variable, sdb_location *location, const sdb_context *context)
{
    return machine_check_location(variable, location, context, REGISTER_LIMIT);
}

std::uint32_t type_size(const type_record *tp, const type_element *te)
{
    return machine_type_size(tp, te, pointer_size);
}

} // namespace

const machine_description machkor = {
    .name = "machkor",
    .mc_registers = registers,
    .mc_words = words,
    .mc_matches = matches,
    .mc_basics = basics,
    .mc_check_location = check_location,
    .mc_type_size = type_size,
    .mc_qualifiers = qualifiers,
    .mc_min_insn = 1,
    .mc_max_insn = 1,
    .mc_rom_mask = 0x400000,
    .mc_volatile_mask = 0x2,
};
