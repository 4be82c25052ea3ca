// SPDX-License-Identifier: MIT
// The lines of functions and of assembler files, and their records.
#include "compiler/tarnwick/coff_lines.h"

#include <algorithm>

#include "common/fileutils.h"
#include "common/trace.h"
#include "compiler/tarnwick/coff_file.h"
#include "compiler/tarnwick/encdec.h"
#include "compiler/tarnwick/machine.h"

namespace {

// What the records of a line have in common, and their addresses: from `first` to `last`, both included.
struct line_run {
    std::uint32_t srcndx;
    std::uint32_t fcnndx;
    std::uint32_t line;
    std::uint32_t first;
    std::uint32_t last;
};

std::uint64_t record_count(std::uint32_t first, std::uint32_t last)
{
    if (machine == nullptr || last < first) {
        return 0;
    }
    return (last - first) / machine->mc_min_insn + 1;
}

void write_run(const line_run &run, coff_stream *stream)
{
    const std::uint64_t count = record_count(run.first, run.last);
    std::uint32_t address = run.first;
    for (std::uint64_t i = 0; i < count; ++i) {
        std::uint8_t *record = stream->extend(COFF_LINE_SIZE);
        put32(record + CLN_SRCNDX, run.srcndx);
        put16(record + CLN_LINE, static_cast<std::uint16_t>(run.line));
        put32(record + CLN_PADDR, address);
        put32(record + CLN_FCNNDX, run.fcnndx);
        address += machine->mc_min_insn;
    }
}

// The last line of a function holds one instruction, whatever span it has in the model.
std::uint32_t last_line_end(const tarn_line *line)
{
    return machine != nullptr ? line->ln_addr + machine->mc_max_insn - 1 : line->ln_end;
}

bool line_before(const tarn_line *line, std::uint32_t number)
{
    return line->ln_line < number;
}

bool line_behind(std::uint32_t number, const tarn_line *line)
{
    return number < line->ln_line;
}

} // namespace

std::vector<tarn_file *> coff_assembler_files()
{
    std::vector<tarn_file *> files;
    for (tarn_file *file : each(file_list)) {
        if (file->fl_nlines != 0 && fileid_is_asm_fid(fileid(file->fl_name))) {
            files.push_back(file);
        }
    }
    return files;
}

coff_lines::coff_lines(const coff_sections &sections)
    : coff_sections_(&sections), sections_(sections.list.size() - sections.first_block)
{
    for (const tarn_file *file : each(file_list)) {
        file_lines_.try_emplace(file->fl_name).first->second.file = file;
    }
}

coff_lines::section_lines *coff_lines::find_section(std::uint32_t number)
{
    const std::uint32_t block = number - 1 - coff_sections_->first_block;
    return block < sections_.size() ? &sections_[block] : nullptr;
}

void coff_lines::fill(file_lines *source)
{
    if (source->is_filled) {
        return;
    }
    source->is_filled = true;
    // What lies in the table of jumps belongs to no function.
    tarn_psect *jump_table = coff.rom_width == COFF_TABLE_CALL_WIDTH ? tarn_find_psect("jmp_tab") : nullptr;
    std::uint64_t records = 0;
    source->records_before.push_back(records);
    for (std::uint32_t i = 0; i < source->file->fl_nlines; ++i) {
        const tarn_line *line = source->file->fl_lines[i];
        if (!tarn_segno_is_code(line->ln_seg) ||
            (jump_table != nullptr && tarn_psect_range_at(jump_table, line->ln_addr, false) != nullptr)) {
            continue;
        }
        source->lines.push_back(line);
        records += record_count(line->ln_addr, line->ln_end);
        source->records_before.push_back(records);
    }
}

// A function's lines stand together in those of its file, so they are no list of their own.
void coff_lines::add_lines(const coff_function &function, const file_lines &source)
{
    const sdb_block &block = function.block->block;
    const auto first = std::lower_bound(source.lines.begin(), source.lines.end(), block.bl_first, line_before);
    const auto behind = std::upper_bound(source.lines.begin(), source.lines.end(), block.bl_last, line_behind);
    section_lines *section = find_section(function.section);
    if (first >= behind || section == nullptr) {
        return;
    }
    const auto start = static_cast<std::uint32_t>(first - source.lines.begin());
    const auto end = static_cast<std::uint32_t>(behind - source.lines.begin());
    const tarn_line *last = source.lines[end - 1];
    section->functions.push_back({function.block, &*first, end - start});
    section->count += source.records_before[end - 1] - source.records_before[start];
    section->count += record_count(last->ln_addr, last_line_end(last));
}

void coff_lines::add_function(const coff_function &function)
{
    sdb_block &block = function.block->block;
    if (block.bl_first == 0) {
        return;
    }
    TRACEF(TRACE_ON, "func: %s block_file[%s]", block.bl_func->sdb_name,
           block.bl_file != nullptr ? block.bl_file : "(null)");
    if (block.bl_last == 0) {
        block.bl_last = block.bl_first;
    }
    // Names of files are found exactly here, and no two files bear the same one.
    const auto found = block.bl_file != nullptr ? file_lines_.find(block.bl_file) : file_lines_.end();
    if (found == file_lines_.end()) {
        return;
    }
    TRACEF(TRACE_ON, "\tfile: %s", found->second.file->fl_name);
    fill(&found->second);
    add_lines(function, found->second);
}

void coff_lines::build_line_lists(const std::vector<coff_function> &functions)
{
    const trace_scope scope(TRACE_ON, "build_line_lists");
    for (const coff_function &function : functions) {
        add_function(function);
    }
}

void coff_lines::add_assembler_file(const tarn_file *file)
{
    for (std::uint32_t i = 0; i < file->fl_nlines; ++i) {
        const tarn_line *line = file->fl_lines[i];
        if (line->ln_addr == 0) {
            continue; // a line at address 0 is never written
        }
        section_lines *section = find_section(vcoff_section_of(*coff_sections_, {line->ln_addr, line->ln_seg}));
        if (section != nullptr) {
            section->lines.push_back({file, line});
            section->count += record_count(line->ln_addr, line->ln_end);
        }
    }
}

void coff_lines::write(std::uint32_t block, coff_stream *stream) const
{
    for (const function_lines &function : sections_[block].functions) {
        const sdb_block &body = function.block->block;
        const tarn_file *file = tarn_find_file(body.bl_file);
        line_run run = {};
        run.srcndx = file != nullptr ? file->fl_coff_index : 0;
        run.fcnndx = body.bl_func->var.va_coff_index;
        for (std::uint32_t i = 0; i < function.line_count; ++i) {
            const tarn_line *line = function.bl_lines[i];
            run.line = line->ln_line;
            run.first = line->ln_addr;
            run.last = i + 1 == function.line_count ? last_line_end(line) : line->ln_end;
            write_run(run, stream);
        }
    }
    for (const assembler_line &entry : sections_[block].lines) {
        write_run({entry.file->fl_coff_index, 0, entry.line->ln_line, entry.line->ln_addr, entry.line->ln_end}, stream);
    }
}
