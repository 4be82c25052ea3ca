// SPDX-License-Identifier: MIT
// COFF files: identification, and reading into the program model. The symbol database is not touched: a file gives
// segments, data blocks, symbols and lines.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "common/alert.h"
#include "common/stringcache.h"
#include "compiler/tarnwick/coff.h"
#include "compiler/tarnwick/coff_file.h"
#include "compiler/tarnwick/coff_input.h"
#include "compiler/tarnwick/encdec.h"
#include "compiler/tarnwick/model.h"
#include "compiler/tarnwick/options.h"

namespace {

constexpr std::uint32_t MESSAGE_UNKNOWN_CLASS = 633;
constexpr std::uint32_t MESSAGE_ZERO_WIDTH = 639;
constexpr std::uint32_t MESSAGE_UNKNOWN_OPTIONAL_HEADER = 1043;

constexpr std::uint32_t DATA_PIECE = 16384; // the most that one data block holds

// --- settings -------------------------------------------------------------------------------------------------------

std::uint32_t unit_of_width(std::uint32_t width)
{
    constexpr std::uint32_t BYTE_BITS = 8;
    return width == 0 ? 1 : width / BYTE_BITS + (width % BYTE_BITS != 0 ? 1 : 0);
}

void take_settings(const coff_optional_header &optional)
{
    if (optional.rom_width == 0 || optional.ram_width == 0) {
        alert(MESSAGE_ZERO_WIDTH);
    }
    coff.processor = optional.processor;
    coff.rom_width = optional.rom_width;
    coff.ram_width = optional.ram_width;
    coff.rom_unit = unit_of_width(optional.rom_width);
    coff.ram_unit = unit_of_width(optional.ram_width);
}

// The byte address of a section. The program's unit is that of all sections, those of data memory too.
std::uint32_t byte_address(const coff_section_header &section)
{
    return section.paddr * coff.rom_unit;
}

// --- symbols --------------------------------------------------------------------------------------------------------

enum class symbol_use : std::uint8_t { UNKNOWN, NOTHING, LABEL, FILE };

symbol_use use_of(std::uint8_t storage_class)
{
    switch (storage_class) {
    case CSC_FILE:
        return symbol_use::FILE;
    case CSC_EXTERNAL:
    case CSC_STATIC:
    case CSC_LABEL:
        return symbol_use::LABEL;
    case CSC_NULL:
    case CSC_AUTO:
    case CSC_STRUCT_MEMBER:
    case CSC_STRUCT_TAG:
    case CSC_UNION_MEMBER:
    case CSC_UNION_TAG:
    case CSC_TYPEDEF:
    case CSC_ENUM_TAG:
    case CSC_ENUM_MEMBER:
    case CSC_REGISTER_PARAMETER:
    case CSC_BIT_FIELD:
    case CSC_AUTO_ARGUMENT:
    case CSC_BLOCK:
    case CSC_FUNCTION:
    case CSC_END_OF_STRUCT:
    case CSC_END_OF_FILE:
    case CSC_LIST:
    case CSC_SECTION:
        return symbol_use::NOTHING;
    default:
        return symbol_use::UNKNOWN;
    }
}

// --- one input ------------------------------------------------------------------------------------------------------

class coff_reader {
public:
    explicit coff_reader(std::FILE *stream) : input_(stream) {}

    // Each step is false on a failure, which it has reported; what was added stays.
    bool read()
    {
        return read_headers() && input_.read_strings(header_) && add_segments() && add_data() && add_symbols() &&
               add_lines();
    }

private:
    bool read_headers();
    bool add_segments();
    bool add_data();
    bool add_data_of(std::uint32_t number);
    bool add_symbols();
    void add_symbol(std::uint32_t index, const std::uint8_t *entry);
    bool add_lines();
    bool add_lines_of(const coff_section_header &section);
    std::uint32_t file_of(std::uint32_t index, std::uint32_t otherwise) const;

