// SPDX-License-Identifier: MIT
// The machine description of the high-end family.
#include "compiler/tarnwick/machine_common.h"

namespace {

// In order of the register numbers of databases, which count from 0.
constexpr machine_register registers[] = {
    {"acca", 1, {}},         {"ptra_lo", 1, {}},    {"ptra_hi", 1, {}},  {"ptrb_lo", 1, {}},  {"ptrb_hi", 1, {}},
    {"ptrc_lo", 1, {}},      {"ptrc_hi", 1, {}},    {"romp_lo", 1, {}},  {"romp_hi", 1, {}},  {"romp_up", 1, {}},
    {"mulr_lo", 1, {}},      {"mulr_hi", 1, {}},    {"ptra", 2, {2, 3}}, {"ptrb", 2, {4, 5}}, {"ptrc", 2, {6, 7}},
    {"romp", 3, {8, 9, 10}}, {"mulr", 2, {11, 12}},
};

// Of these words "IEEE_FLT" and "IEEE_DBL" alone change anything; the rest choose the machine.
constexpr const char *words[] = {
    "AVOCET",   "NOTREGPAR",   "HARDFLOAT",   "GLOBOPT",    "AUTOSTATIC", "FAST_DBL", "IEEE_DBL",
    "IEEE_FLT", "SMALL_MODEL", "LARGE_MODEL", "SMALL_DATA", "LARGE_DATA", "LFSROK",   "EMI_BYTE",
    "EMI_WORD", "SPEEDOPT",    "SPACEOPT",    "LITE_MODE",  "STD_MODE",   "PRO_MODE",
};

constexpr const char *processors[] = {"H1A", "H1B", "H1C", "H2A"};

constexpr auto basics = machine_basic_types(0);

// The first row with a letter and a mask counts for type strings; the dump prints every row that meets a mask.
constexpr machine_qualifier qualifiers[] = {
    {"__big_endian", '0', 0},   {"const", 'C', 0x200000},      {"volatile", 'V', 0x2},
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
    {"__ram", 'M', 0x800000},   {"overlay", 'O', 0x1000000},
};

// One above the highest row: a location with that register passes.
constexpr std::uint32_t REGISTER_LIMIT = 17;
static_assert(std::size(registers) == REGISTER_LIMIT);

// Every pointer has two bytes.
std::uint32_t pointer_size([[maybe_unused]] const type_record *tp, [[maybe_unused]] const type_element *te)
{
    return 2;
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

const machine_description machkorh = {
    .name = "machkorh",
    .mc_registers = registers,
    .mc_words = words,
    .mc_matches = matches,
    .mc_basics = basics,
    .mc_check_location = check_location,
    .mc_type_size = type_size,
    .mc_qualifiers = qualifiers,
    .mc_min_insn = 2,
    .mc_max_insn = 2,
    .mc_rom_mask = 0x200000,
    .mc_volatile_mask = 0x2,
};
