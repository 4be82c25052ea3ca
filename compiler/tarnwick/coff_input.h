// SPDX-License-Identifier: MIT
// A COFF file as its reader and its dump see it: the records in host form, the string table, and names.
//
// Nothing in a file is believed before the bytes are there, so that memory and time follow the file's size. Parts of a
// damaged file may overlap, and many entries may share one endless name: what that can cost more than the file itself
// has comes out of an allowance that no sound file uses up.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string_view>
#include <vector>

#include "compiler/tarnwick/coff.h"

struct coff_file_header {
    std::uint16_t magic = 0; // in the byte order in force, not as it was written
    std::uint16_t sections = 0;
    std::uint32_t dated = 0; // seconds since 1970
    std::uint32_t symptr = 0;
    std::uint32_t nsyms = 0;
    std::uint16_t opthdr = 0;
    std::uint16_t flags = 0;
};

struct coff_optional_header {
    std::uint16_t magic = 0;
    std::uint32_t version = 0;
    std::uint32_t processor = 0;
    std::uint32_t rom_width = 0;
    std::uint32_t ram_width = 0;
};

using coff_name_field = std::array<std::uint8_t, COFF_NAME_SIZE>;

struct coff_section_header {
    coff_name_field name{};
    std::uint32_t paddr = 0;
    std::uint32_t size = 0;
    std::uint32_t scnptr = 0;
    std::uint32_t relptr = 0;
    std::uint32_t lnnoptr = 0;
    std::uint16_t relocs = 0;
    std::uint16_t lines = 0;
    std::uint32_t flags = 0;
};

struct coff_line_record {
    std::uint32_t srcndx = 0;
    std::uint16_t line = 0; // 0: `paddr` is a symbol index
    std::uint32_t paddr = 0;
    std::uint16_t flags = 0;
    std::uint32_t fcnndx = 0;
};

// All reads are false when the file is too short, and have raised message 1037 then. Numbers are taken in the byte
// order in force.
class coff_input {
public:
    explicit coff_input(std::FILE *stream);
    coff_input(const coff_input &) = delete;
    coff_input &operator=(const coff_input &) = delete;

    // Positions count from the start of the file. One behind its end shows at the next read.
    void seek(std::uint32_t position);

    bool read_header(coff_file_header *header); // at the start of the stream
    bool read_optional_header(coff_optional_header *optional, const char *label);
    bool read_section(coff_section_header *section);
    // A piece of a section's data.
    bool read_data(std::uint8_t *out, std::size_t size);
    // Symbol entries and auxiliary entries, as they stand in the file.
    bool read_entries(std::uint8_t *out, std::uint32_t count);
    bool read_line(coff_line_record *line);

    // Takes the string table into memory, for names; raises message 1038 as well.
    bool read_strings(const coff_file_header &header);
    // The table, its size field included, so that offsets index it.
    std::string_view strings() const { return {strings_.data(), strings_.size()}; }
    // Up to the terminator or the end of the table; empty for an offset outside. Both results live as long as the input
    // and the field.
    std::string_view string_at(std::uint32_t offset);
    // The name rule: in the field itself, or behind four zero bytes an offset in the string table.
    std::string_view name(const std::uint8_t *field);

private:
    bool fill(std::uint8_t *out, std::size_t size);
    bool read(std::uint8_t *out, std::size_t size, const char *label);
    bool read_part(std::uint8_t *out, std::size_t size, const char *label);

    std::FILE *stream_;
    std::uint64_t file_size_ = 0; // 0 when the stream has none
    std::uint64_t allowance_ = 0; // bytes
    bool is_lost_ = false;        // the last `seek` did not succeed
    std::vector<char> strings_;
};

// Where the string table stands. It wraps like every position: the fields have 32 bits.
inline std::uint32_t coff_strings_position(const coff_file_header &header)
{
    return header.symptr + header.nsyms * COFF_SYMBOL_SIZE;
}

// Where the section headers begin.
inline std::uint32_t coff_sections_position(const coff_file_header &header)
{
    return COFF_HEADER_SIZE + header.opthdr;
}