    coff_input input_;
    coff_file_header header_;
    std::vector<coff_section_header> sections_;
    std::vector<std::uint32_t> file_entries_; // their indices, ascending
    std::uint32_t current_file_ = 0;
};

// Neither magic nor version of the optional header is looked at. Without that header both widths are 0.
bool coff_reader::read_headers()
{
    if (!input_.read_header(&header_)) {
        return false;
    }
    coff_optional_header optional;
    if (header_.opthdr != COFF_OPTIONAL_SIZE) {
        alert(MESSAGE_UNKNOWN_OPTIONAL_HEADER);
    } else if (!input_.read_optional_header(&optional, "Vantrel optional header")) {
        return false;
    }
    take_settings(optional);
    return true;
}

// Segments of a COFF file are numbered from 0, data blocks by sections from 1.
bool coff_reader::add_segments()
{
    input_.seek(coff_sections_position(header_));
    for (std::uint32_t index = 0; index < header_.sections; ++index) {
        coff_section_header section;
        if (!input_.read_section(&section)) {
            return false;
        }
        sections_.push_back(section);
        tarn_segment record;
        record.sg_index = index;
        record.sg_addr = byte_address(section);
        record.sg_load = byte_address(section);
        record.sg_size = section.size;
        record.sg_name = str_cache(input_.name(section.name.data()));
        tarn_add_segment(record);
    }
    return true;
}

bool coff_reader::add_data()
{
    for (std::uint32_t number = 1; number <= sections_.size(); ++number) {
        if (!add_data_of(number)) {
            return false;
        }
    }
    return true;
}

bool coff_reader::add_data_of(std::uint32_t number)
{
    const coff_section_header &section = sections_[number - 1];
    if ((section.flags & COFF_BSS) != 0) {
        return true;
    }
    std::array<std::uint8_t, DATA_PIECE> buffer; // filled before it is looked at
    input_.seek(section.scnptr);
    for (std::uint32_t done = 0; done < section.size;) {
        const std::uint32_t length = std::min(section.size - done, DATA_PIECE);
        if (!input_.read_data(buffer.data(), length)) {
            return false;
        }
        tarn_add_data(byte_address(section) + done, length, buffer.data(), number);
        done += length;
    }
    return true;
}

// Auxiliary entries are taken for symbols; where their class byte is 0, as it should be, nothing comes of it.
bool coff_reader::add_symbols()
{
    input_.seek(header_.symptr);
    for (std::uint32_t index = 0; index < header_.nsyms; ++index) {
        std::array<std::uint8_t, COFF_SYMBOL_SIZE> entry{};
        if (!input_.read_entries(entry.data(), 1)) {
            return false;
        }
        add_symbol(index, entry.data());
    }
    return true;
}

void coff_reader::add_symbol(std::uint32_t index, const std::uint8_t *entry)
{
    const std::uint8_t storage_class = entry[CSY_CLASS];
    switch (use_of(storage_class)) {
    case symbol_use::FILE:
        // A file goes by the entry's own name, which usually is ".file". What the auxiliary entry names isn't read.
        current_file_ = tarn_add_file(str_cache(input_.name(entry)));
        file_entries_.push_back(index);
        break;
    case symbol_use::LABEL: {
        tarn_symbol record;
        record.sy_file = current_file_;
        record.sy_value = get32(entry + CSY_VALUE);
        record.sy_seg = get16(entry + CSY_SECTION); // also where it is no section's number
        record.sy_name = str_cache(input_.name(entry));
        tarn_add_symbol(record);
        break;
    }
    case symbol_use::UNKNOWN:
        alert(MESSAGE_UNKNOWN_CLASS, static_cast<std::int8_t>(storage_class));
        break;
    case symbol_use::NOTHING:
        break;
    }
}

bool coff_reader::add_lines()
{
    for (const coff_section_header &section : sections_) {
        if (!add_lines_of(section)) {
            return false;
        }
    }
    return true;
}

bool coff_reader::add_lines_of(const coff_section_header &section)
{
    std::uint32_t file = 0;
    input_.seek(section.lnnoptr);
    for (std::uint32_t i = 0; i < section.lines; ++i) {
        coff_line_record line;
        if (!input_.read_line(&line)) {
            return false;
        }
        if (line.line == 0) {
            file = file_of(line.paddr, file);
            continue;
        }
        tarn_line record;
        record.ln_file = file;
        record.ln_addr = line.paddr;
        record.ln_flags = LN_SOURCE;
        record.ln_line = line.line;
        tarn_add_line(record);
    }
    return true;
}

// The place of a file entry among the file entries, counted from 1, counts as a file number: it is one as long as all
// entries have names of their own.
std::uint32_t coff_reader::file_of(std::uint32_t index, std::uint32_t otherwise) const
{
    const auto found = std::lower_bound(file_entries_.begin(), file_entries_.end(), index);
    return found != file_entries_.end() && *found == index
               ? static_cast<std::uint32_t>(found - file_entries_.begin()) + 1
               : otherwise;
}

} // namespace

bool vcoff_identify(std::FILE *stream)
{
    std::array<std::uint8_t, COFF_HEADER_SIZE> header{};
    if (std::fread(header.data(), 1, header.size(), stream) != header.size() ||
        byte_ops[1].get16(header.data() + CFH_MAGIC) != COFF_MAGIC) {
        return false;
    }
    opt_big_endian = false; // stays so, even if the file is refused below
    return get16(header.data() + CFH_SECTIONS) <= COFF_SECTIONS_MAX &&
           static_cast<std::int32_t>(get32(header.data() + CFH_SYMPTR)) >= 0 &&
           static_cast<std::int32_t>(get32(header.data() + CFH_NSYMS)) >= 0;
}

bool vcoff_read(std::FILE *stream, const char *)
{
    return coff_reader(stream).read();
}
