// SPDX-License-Identifier: MIT
// The COFF writer: the chip's settings and the order of the file. The parts of a file are put together in memory, so that
// it is written from its start to its end.
#include <algorithm>
#include <iterator>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "common/alert.h"
#include "common/convert.h"
#include "common/osdep.h"
#include "common/trace.h"
#include "compiler/tarnwick/coff.h"
#include "compiler/tarnwick/coff_bits.h"
#include "compiler/tarnwick/coff_file.h"
#include "compiler/tarnwick/coff_lines.h"
#include "compiler/tarnwick/coff_sections.h"
#include "compiler/tarnwick/coff_stream.h"
#include "compiler/tarnwick/coff_symbols.h"
#include "compiler/tarnwick/coff_types.h"
#include "compiler/tarnwick/coff_walk.h"
#include "compiler/tarnwick/encdec.h"
#include "compiler/tarnwick/model.h"
#include "compiler/tarnwick/options.h"
#include "compiler/tarnwick/sdb.h"

namespace {

constexpr std::uint32_t MESSAGE_WRITE_ERROR = 413;
constexpr std::uint32_t MESSAGE_NO_CHIP = 600;

// --- the chip -----------------------------------------------------------------------------------------------------------

constexpr std::string_view FAMILY_PREFIX = "KOR";
constexpr std::size_t FAMILY_LENGTH_MIN = 5; // a shorter word says nothing of a width
constexpr std::uint32_t FAMILY_BYTES = 18;   // of the family whose program memory has bytes
constexpr std::uint32_t FAMILY_WIDTHS[] = {12, 14, 16};
constexpr char BYTE_CHIP = '8'; // second character of the name of a chip whose program memory has bytes
constexpr std::uint32_t BYTE_WIDTH = 8;
constexpr std::uint32_t WORD_BYTES = 2;

bool is_given(const char *text)
{
    return text != nullptr && *text != '\0';
}

bool read_processor(const char *word, std::uint32_t *processor)
{
    *processor = 0;
    if (!is_given(word)) {
        return true;
    }
    std::size_t used = 0;
    *processor = text_to_u32(word, 16, &used);
    return used != 0;
}

bool read_family(std::string_view word, coff_settings *settings)
{
    std::uint32_t family = 0;
    if (!scan_unsigned(word.substr(FAMILY_PREFIX.size()), &family)) {
        return false;
    }
    if (family == FAMILY_BYTES) {
        return true;
    }
    settings->rom_width = family;
    settings->rom_unit = WORD_BYTES;
    return std::find(std::begin(FAMILY_WIDTHS), std::end(FAMILY_WIDTHS), family) != std::end(FAMILY_WIDTHS);
}

// Takes the settings from the processor words; false when they do not tell the chip.
bool choose_settings()
{
    if (!is_given(processor_name)) {
        return false;
    }
    coff = {.processor = 0, .rom_width = BYTE_WIDTH, .ram_width = BYTE_WIDTH, .rom_unit = 1, .ram_unit = 1};
    if (!read_processor(processor_args[0], &coff.processor)) {
        return false;
    }
    const std::string_view word = processor_args[1] != nullptr ? processor_args[1] : "";
    if (word.size() >= FAMILY_LENGTH_MIN && word.starts_with(FAMILY_PREFIX)) {
        return read_family(word, &coff);
    }
    if (processor_name[1] != BYTE_CHIP) {
        coff.rom_unit = WORD_BYTES;
        coff.rom_width = 0; // not known
    }
    return true;
}

// --- one output ---------------------------------------------------------------------------------------------------------

class coff_output {
public:
    coff_output(std::FILE *stream, const char *path) : stream_(stream), path_(path) {}

    void build();
    void write();

private:
    void add_database();
    void add_labels();
    void add_lines();
    std::uint64_t place_parts();
    void write_headers();
    void write_section_header(const coff_section &section);
    void write_parts();

