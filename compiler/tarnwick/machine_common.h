// SPDX-License-Identifier: MIT
// What the two machine descriptions are made from.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "compiler/tarnwick/machine.h"

// The predefined basic types, in the order in which they stand in the global block. The machines differ in "v" alone.
constexpr std::array<machine_basic, 19> machine_basic_types(std::uint8_t void_size)
{
    return {{
        {"i", 2, TE_SIGNED},    {"s", 2, TE_SIGNED},       {"c", 1, TE_SIGNED},    {"m", 3, TE_SIGNED},
        {"l", 4, TE_SIGNED},    {"o", 8, TE_SIGNED},       {"ui", 2, TE_UNSIGNED}, {"us", 2, TE_UNSIGNED},
        {"uc", 1, TE_UNSIGNED}, {"um", 3, TE_UNSIGNED},    {"ul", 4, TE_UNSIGNED}, {"uo", 8, TE_UNSIGNED},
        {"f", 3, TE_FLOAT}, // "f" and "d" are set for each database read
        {"d", 4, TE_FLOAT},     {"x", 2, TE_SIGNED},       {"ux", 2, TE_UNSIGNED}, {"a", 1, TE_BIT},
        {"b", 0, TE_BIT},       {"v", void_size, TE_VOID},
    }};
}

// Whether one of the family's name parts occurs in a processor's name, in any case.
bool machine_name_matches(const char *processor, std::span<const char *const> parts);

// The location check of both machines; registers up to and with `register_limit` pass.
bool machine_check_location(sdb_node *variable, sdb_location *location, const sdb_context *context,
                            std::uint32_t register_limit);

// The type size of both machines; `pointer_size` takes the element of a pointer.
std::uint32_t machine_type_size(const type_record *tp, const type_element *te,
                                std::uint32_t (*pointer_size)(const type_record *tp, const type_element *te));
