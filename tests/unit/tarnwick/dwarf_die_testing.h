// SPDX-License-Identifier: MIT
// What the tests of the walk over a module share.
#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/unit/tarnwick/dwarf_tree.h"

namespace dwarf_die_testing {

inline std::string no_type(const std::string &name)
{
    return "(1293) couldn't find type for \"" + name + "\" in DWARF debugging information entry (warning)\n";
}

inline const std::string INT = "base name=int size=2 encoding=5\n";

class die_variables : public debug_unit {
protected:
    using names = std::vector<std::string>;

    // The names that .debug_pubnames has, and for each the entry that it leads to, checked by its name.
    names public_names() const
    {
        names found;
        if (pubnames_.empty()) {
            return found;
        }
        section_cursor in(pubnames_);
        EXPECT_EQ(in.number(4), pubnames_.size() - 4);
        EXPECT_EQ(in.number(2), version_);
        EXPECT_EQ(in.number(4), info_start_);
        EXPECT_EQ(in.number(4), info_.size()) << "the unit with its length field";
        while (const std::uint64_t offset = in.number(4)) {
            found.push_back(in.text());
            const std::string entry = hex({info_.begin() + static_cast<std::ptrdiff_t>(offset), info_.end()});
            const std::string name = hex(text_bytes(found.back().c_str()));
            // The name stands behind the number of the abbreviation, and the sibling if there is one.
            EXPECT_TRUE(entry.substr(2, name.size()) == name || entry.substr(10, name.size()) == name) << found.back();
        }
        EXPECT_TRUE(in.at_end());
        return found;
    }
};

} // namespace dwarf_die_testing