    coff_stream stream_;
    const char *path_;
    coff_tables tables_;
    coff_sections sections_;
    std::vector<coff_function> functions_;
    std::unique_ptr<coff_lines> lines_;
    std::uint32_t symptr_ = 0;
};

// The symbols that the symbol database tells of, and the bit variables gathered on the way.
void coff_output::add_database()
{
    coff_tags tags(&tables_);
    coff_bits bits;
    coff_walk walk = {&tables_, &sections_, &tags, &bits};
    for (std::uint32_t i = 0; sdb_global != nullptr && i < sdb_global->block.bl_count; ++i) {
        if (sdb_global->block.bl_members[i]->sdb_sclass == sc_module) {
            vcoff_walk_block(&walk, sdb_global->block.bl_members[i]);
        }
    }
    bits.write_groups(&tables_);
    if (walk.current_file != nullptr) {
        coff_append_eof(&tables_);
    }
    functions_ = std::move(walk.coff_functions);
}

// The symbols of the model that have no entry yet.
void coff_output::add_labels()
{
    for (const tarn_file *file : each(file_list)) {
        for (std::uint32_t i = 0; file->fl_symbols != nullptr && i < file->fl_nsymbols; ++i) {
            const tarn_symbol *sp = file->fl_symbols[i];
            if ((sp->sy_flags & (SYM_LOCAL | SYM_DONE)) == 0) {
                coff_entry entry = coff_make_symbol({.value = sp->sy_value, .cls = CSC_LABEL});
                vcoff_set_name(&tables_, &entry, sp->sy_name);
                coff_append(&tables_, entry);
            }
        }
    }
}

// Assembler files get their entries only here, behind all labels.
void coff_output::add_lines()
{
    lines_ = std::make_unique<coff_lines>(sections_);
    lines_->build_line_lists(functions_);
    for (tarn_file *file : coff_assembler_files()) {
        vcoff_add_file(&tables_, file->fl_name);
        coff_append_eof(&tables_);
        lines_->add_assembler_file(file);
    }
}

void coff_output::build()
{
    coff_make_sections(&sections_, &tables_);
    add_database();
    add_labels();
    add_lines();
}

// Gives data, lines and symbols their places; the size of the file.
std::uint64_t coff_output::place_parts()
{
    std::uint64_t offset =
        COFF_HEADER_SIZE + COFF_OPTIONAL_SIZE + std::uint64_t{COFF_SECTION_SIZE} * sections_.list.size();
    for (std::size_t i = sections_.first_block; i < sections_.list.size(); ++i) {
        sections_.list[i].scnptr = static_cast<std::uint32_t>(offset);
        offset += sections_.list[i].size;
    }
    for (std::size_t i = sections_.first_block; i < sections_.list.size(); ++i) {
        const std::uint64_t count = lines_->count(static_cast<std::uint32_t>(i - sections_.first_block));
        // The pointer goes by the whole count, of which the header keeps 16 bits.
        sections_.list[i].lnnoptr = count != 0 ? static_cast<std::uint32_t>(offset) : 0;
        sections_.list[i].lines = static_cast<std::uint32_t>(count);
        offset += count * COFF_LINE_SIZE;
    }
    symptr_ = static_cast<std::uint32_t>(offset);
    offset += std::uint64_t{COFF_SYMBOL_SIZE} * tables_.coff_symbols.size();
    return offset + COFF_STRING_TABLE_START + tables_.coff_strings.size();
}

void coff_output::write_section_header(const coff_section &section)
{
    std::uint8_t *p = stream_.extend(COFF_SECTION_SIZE);
    std::copy(section.name.begin(), section.name.end(), p);
    put32(p + CSH_PADDR, section.paddr);
    put32(p + CSH_SIZE, section.size);
    put32(p + CSH_SCNPTR, section.scnptr);
    put32(p + CSH_LNNOPTR, section.lnnoptr);
    put16(p + CSH_LINES, static_cast<std::uint16_t>(section.lines));
    put32(p + CSH_FLAGS, section.flags);
}

void coff_output::write_headers()
{
    std::uint8_t *header = stream_.extend(COFF_HEADER_SIZE);
    byte_ops[1].put16(header + CFH_MAGIC, COFF_MAGIC); // high byte first, whatever the byte order
    put16(header + CFH_SECTIONS, static_cast<std::uint16_t>(sections_.list.size()));
    put32(header + CFH_DATED, static_cast<std::uint32_t>(output_time()));
    put32(header + CFH_SYMPTR, symptr_);
    put32(header + CFH_NSYMS, static_cast<std::uint32_t>(tables_.coff_symbols.size()));
    put16(header + CFH_OPTHDR, COFF_OPTIONAL_SIZE);
    put16(header + CFH_FLAGS, COFF_EXECUTABLE);

    std::uint8_t *optional = stream_.extend(COFF_OPTIONAL_SIZE);
    put16(optional + COH_MAGIC, COFF_OPTIONAL_MAGIC);
    put32(optional + COH_VERSION, COFF_VERSION);
    put32(optional + COH_PROCESSOR, coff.processor);
    put32(optional + COH_ROM_WIDTH, coff.rom_width);
    put32(optional + COH_RAM_WIDTH, coff.ram_width);

    for (const coff_section &section : sections_.list) {
        write_section_header(section);
    }
}

void coff_output::write_parts()
{
    for (const coff_section &section : sections_.list) {
        if (section.block != nullptr) {
            stream_.put(section.block->da_bytes, section.size);
        }
    }
    for (std::uint32_t block = 0; block < sections_.list.size() - sections_.first_block; ++block) {
        lines_->write(block, &stream_);
    }
    stream_.put(tables_.coff_symbols.data(), tables_.coff_symbols.size() * COFF_SYMBOL_SIZE);
    put32(stream_.extend(COFF_STRING_TABLE_START),
          static_cast<std::uint32_t>(COFF_STRING_TABLE_START + tables_.coff_strings.size()));
    stream_.put(tables_.coff_strings.data(), tables_.coff_strings.size());
}

void coff_output::write()
{
    // A file that its offsets cannot span is not begun.
    if (place_parts() > NO_INDEX) {
        alert(MESSAGE_WRITE_ERROR, path_);
        return;
    }
    write_headers();
    write_parts();
    if (!stream_.finish()) {
        alert(MESSAGE_WRITE_ERROR, path_);
    }
}

} // namespace

bool vcoff_write(std::FILE *stream, const char *path)
{
    const trace_scope scope(TRACE_ON, "vcoff_write");
    if (!choose_settings()) {
        alert(MESSAGE_NO_CHIP);
        return true; // where the report was lowered the output stays empty
    }
    opt_big_endian = false; // for all that follows, too: the order is the program's and not the file's
    coff_output output(stream, path);
    output.build();
    output.write();
    return true;
}
