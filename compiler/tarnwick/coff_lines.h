// SPDX-License-Identifier: MIT
// The line number records of a COFF output. A source line has one for each address at which an instruction of it can
// begin: debuggers look for the exact address.
#pragma once

#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "compiler/tarnwick/coff_sections.h"
#include "compiler/tarnwick/coff_stream.h"
#include "compiler/tarnwick/coff_walk.h"
#include "compiler/tarnwick/model.h"

// The files of assembler source that have lines, in the order of `file_list`.
std::vector<tarn_file *> coff_assembler_files();

class coff_lines {
public:
    explicit coff_lines(const coff_sections &sections);

    // Finds the lines of each function. A last line of 0 is mended in the function's block, behind its markers.
    void build_line_lists(const std::vector<coff_function> &functions);
    void add_assembler_file(const tarn_file *file);

    // Of the section of a data block, by the block's place: how many records it has, and the records.
    std::uint64_t count(std::uint32_t block) const { return sections_[block].count; }
    void write(std::uint32_t block, coff_stream *stream) const;

private:
    // Lines of a file that can belong to a function: those in code, sorted by line number.
    struct file_lines {
        const tarn_file *file = nullptr;
        bool is_filled = false;
        std::vector<const tarn_line *> lines;
        std::vector<std::uint64_t> records_before; // of the first n lines
    };
    struct function_lines {
        const sdb_node *block;
        const tarn_line *const *bl_lines;
        std::uint32_t line_count;
    };
    struct assembler_line {
        const tarn_file *file;
        const tarn_line *line;
    };
    struct section_lines {
        std::vector<function_lines> functions;
        std::vector<assembler_line> lines;
        std::uint64_t count = 0;
    };

    static void fill(file_lines *source);
    void add_function(const coff_function &function);
    void add_lines(const coff_function &function, const file_lines &source);
    section_lines *find_section(std::uint32_t number);

    const coff_sections *coff_sections_;
    std::vector<section_lines> sections_;                         // by place of the data block
    std::unordered_map<std::string_view, file_lines> file_lines_; // by exact name; looked up only
};
