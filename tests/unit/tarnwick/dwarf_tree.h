// SPDX-License-Identifier: MIT
// Compile units read back as text, one line for each entry: "#number tag attribute=value ...", indented by depth. A
// reference to a type is told by the number of the entry it leads to ("type=#3"), so that an expectation needs no
// offsets; 0 stays 0, and anything else that is no entry of the unit is "nowhere". Siblings are checked and not told, and
// the producer is left out.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "common/stringcache.h"
#include "compiler/tarnwick/dwarf.h"
#include "compiler/tarnwick/dwarf_abbrev.h"
#include "compiler/tarnwick/dwarf_aranges.h"
#include "compiler/tarnwick/dwarf_die.h"
#include "compiler/tarnwick/dwarf_info.h"
#include "compiler/tarnwick/dwarf_line.h"
#include "compiler/tarnwick/dwarf_loc.h"
#include "compiler/tarnwick/dwarf_names.h"
#include "compiler/tarnwick/dwarf_pubnames.h"
#include "compiler/tarnwick/dwarf_ranges.h"
#include "compiler/tarnwick/sdb_ranges.h"
#include "tests/unit/tarnwick/dwarf_bytes.h"
#include "tests/unit/tarnwick/fresh_model.h"
#include "tests/unit/tarnwick/sdb_testing.h"

// A little-endian section that is read from its start to its end.
class section_cursor {
public:
    explicit section_cursor(bytes content) : content_(std::move(content)) {}

    std::size_t at = 0;

    bool at_end() const { return at >= content_.size(); }
    std::uint64_t number(std::size_t size)
    {
        at += size;
        return number_at(content_, at - size, size);
    }
    std::uint64_t uleb()
    {
        std::uint64_t value = 0;
        for (unsigned shift = 0;; shift += 7) {
            const std::uint64_t group = number(1);
            value |= (group & 0x7F) << shift;
            if (group < 0x80) {
                return value;
            }
        }
    }
    std::string text()
    {
        std::string result;
        while (const std::uint64_t c = number(1)) {
            result += static_cast<char>(c);
        }
        return result;
    }
    bytes piece(std::size_t size)
    {
        at += size;
        return {content_.begin() + static_cast<std::ptrdiff_t>(at - size),
                content_.begin() + static_cast<std::ptrdiff_t>(at)};
    }

private:
    bytes content_;
};

class unit_reader {
public:
    unit_reader(const bytes &info, const bytes &abbrev) : info_(info) { read_abbreviations(abbrev); }

    // All units, in order.
    std::string text()
    {
        std::string result;
        while (!info_.at_end()) {
            result += unit();
        }
        return result;
    }

private:
    struct abbreviation {
        std::uint64_t tag = 0;
        bool has_children = false;
        std::vector<std::pair<std::uint64_t, std::uint64_t>> attributes;
    };
    struct entry {
        std::size_t offset = 0; // of the unit
        std::size_t depth = 0;
        std::size_t sibling = 0; // 0 for none
        std::size_t end = 0;     // behind its children
        std::vector<std::pair<std::string, std::string>> values;
        std::string tag;
    };

    void read_abbreviations(const bytes &abbrev)
    {
        section_cursor in(abbrev);
        while (const std::uint64_t number = in.uleb()) {
            abbreviation read;
            read.tag = in.uleb();
            read.has_children = in.number(1) != 0;
            for (;;) {
                const std::uint64_t attribute = in.uleb();
                const std::uint64_t form = in.uleb();
                if (attribute == 0 && form == 0) {
                    break;
                }
                read.attributes.emplace_back(attribute, form);
            }
            EXPECT_TRUE(abbreviations_.emplace(number, read).second) << "abbreviation " << number << " twice";
        }
        EXPECT_TRUE(in.at_end());
    }

    std::string unit()
    {
        start_ = info_.at;
        const std::size_t end = start_ + 4 + info_.number(4);
        version = info_.number(2);
        EXPECT_EQ(info_.number(4), 0U) << "offset of the abbreviations";
        address_size = info_.number(1);
        entries_.clear();
        read_entries(end);
        EXPECT_EQ(info_.at, end) << "length of the unit";
        std::string result;
        for (std::size_t i = 0; i < entries_.size(); ++i) {
            result += line(i);
        }
        return result;
    }

    void read_entries(std::size_t end)
    {
        std::vector<std::size_t> open; // entries whose children are being read
        while (info_.at < end) {
            const std::size_t offset = info_.at - start_;
            const std::uint64_t number = info_.uleb();
            if (number == 0) {
                if (open.empty()) {
                    ADD_FAILURE() << "an end of children outside of all entries";
                    return;
                }
                entries_[open.back()].end = info_.at - start_;
                open.pop_back();
                continue;
            }
            const auto known = abbreviations_.find(number);
            if (known == abbreviations_.end()) {
                ADD_FAILURE() << "unknown abbreviation " << number << " at " << offset;
                return;
            }
            entry read = read_entry(known->second);
            read.offset = offset;
            read.depth = open.size();
            entries_.push_back(read);
            if (known->second.has_children) {
                open.push_back(entries_.size() - 1);
            }
        }
        children_are_closed = open.empty();
        for (const entry &e : entries_) {
            EXPECT_TRUE(e.sibling == 0 || e.sibling == e.end) << "sibling of the entry at " << e.offset;
        }
    }

