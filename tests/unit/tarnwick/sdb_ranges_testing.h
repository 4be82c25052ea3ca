// SPDX-License-Identifier: MIT
// What the tests of address ranges share: a small model with a tree of one module, and views of what came out.
#pragma once

#include <algorithm>
#include <iterator>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/alloc.h"
#include "common/stringcache.h"
#include "compiler/common/tmf.h"
#include "compiler/tarnwick/complete.h"
#include "compiler/tarnwick/dwarf_options.h"
#include "compiler/tarnwick/model.h"
#include "compiler/tarnwick/sdb_ranges.h"
#include "tests/unit/tarnwick/sdb_testing.h"
#include "tests/unit/tarnwick/trace_log.h"

inline constexpr const char *FILE_NAME = "/src/main.c";

using log_lines = std::vector<std::string>;

struct bounds {
    std::uint32_t low;
    std::uint32_t high;

    bool operator==(const bounds &) const = default;
};
using bounds_list = std::vector<bounds>;

inline void PrintTo(const bounds &range, std::ostream *out)
{
    *out << std::hex << range.low << "-" << range.high << std::dec;
}

struct line_address {
    std::uint32_t line;
    std::uint32_t address;
};

// A model with one file, an empty map file store, and a tree of one module.
struct world {
    world()
    {
        sdb_reset();
        opt_verbose = 0;
        model_create();
        tmf_store_create();
        dwarf_use_loclists = DWARF_USE_ALWAYS;
        sdb_global = sdb_new_node(sc_module, "");
        sdb_current = sdb_global;
        module = add(sdb_global, sc_module, FILE_NAME);
    }

    static sdb_node *add(sdb_node *block, sclass cls, const char *name)
    {
        sdb_node *node = sdb_new_node(cls, str_cache(name));
        node->sdb_parent = block;
        node->sdb_index = block->block.bl_count;
        sdb_add_member(block, node);
        return node;
    }
    static sdb_node *add_block(sdb_node *parent, std::uint32_t first, std::uint32_t last, sclass cls = sc_block)
    {
        sdb_node *node = add(parent, cls, nullptr);
        node->block.bl_first = first;
        node->block.bl_last = last;
        node->block.bl_file = FILE_NAME;
        return node;
    }
    static void add_symbol(const char *name, std::uint32_t value = 0)
    {
        tarn_symbol record;
        record.sy_name = name;
        record.sy_value = value;
        tarn_add_symbol(record);
    }
    // A function that the map file knows nothing of: its ranges are these.
    static sdb_node *add_function(sdb_node *module, const char *name, std::uint32_t first, std::uint32_t last,
                                  const bounds_list &ranges)
    {
        sdb_node *variable = add(module, sc_extern, name);
        sdb_node *function = add_block(module, first, last, sc_func);
        function->block.bl_func = variable;
        add_symbol(name);
        sdb_range **end = &function->block.bl_ranges;
        for (const bounds &range : ranges) {
            *end = xnew<sdb_range>({.low = range.low, .high = range.high});
            end = &(*end)->next;
        }
        function->block.bl_nranges = static_cast<std::uint32_t>(ranges.size());
        return function;
    }
    static sdb_location *add_location(sdb_node *variable, std::uint32_t line, std::uint32_t value,
                                      location_kind kind = LO_OFFSET)
    {
        auto *loc = xnew<sdb_location>();
        loc->lo_file = FILE_NAME;
        loc->lo_line = line;
        loc->lo_kind = kind;
        loc->lo_value = value;
        loc->lo_id = sdb_next_location_id();
        loc->lo_name = variable->sdb_name;
        if (!variable->var.va_locations) {
            variable->var.va_locations = vector_of<sdb_location *>::make();
        }
        variable->var.va_locations.push(loc);
        return loc;
    }
    // With one location at each of these lines; their values count from 0.
    static sdb_node *add_auto(sdb_node *block, const std::vector<std::uint32_t> &lines, sclass cls = sc_auto)
    {
        sdb_node *variable = add(block, cls, "x");
        for (std::uint32_t i = 0; i < lines.size(); ++i) {
            add_location(variable, lines[i], i);
        }
        return variable;
    }
    static void add_lines(const std::vector<line_address> &lines, const char *file = FILE_NAME)
    {
        for (const line_address &entry : lines) {
            tarn_add_line({.ln_file = tarn_add_file(file), .ln_addr = entry.address, .ln_line = entry.line});
        }
        distribute_by_file(0);
    }

    sdb_node *module = nullptr;
};

inline bounds_list ranges_of(const sdb_node *block)
{
    bounds_list list;
    for (const sdb_range *range = block->block.bl_ranges; range != nullptr; range = range->next) {
        list.push_back({range->low, range->high});
    }
    return list;
}

// A location by what it says of a variable: its value, and its range.
struct place {
    std::uint32_t value;
    std::uint32_t low;
    std::uint32_t high;

    bool operator==(const place &) const = default;
};
using place_list = std::vector<place>;

inline void PrintTo(const place &at, std::ostream *out)
{
    *out << at.value << ": " << std::hex << at.low << "-" << at.high << std::dec;
}

inline place_list places_of(const sdb_node *variable)
{
    place_list list;
    for (const sdb_location *loc : each(variable->var.va_locations)) {
        list.push_back({loc->lo_value, loc->lo_low, loc->lo_high});
    }
    return list;
}

class code_ranges : public testing::Test, protected world {
protected:
    ~code_ranges() override
    {
        dwarf_use_loclists = DWARF_USE_NEVER;
        sdb_reset();
    }

    // Runs the calculation; the traces in it, without those of entry and exit, are kept in `lines`, the failed
    // assertions in `failed`.
    void traced()
    {
        const trace_log log;
        sdb_calc_ranges();
        all = trace_log::lines();
        failed = trace_log::failed();
        lines.clear();
        std::copy_if(all.begin(), all.end(), std::back_inserter(lines),
                     [](const std::string &line) { return !line.starts_with("ENTER ") && !line.starts_with("EXIT "); });
    }
    // The traces from the one that begins so on, up to the list of the module's ranges.
    log_lines lines_from(const std::string &beginning) const
    {
        const auto first = std::find_if(lines.begin(), lines.end(),
                                        [&](const std::string &line) { return line.starts_with(beginning); });
        const auto end =
            std::find_if(first, lines.end(), [](const std::string &line) { return line.starts_with("Module Ranges"); });
        return {first, end};
    }

    log_lines all;
    log_lines lines;
    log_lines failed;
};

// A function of the lines 10 to 90 in three ranges: ten addresses a line, the lines 40 to 60 in the second.
class block_ranges : public code_ranges {
protected:
    block_ranges()
    {
        function = add_function(module, "_f", 10, 90, {{0x1000, 0x10FF}, {0x3000, 0x30FF}, {0x2000, 0x20FF}});
        add_lines({{10, 0x1000},
                   {20, 0x1010},
                   {30, 0x10FF},
                   {40, 0x3000},
                   {50, 0x3020},
                   {60, 0x30FF},
                   {70, 0x2000},
                   {80, 0x2020},
                   {90, 0x20FF},
                   {95, 0x9000}});
    }

    sdb_node *function;
};
