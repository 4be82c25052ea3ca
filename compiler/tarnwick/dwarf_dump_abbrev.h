// SPDX-License-Identifier: MIT
// The abbreviations as the dump of entries looks them up.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <unordered_map>
#include <vector>

#include "compiler/tarnwick/dump_allowance.h"
#include "compiler/tarnwick/dwarf_dump_text.h"

struct attribute_pair {
    std::uint32_t attribute = 0;
    std::uint32_t form = 0;

    bool ends() const { return attribute == 0 && form == 0; }
};

struct abbreviation {
    std::size_t first_pair = 0;
    std::size_t last_pair = 0; // behind it
    std::uint32_t tag = 0;
    std::uint8_t children = 0;
};

// The tables of a section. Each is read once, as far as numbers have been asked for, however often units come back to
// it. Where the tables of a damaged file overlap, the reading is cut by an allowance, and what it would have found
// counts as missing.
class abbreviation_tables {
public:
    explicit abbreviation_tables(dwarf_bytes_view section) : section_(section), allowance_(section.size()) {}

    // The table that starts at this place of the section becomes that of the look-ups.
    void open(std::size_t offset);
    // Null for 0, and for a number that the table does not hold; the first entry of a number counts. It lasts up to the
    // next call.
    const abbreviation *dwarf_abbrev_locate_entry(std::uint32_t number);
    std::span<const attribute_pair> pairs(const abbreviation &entry) const
    {
        return {pairs_.data() + entry.first_pair, entry.last_pair - entry.first_pair};
    }

private:
    struct table {
        std::size_t read_to = 0;
        std::vector<abbreviation> counted; // numbers from 1 on, as compilers give them
    };

    const abbreviation *read_up_to(std::uint32_t number);
    const abbreviation *keep(std::uint32_t number, const abbreviation &entry);
    std::uint64_t other_key(std::uint32_t number) const;

    dwarf_bytes_view section_;
    dump_allowance allowance_;
    std::vector<attribute_pair> pairs_;
    std::unordered_map<std::size_t, table> tables_;          // by their places; only looked up in
    std::unordered_map<std::uint64_t, abbreviation> others_; // those out of order; only looked up in
    table *table_ = nullptr;
    std::size_t table_offset_ = 0;
};