    entry read_entry(const abbreviation &how)
    {
        entry read;
        read.tag = tag_name(how.tag);
        for (const auto &[attribute, form] : how.attributes) {
            const std::string value = read_value(form);
            if (attribute == DW_AT_sibling) {
                read.sibling = std::stoul(value.substr(1));
            } else if (attribute != DW_AT_producer) {
                read.values.emplace_back(attribute_name(attribute), value);
            }
        }
        return read;
    }

    // A reference comes as "@offset".
    std::string read_value(std::uint64_t form)
    {
        switch (form) {
        case DW_FORM_addr:
            return "0x" + hexadecimal(info_.number(address_size));
        case DW_FORM_block1:
            return "<" + hex(info_.piece(info_.number(1))) + ">";
        case DW_FORM_block2:
            return "<" + hex(info_.piece(info_.number(2))) + ">";
        case DW_FORM_data1:
        case DW_FORM_flag:
            return std::to_string(info_.number(1));
        case DW_FORM_data2:
            return std::to_string(info_.number(2));
        case DW_FORM_data4:
            return std::to_string(info_.number(4));
        case DW_FORM_ref4:
            return "@" + std::to_string(info_.number(4));
        case DW_FORM_string:
            return info_.text();
        case DW_FORM_udata:
            return std::to_string(info_.uleb());
        default:
            ADD_FAILURE() << "unknown form " << form;
            return "?";
        }
    }

    std::string target(const std::string &reference) const
    {
        const std::size_t offset = std::stoul(reference.substr(1));
        for (std::size_t i = 0; i < entries_.size(); ++i) {
            if (entries_[i].offset == offset) {
                return "#" + std::to_string(i + 1);
            }
        }
        return offset == 0 ? "0" : "nowhere";
    }

    std::string line(std::size_t index) const
    {
        const entry &e = entries_[index];
        std::string result = std::string(e.depth * 2, ' ') + "#" + std::to_string(index + 1) + " " + e.tag;
        for (const auto &[name, value] : e.values) {
            result += " " + name + "=" + (value.rfind('@', 0) == 0 ? target(value) : value);
        }
        return result + "\n";
    }

    static std::string hexadecimal(std::uint64_t value)
    {
        char text[20];
        std::snprintf(text, sizeof text, "%llx", static_cast<unsigned long long>(value));
        return text;
    }

    static std::string tag_name(std::uint64_t tag)
    {
        static const std::map<std::uint64_t, std::string> names = {
            {DW_TAG_array_type, "array"},      {DW_TAG_enumeration_type, "enum"}, {DW_TAG_formal_parameter, "param"},
            {DW_TAG_lexical_block, "block"},   {DW_TAG_member, "member"},         {DW_TAG_pointer_type, "pointer"},
            {DW_TAG_compile_unit, "unit"},     {DW_TAG_structure_type, "struct"}, {DW_TAG_subroutine_type, "function"},
            {DW_TAG_typedef, "typedef"},       {DW_TAG_union_type, "union"},      {DW_TAG_subrange_type, "subrange"},
            {DW_TAG_base_type, "base"},        {DW_TAG_const_type, "const"},      {DW_TAG_enumerator, "enumerator"},
            {DW_TAG_subprogram, "subprogram"}, {DW_TAG_variable, "variable"},     {DW_TAG_volatile_type, "volatile"},
        };
        const auto known = names.find(tag);
        return known != names.end() ? known->second : "?";
    }

    static std::string attribute_name(std::uint64_t attribute)
    {
        static const std::map<std::uint64_t, std::string> names = {
            {DW_AT_location, "location"},
            {DW_AT_name, "name"},
            {DW_AT_byte_size, "size"},
            {DW_AT_bit_offset, "bit_offset"},
            {DW_AT_bit_size, "bit_size"},
            {DW_AT_stmt_list, "lines"},
            {DW_AT_low_pc, "low"},
            {DW_AT_high_pc, "high"},
            {DW_AT_language, "language"},
            {DW_AT_comp_dir, "dir"},
            {DW_AT_const_value, "value"},
            {DW_AT_inline, "inline"},
            {DW_AT_upper_bound, "upper"},
            {DW_AT_address_class, "class"},
            {DW_AT_decl_file, "file"},
            {DW_AT_decl_line, "line"},
            {DW_AT_declaration, "declaration"},
            {DW_AT_encoding, "encoding"},
            {DW_AT_external, "external"},
            {DW_AT_frame_base, "frame"},
            {DW_AT_type, "type"},
            {DW_AT_ranges, "ranges"},
            {DW_AT_data_member_location, "place"},
        };
        const auto known = names.find(attribute);
        return known != names.end() ? known->second : "?";
    }

