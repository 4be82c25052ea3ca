// SPDX-License-Identifier: MIT
// The symbols of a COFF output that come from the database.
#pragma once

#include <cstdint>
#include <vector>

#include "compiler/tarnwick/coff_bits.h"
#include "compiler/tarnwick/coff_sections.h"
#include "compiler/tarnwick/coff_symbols.h"
#include "compiler/tarnwick/coff_types.h"
#include "compiler/tarnwick/sdb.h"

// Width of the program words of the chips on which calls go through a table of jumps.
inline constexpr std::uint32_t COFF_TABLE_CALL_WIDTH = 12;

// A function as it was visited.
struct coff_function {
    sdb_node *block;
    std::uint32_t section;
};

// The part of an output that a walk fills.
struct coff_walk {
    coff_tables *tables;
    const coff_sections *sections;
    coff_tags *tags;
    coff_bits *bits;
    std::vector<coff_function> coff_functions{}; // in order of visiting
    const char *current_file = nullptr;          // the name of the open .file
};

// Writes the entries of a module.
void vcoff_walk_block(coff_walk *walk, sdb_node *module);
// Opens a source file; its record takes the index.
void vcoff_add_file(coff_tables *tables, const char *name);
void coff_append_eof(coff_tables *tables);
