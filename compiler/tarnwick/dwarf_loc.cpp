// SPDX-License-Identifier: MIT
// Location expressions and location lists. Three operators do: a variable lies in a register, at an address or at an
// offset from the frame.
#include "compiler/tarnwick/dwarf_loc.h"

#include "compiler/tarnwick/dwarf_accessors.h"
#include "compiler/tarnwick/dwarf_names.h"

namespace {

// Small: few programs have variables in more than one place.
constexpr std::uint32_t BUFFER_SIZE = 64;
constexpr std::uint32_t BUFFER_THRESHOLD = 20; // two addresses of 8 bytes and a margin

constexpr std::uint32_t EXPRESSION_LENGTH_SIZE = 2;
// Register 31 takes the longer form, though the standard has an operator for it: chosen so.
constexpr std::uint32_t LAST_REGISTER_WITH_OPERATOR = 30;

constexpr std::uint32_t BYTE_BITS = 8;
constexpr std::uint32_t VALUE_BITS = 64;

section_info section;
std::uint8_t list_address_size = 0;

// The number is the database's, with no mapping.
std::uint32_t put_register(section_info *sec, std::uint32_t number)
{
    if (number <= LAST_REGISTER_WITH_OPERATOR) {
        return dwarf_section_put1(sec, static_cast<std::uint8_t>(DW_OP_reg0 + number));
    }
    const std::uint32_t size = dwarf_section_put1(sec, DW_OP_regx);
    return size + dwarf_section_put_uleb(sec, number);
}

std::uint32_t put_expression(section_info *sec, const sdb_location *location, std::uint8_t address_size)
{
    switch (location->lo_kind) {
    case LO_REGISTER:
        return put_register(sec, location->lo_value);
    case LO_OFFSET: {
        const std::uint32_t size = dwarf_section_put1(sec, DW_OP_fbreg);
        return size + dwarf_section_put_sleb(sec, static_cast<std::int32_t>(location->lo_value));
    }
    case LO_ADDRESS:
    default: { // a name that was not resolved, among others
        const std::uint32_t size = dwarf_section_put1(sec, DW_OP_addr);
        return size + dwarf_section_put(sec, location->lo_value, address_size);
    }
    }
}

void put_pair(std::uint64_t first, std::uint64_t second)
{
    dwarf_section_ensure_enough_memory(&section);
    dwarf_section_put(&section, first, list_address_size);
    dwarf_section_put(&section, second, list_address_size);
}

} // namespace

void dwarf_loc_init(std::uint8_t address_size)
{
    dwarf_section_init(&section, BUFFER_SIZE, BUFFER_THRESHOLD);
    list_address_size = address_size;
}

std::uint32_t dwarf_loc_put_block2_location(section_info *sec, const sdb_location *location, std::uint8_t address_size)
{
    const std::uint32_t start = dwarf_section_get_size(sec);
    const std::uint32_t reserved = dwarf_section_reserve(sec, EXPRESSION_LENGTH_SIZE);
    const std::uint32_t sum = put_expression(sec, location, address_size);
    dwarf_section_patch2(sec, static_cast<std::uint16_t>(dwarf_access->dwarf_unscale_offset(sum)), start);
    return sum + reserved;
}

std::uint32_t dwarf_loc_add_list(const sdb_node *variable)
{
    dwarf_section_ensure_initalisation_and_enough_memory(&section);
    const std::uint32_t start = dwarf_section_get_size(&section);
    put_pair(dwarf_largest_address(list_address_size), 0);
    for (const sdb_location *location : each(variable->var.va_locations)) {
        // Addresses are words of 32 bits: behind the last one comes 0, at every address size.
        const std::uint32_t behind = location->lo_high + 1;
        put_pair(location->lo_low, behind);
        dwarf_loc_put_block2_location(&section, location, list_address_size);
    }
    put_pair(0, 0);
    return dwarf_access->dwarf_unscale_offset(start);
}

void dwarf_loc_finish(std::uint8_t **data, std::uint32_t *size)
{
    dwarf_section_finish(&section, data, size);
}

std::uint64_t dwarf_largest_address(std::uint8_t address_size)
{
    // A shift by all 64 bits is none, so that 8 bytes give 0 and the pair reads as the end of its list: it must stay so.
    const std::uint32_t bits = (BYTE_BITS * address_size) % VALUE_BITS;
    return (std::uint64_t{1} << bits) - 1;
}
