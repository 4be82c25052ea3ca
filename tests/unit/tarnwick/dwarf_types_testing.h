// SPDX-License-Identifier: MIT
// What the tests of type entries share: types made by hand, and the entries that come of them.
#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "compiler/tarnwick/type.h"
#include "tests/unit/tarnwick/dwarf_tree.h"

namespace dwarf_types_testing {

inline type_element element(type_kind kind, const char *name, std::uint64_t value = 0)
{
    type_element te;
    te.te_kind = kind;
    te.te_name = name;
    te.te_value = value;
    return te;
}

inline type_element basic(const char *name, std::uint32_t te_class, std::uint8_t size, std::uint8_t bit = 0)
{
    type_element te = element(ty_basic, name);
    te.basic = {.te_class = te_class, .te_size = size, .te_bitpos = bit};
    return te;
}

// A record of elements, outermost first, as types are read.
inline type_record *type_of(const std::vector<type_element> &elements)
{
    type_record *tp = type_new();
    for (auto te = elements.rbegin(); te != elements.rend(); ++te) {
        tp = type_append(tp, *te);
    }
    return tp;
}

inline const type_element PLAIN_INT = basic("i", TE_SIGNED, 2);

// The id as it is defined.
inline std::string plain_id(const type_element *type)
{
    const type_element *bit = type;
    while (bit->te_kind == ty_qual && bit->te_index > 0) {
        --bit;
    }
    std::string id;
    for (const type_element *te = type;; --te) {
        id += te->te_name != nullptr ? te->te_name : "";
        if (te == bit && isBitType(te)) {
            id += std::to_string(te->basic.te_bitpos);
        }
        if (te->te_index == 0) {
            return id;
        }
    }
}

class type_entries : public debug_unit {
protected:
    // The entries that a static variable of this type brings with it, and its own.
    std::string entries_of_type(const std::string &type) { return entries("[v _x _x " + type + " 1 s 2 @16 ]\n"); }
    // The variable's own line.
    static std::string variable(int number, const std::string &type)
    {
        return "  #" + std::to_string(number) + " variable name=_x file=1 line=1 type=" + type +
               " location=<0310000000>\n";
    }
    static std::string no_type(const std::string &name)
    {
        return "(1293) couldn't find type for \"" + name + "\" in DWARF debugging information entry (warning)\n";
    }
};

// Writes one type at unit level, without a walk; the entries.
class single_type : public type_entries {
protected:
    std::string entry_of(const type_record *tp, bool expect_null = false)
    {
        choose(machkor);
        debug_sections sections;
        dtype_reset();
        const compile_unit_handle cu = dwarf_info_start_compile_unit(2, 0, 4);
        const dtype *dt = do_type(tp, type_top(tp), true, cu);
        EXPECT_EQ(dt == nullptr, expect_null);
        dwarf_info_finish_compile_unit(cu);
        sections.finish();
        return unit_reader(sections.info.added(), sections.abbreviations()).text();
    }
};

} // namespace dwarf_types_testing