    section_cursor info_;
    std::map<std::uint64_t, abbreviation> abbreviations_;
    std::size_t start_ = 0; // of the present unit
    std::vector<entry> entries_;

public:
    // Of the unit read last.
    std::uint64_t version = 0;
    std::uint64_t address_size = 0;
    bool children_are_closed = false;
};

// The sections as they are written from a moment on.
class debug_sections {
public:
    explicit debug_sections(std::uint8_t address_size = 4)
    {
        dwarf_abbrev_create_entries_hash();
        dwarf_info_init();
        dwarf_loc_init(address_size);
        dwarf_line_init(address_size);
        dwarf_pubnames_init();
        dwarf_aranges_init();
        dwarf_ranges_init(address_size);
        finish_abbreviations(); // what another test has left ends here
        dwarf_abbrev_create_entries_hash();
        abbrev_start_ = abbreviations_.size();
    }

    ~debug_sections()
    {
        if (!finished_) {
            finish_abbreviations();
        }
    }
    debug_sections(const debug_sections &) = delete;
    debug_sections &operator=(const debug_sections &) = delete;

    // To be called once, behind the last unit.
    void finish()
    {
        finished_ = true;
        finish_abbreviations();
        abbreviations_.erase(abbreviations_.begin(),
                             abbreviations_.begin() + static_cast<std::ptrdiff_t>(abbrev_start_));
    }
    const bytes &abbreviations() const { return abbreviations_; }

    section_mark info{dwarf_info_finalize};
    section_mark loc{dwarf_loc_finish};
    section_mark lines{dwarf_line_finalize};
    section_mark pubnames{dwarf_pubnames_finish};
    section_mark aranges{dwarf_aranges_finish};
    section_mark ranges{dwarf_ranges_finish};

private:
    void finish_abbreviations()
    {
        std::uint8_t *data = nullptr;
        std::uint32_t size = 0;
        dwarf_abbrev_destroy_entry_hash(&data, &size);
        abbreviations_.assign(data, data + size);
    }

    bytes abbreviations_;
    std::size_t abbrev_start_ = 0;
    bool finished_ = false;
};

// Databases read from text, whose modules are written as they stand: they begin with the mark of their file.
class debug_unit : public database {
protected:
    debug_unit()
    {
        fresh_model();
        dtype_reset();
    }
    ~debug_unit() override { dtype_reset(); }

    // The predefined types, as they stand in the database.
    static void add_global_types()
    {
        for (std::uint32_t i = 0; i < sdb_global->block.bl_count; ++i) {
            const sdb_node *node = member(sdb_global, i);
            if (node->sdb_sclass == sc_typedef) {
                dtype_add(str_cache(node->sdb_name), node->var.va_type, &node->var.va_type->elements[0], true);
            }
        }
    }

    // Writes modules as units, and reads the entries back.
    std::string text_of(const std::vector<sdb_node *> &modules, std::uint8_t address_size = 4)
    {
        debug_sections sections(address_size);
        add_global_types();
        for (sdb_node *module : modules) {
            EXPECT_EQ(die_compile_unit(module, address_size), 1);
        }
        sections.finish();
        info_ = sections.info.added();
        loc_ = sections.loc.added();
        lines_ = sections.lines.added();
        pubnames_ = sections.pubnames.added();
        aranges_ = sections.aranges.added();
        ranges_ = sections.ranges.added();
        info_start_ = sections.info.start();
        lines_start_ = sections.lines.start();
        unit_reader reader(info_, sections.abbreviations());
        const std::string text = reader.text();
        children_are_closed_ = reader.children_are_closed;
        version_ = reader.version;
        return text;
    }

    // The entries of a module of this text, behind the line of the unit itself.
    std::string entries(std::string_view text)
    {
        module_ = module_of(text);
        give_ranges(module_);
        return entries_of(module_);
    }
    sdb_node *module_of(std::string_view text) { return read(std::string("\"1 /p/a.c\n") + std::string(text)); }
    // The nth function of the module, counted from 1, is at 0x100 * n, with 16 bytes of code.
    static void give_ranges(sdb_node *module)
    {
        std::uint32_t start = 0;
        while (sdb_node *function = member(module, sc_func, static_cast<int>(start / 0x100 + 1))) {
            start += 0x100;
            add_range(&function->block, start, start + 0xF);
        }
    }
    std::string entries_of(sdb_node *module)
    {
        const std::string text = text_of({module});
        return text.substr(text.find('\n') + 1);
    }

    dwarf_room room_;
    sdb_node *module_ = nullptr;
    // What was added to the sections.
    bytes info_;
    bytes loc_;
    bytes lines_;
    bytes pubnames_;
    bytes aranges_;
    bytes ranges_;
    std::uint32_t info_start_ = 0;
    std::uint32_t lines_start_ = 0;
    bool children_are_closed_ = false;
    std::uint64_t version_ = 0;
};
