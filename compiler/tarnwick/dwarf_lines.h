// SPDX-License-Identifier: MIT
// The source files of one compile unit, and the unit's line program, which is made from them and the model's line records.
#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "compiler/tarnwick/model.h"

// A source file of the unit.
struct dwarf_file {
    std::uint32_t df_number = 0;   // place in the table from 1, which declarations carry
    const char *df_name = nullptr; // base name, cached
    std::uint32_t df_dir = 0;      // index of its directory; 0 for none
    std::uint32_t df_time = 0;     // always 0, as is the size
    std::uint32_t df_size = 0;
    std::uint32_t df_id = 0; // number of the model's file; 0 when it has none
};

// Files are told apart by their base names: two of one name in different directories are one file to a unit.
struct dwarf_file_table {
    std::vector<dwarf_file> files;
    std::vector<const char *> directories{""}; // cached; the first stands for the compilation directory
    // Cached names to places above.
    std::unordered_map<const char *, std::uint32_t> number_of_written_name;
    std::unordered_map<const char *, std::uint32_t> number_of_base_name;
    std::unordered_map<const char *, std::uint32_t> index_of_directory;
};

// The number of the file of this cached name, which is made absolute; a new file is added.
std::uint32_t dwarf_file_number(dwarf_file_table *table, const char *name);

// Between these two the order of the model's lines is kept from unit to unit; the lines must not change.
void lnno_start_run();
void lnno_finish_run();
// Writes the line program of a unit with these files; its offset in .debug_line.
std::uint32_t lnno_compile_unit(const dwarf_file_table &table);
