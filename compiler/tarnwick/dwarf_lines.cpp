// SPDX-License-Identifier: MIT
// The file table of a unit and its line program. A unit takes the line records of its own files, in the order of their
// addresses; a file that two units met has its lines in both.
#include "compiler/tarnwick/dwarf_lines.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <tuple>

#include "common/distinct_sort.h"
#include "common/osdep.h"
#include "common/stringcache.h"
#include "compiler/tarnwick/dwarf.h"
#include "compiler/tarnwick/dwarf_line.h"
#include "compiler/tarnwick/machine.h"

namespace {

constexpr std::uint8_t DEFAULT_INSTRUCTION_LENGTH = 1;

// --- the model's lines --------------------------------------------------------------------------------------------------

struct line_key {
    std::uint32_t address = 0;
    std::uint32_t line = 0;
    std::uint32_t file = 0; // number in the model
};

// Records that are equal in all three cannot be told apart, so any sort gives the same order.
bool by_address(const line_key &left, const line_key &right)
{
    return std::tie(left.address, left.line, left.file) < std::tie(right.address, right.line, right.file);
}

// The lines of each file, in the order of their addresses.
class lines_of_files {
public:
    lines_of_files() : lines_(std::size_t{file_list.count()} + 1)
    {
        for (const tarn_line *lp : each(line_list)) {
            if (lp->ln_file < lines_.size()) {
                lines_[lp->ln_file].push_back({lp->ln_addr, lp->ln_line, lp->ln_file});
            }
        }
        for (std::vector<line_key> &lines : lines_) {
            merge_runs(&lines, by_address);
        }
    }

    void append_lines_of(std::uint32_t file, std::vector<line_key> *to) const
    {
        if (file < lines_.size()) {
            const std::vector<line_key> &lines = lines_[file];
            to->insert(to->end(), lines.begin(), lines.end());
        }
    }

private:
    std::vector<std::vector<line_key>> lines_; // by file; those of 0 belong to none
};

std::optional<lines_of_files> run_lines;

// The lines of a unit, in order. They are what is left of all lines in order once those of other files are passed over.
std::vector<line_key> lines_of_unit(const std::unordered_map<std::uint32_t, std::uint32_t> &place_of_file)
{
    std::optional<lines_of_files> own;
    if (!run_lines) {
        own.emplace();
    }
    const lines_of_files &lines = run_lines ? *run_lines : *own;
    std::vector<line_key> result;
    for (const auto &[file, place] : place_of_file) {
        lines.append_lines_of(file, &result);
    }
    merge_runs(&result, by_address);
    return result;
}

// --- the file table -----------------------------------------------------------------------------------------------------

const char *absolute_name(const char *name)
{
    if (path_is_absolute(name)) {
        return name;
    }
    char *path = path_absolute(name);
    const char *cached = str_cache(path);
    std::free(path);
    return cached;
}

std::uint32_t directory_index(dwarf_file_table *table, const char *directory)
{
    if (directory == nullptr || *directory == '\0') {
        return 0;
    }
    const auto next = static_cast<std::uint32_t>(table->directories.size());
    const auto [known, is_new] = table->index_of_directory.try_emplace(directory, next);
    if (is_new) {
        table->directories.push_back(directory);
    }
    return known->second;
}

std::uint32_t number_of_path(dwarf_file_table *table, const char *name)
{
    const auto next = static_cast<std::uint32_t>(table->files.size() + 1);
    const char *base = str_basename(name);
    const auto [known, is_new] = table->number_of_base_name.try_emplace(base, next);
    if (is_new) {
        const tarn_file *of_model = tarn_find_file(name);
        table->files.push_back({.df_number = next,
                                .df_name = base,
                                .df_dir = directory_index(table, str_dirname(name)),
                                .df_id = of_model != nullptr ? of_model->fl_index : 0});
    }
    return known->second;
}

// --- the program --------------------------------------------------------------------------------------------------------

// The place in the table of each of the model's files; of several with one number the last. Files that the model does
// not know are so the file of lines that belong to none.
std::unordered_map<std::uint32_t, std::uint32_t> places_of_files(const dwarf_file_table &table)
{
    std::unordered_map<std::uint32_t, std::uint32_t> result;
    for (std::uint32_t place = 0; place < table.files.size(); ++place) {
        result[table.files[place].df_id] = place;
    }
    return result;
}

void write_directories(const dwarf_file_table &table)
{
    dwarf_line_start_include_directories_record();
    for (std::size_t i = 1; i < table.directories.size(); ++i) {
        dwarf_line_add_include_directory(table.directories[i]);
    }
    dwarf_line_finish_include_directories_record();
}

void write_file_names(const dwarf_file_table &table)
{
    dwarf_line_start_file_names_record();
    for (const dwarf_file &file : table.files) {
        dwarf_line_add_file_name(file.df_name, file.df_dir, file.df_time, file.df_size);
    }
    dwarf_line_finish_file_names_record();
}

void write_rows(line_unit_info *unit, const dwarf_file_table &table)
{
    const std::unordered_map<std::uint32_t, std::uint32_t> place_of_file = places_of_files(table);
    std::uint32_t last_index = 0;
    std::uint32_t last_address = 0;
    std::uint32_t last_line = 1;
    for (const line_key &key : lines_of_unit(place_of_file)) {
        const std::uint32_t index = place_of_file.at(key.file);
        if (index != last_index) {
            dwarf_line_set_file(index); // counted from 0, one less than the standard's number: debuggers rely on it
        }
        const std::uint32_t address_delta = key.address - last_address;
        const auto line_delta = static_cast<std::int32_t>(key.line - last_line);
        // Behind a record at address 0 the next one starts a sequence, too.
        if (last_address == 0) {
            dwarf_line_start_sequence(unit, line_delta, address_delta);
        } else {
            dwarf_line_advance_line_and_pc(unit, line_delta, address_delta);
        }
        last_address = key.address;
        last_line = key.line;
        last_index = index;
    }
}

std::uint8_t minimum_instruction_length()
{
    const auto low_byte = static_cast<std::uint8_t>(machine->mc_min_insn);
    return low_byte != 0 ? low_byte : DEFAULT_INSTRUCTION_LENGTH;
}

} // namespace

std::uint32_t dwarf_file_number(dwarf_file_table *table, const char *name)
{
    const auto [written, is_new] = table->number_of_written_name.try_emplace(name, 0);
    if (is_new) {
        written->second = number_of_path(table, absolute_name(name));
    }
    return written->second;
}

void lnno_start_run()
{
    run_lines.emplace();
}

void lnno_finish_run()
{
    run_lines.reset();
}

std::uint32_t lnno_compile_unit(const dwarf_file_table &table)
{
    line_unit_info *unit = dwarf_line_start_compile_unit_information(dwarf_get_version(), minimum_instruction_length());
    write_directories(table);
    write_file_names(table);
    dwarf_line_start_statement_program(unit);
    write_rows(unit, table);
    dwarf_line_end_sequence(unit);
    dwarf_line_finish_statement_program();
    return dwarf_line_finish_compile_unit_information(unit);
}
