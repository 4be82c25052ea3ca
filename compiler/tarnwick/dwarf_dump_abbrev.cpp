// SPDX-License-Identifier: MIT
// Reading abbreviations, for their dump and for that of the entries that are laid out by them.
#include "compiler/tarnwick/dwarf_dump_abbrev.h"

#include "compiler/tarnwick/dwarf_dump_sections.h"
#include "compiler/tarnwick/dwarf_name_tables.h"
#include "compiler/tarnwick/dwarf_names.h"

namespace {

constexpr std::size_t NUMBER_WIDTH = 4;
constexpr std::size_t TAG_WIDTH = 25;
constexpr std::uint32_t WORD_BITS = 32;

// The next pair of an entry.
attribute_pair dwarf_abbrev_next_attribute(dwarf_cursor &at)
{
    const auto attribute = static_cast<std::uint32_t>(at.uleb());
    const auto form = static_cast<std::uint32_t>(at.uleb());
    return {attribute, form};
}

std::string_view children_text(std::uint8_t children)
{
    switch (children) {
    case DW_CHILDREN_yes:
        return "[has children]";
    case DW_CHILDREN_no:
        return "[no children]";
    default:
        return "[not known]";
    }
}

// The pairs of an entry, up to the pair 0, 0.
void dump_attribute_pairs(dwarf_text &out, dwarf_cursor &at)
{
    for (;;) {
        const attribute_pair pair = dwarf_abbrev_next_attribute(at);
        if (at.failed() || pair.ends()) {
            return;
        }
        out.text("    ").text(dwarf_name_padded(dwarf_attribute_names, pair.attribute, true, DWARF_ATTRIBUTE_WIDTH));
        out.text(" ").text(dwarf_name(dwarf_form_names, pair.form, true)).text("\n");
    }
}

} // namespace

void abbreviation_tables::open(std::size_t offset)
{
    const auto [place, added] = tables_.try_emplace(offset);
    table_ = &place->second;
    table_offset_ = offset;
    if (added) {
        table_->read_to = offset;
    }
}

const abbreviation *abbreviation_tables::dwarf_abbrev_locate_entry(std::uint32_t number)
{
    if (number == 0) {
        return nullptr;
    }
    if (number <= table_->counted.size()) {
        return &table_->counted[number - 1];
    }
    const auto found = others_.find(other_key(number));
    return found != others_.end() ? &found->second : read_up_to(number);
}

// Null at the end of the table. Entries that the section cuts do not count.
const abbreviation *abbreviation_tables::read_up_to(std::uint32_t number)
{
    dwarf_cursor at(section_, table_->read_to, section_.size());
    while (at.more() && !allowance_.used_up()) {
        const std::size_t start = at.offset();
        const auto read = static_cast<std::uint32_t>(at.uleb());
        if (read == 0) {
            break;
        }
        abbreviation entry;
        entry.tag = static_cast<std::uint32_t>(at.uleb());
        entry.children = at.get1();
        entry.first_pair = pairs_.size();
        for (attribute_pair pair = dwarf_abbrev_next_attribute(at); !at.failed() && !pair.ends();
             pair = dwarf_abbrev_next_attribute(at)) {
            pairs_.push_back(pair);
        }
        entry.last_pair = pairs_.size();
        if (at.failed()) {
            break;
        }
        allowance_.take(at.offset() - start);
        table_->read_to = at.offset();
        const abbreviation *kept = keep(read, entry);
        if (read == number) {
            return kept;
        }
    }
    return nullptr;
}

const abbreviation *abbreviation_tables::keep(std::uint32_t number, const abbreviation &entry)
{
    std::vector<abbreviation> &counted = table_->counted;
    if (number <= counted.size()) {
        return &counted[number - 1];
    }
    if (number == counted.size() + 1 && !others_.contains(other_key(number))) {
        return &counted.emplace_back(entry);
    }
    return &others_.try_emplace(other_key(number), entry).first->second;
}

// A section has no place beyond 32 bits.
std::uint64_t abbreviation_tables::other_key(std::uint32_t number) const
{
    return std::uint64_t{table_offset_} << WORD_BITS | number;
}

void dwarf_abbrev_dump(dwarf_text &out, dwarf_bytes_view section)
{
    out.text("\n  Number TAG\n");
    dwarf_cursor at(section);
    while (at.more()) {
        const auto number = static_cast<std::uint32_t>(at.uleb());
        if (number == 0 && !at.failed()) {
            continue;
        }
        const auto tag = static_cast<std::uint32_t>(at.uleb());
        const std::uint8_t children = at.get1();
        if (at.failed()) {
            break;
        }
        out.right_number(number, NUMBER_WIDTH).text("      ");
        out.text(dwarf_name_padded(dwarf_tag_names, tag, true, TAG_WIDTH)).text(" ");
        out.text(children_text(children)).text("\n");
        dump_attribute_pairs(out, at);
    }
    if (at.failed()) {
        out.warn_on_stderr("WARNING: content of .dwarf_abbrev goes beyond the section limit.\n");
    }
}
