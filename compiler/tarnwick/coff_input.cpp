// SPDX-License-Identifier: MIT
// Reading of COFF records.
#include "compiler/tarnwick/coff_input.h"

#include <algorithm>
#include <cstring>

#include <sys/types.h>

#include "common/alert.h"
#include "compiler/tarnwick/encdec.h"

namespace {

constexpr std::uint32_t MESSAGE_SHORT_READ = 1037;
constexpr std::uint32_t MESSAGE_SHORT_STRING_TABLE = 1038;

// What data, line records and long names may take beside the file's own size. Sound files keep their parts apart.
constexpr std::uint64_t ALLOWANCE = std::uint64_t{16} << 20;
constexpr std::uint64_t ALLOWANCE_PER_BYTE = 4;
constexpr std::size_t FREE_NAME_LENGTH = 255; // what a name has beyond this is taken from the allowance

constexpr std::size_t STRINGS_PIECE = std::size_t{1} << 16;

constexpr std::uint32_t NAME_IN_TABLE = 0; // the first four bytes of a name field as one number

std::uint64_t size_of(std::FILE *stream)
{
    const off_t here = ::ftello(stream);
    if (here < 0 || ::fseeko(stream, 0, SEEK_END) != 0) {
        return 0;
    }
    const off_t size = ::ftello(stream);
    ::fseeko(stream, here, SEEK_SET);
    return size > 0 ? static_cast<std::uint64_t>(size) : 0;
}

} // namespace

coff_input::coff_input(std::FILE *stream)
    : stream_(stream), file_size_(size_of(stream)), allowance_(ALLOWANCE + ALLOWANCE_PER_BYTE * file_size_)
{
}

// --- bytes ----------------------------------------------------------------------------------------------------------

void coff_input::seek(std::uint32_t position)
{
    is_lost_ = ::fseeko(stream_, static_cast<off_t>(position), SEEK_SET) != 0;
}

bool coff_input::fill(std::uint8_t *out, std::size_t size)
{
    return !is_lost_ && std::fread(out, 1, size, stream_) == size;
}

bool coff_input::read(std::uint8_t *out, std::size_t size, const char *label)
{
    if (!fill(out, size)) {
        alert(MESSAGE_SHORT_READ, label);
        return false;
    }
    return true;
}

// Of parts whose number the file tells. Where they overlap beyond all sense the file counts as ended.
bool coff_input::read_part(std::uint8_t *out, std::size_t size, const char *label)
{
    if (size > allowance_) {
        alert(MESSAGE_SHORT_READ, label);
        return false;
    }
    allowance_ -= size;
    return read(out, size, label);
}

// --- records --------------------------------------------------------------------------------------------------------

bool coff_input::read_header(coff_file_header *header)
{
    std::array<std::uint8_t, COFF_HEADER_SIZE> bytes{};
    if (!read(bytes.data(), bytes.size(), "COFF header")) {
        return false;
    }
    const std::uint8_t *p = bytes.data();
    header->magic = get16(p + CFH_MAGIC);
    header->sections = get16(p + CFH_SECTIONS);
    header->dated = get32(p + CFH_DATED);
    header->symptr = get32(p + CFH_SYMPTR);
    header->nsyms = get32(p + CFH_NSYMS);
    header->opthdr = get16(p + CFH_OPTHDR);
    header->flags = get16(p + CFH_FLAGS);
    return true;
}

bool coff_input::read_optional_header(coff_optional_header *optional, const char *label)
{
    std::array<std::uint8_t, COFF_OPTIONAL_SIZE> bytes{};
    if (!read(bytes.data(), bytes.size(), label)) {
        return false;
    }
    const std::uint8_t *p = bytes.data();
    optional->magic = get16(p + COH_MAGIC);
    optional->version = get32(p + COH_VERSION);
    optional->processor = get32(p + COH_PROCESSOR);
    optional->rom_width = get32(p + COH_ROM_WIDTH);
    optional->ram_width = get32(p + COH_RAM_WIDTH);
    return true;
}

bool coff_input::read_section(coff_section_header *section)
{
    std::array<std::uint8_t, COFF_SECTION_SIZE> bytes{};
    if (!read(bytes.data(), bytes.size(), "COFF section header")) {
        return false;
    }
    const std::uint8_t *p = bytes.data();
    std::copy_n(p, COFF_NAME_SIZE, section->name.begin());
    section->paddr = get32(p + CSH_PADDR);
    section->size = get32(p + CSH_SIZE);
    section->scnptr = get32(p + CSH_SCNPTR);
    section->relptr = get32(p + CSH_RELPTR);
    section->lnnoptr = get32(p + CSH_LNNOPTR);
    section->relocs = get16(p + CSH_RELOCS);
    section->lines = get16(p + CSH_LINES);
    section->flags = get32(p + CSH_FLAGS);
    return true;
}

bool coff_input::read_data(std::uint8_t *out, std::size_t size)
{
    return read_part(out, size, "COFF data");
}

bool coff_input::read_entries(std::uint8_t *out, std::uint32_t count)
{
    return read(out, std::size_t{count} * COFF_SYMBOL_SIZE, "COFF symbol table");
}

bool coff_input::read_line(coff_line_record *line)
{
    std::array<std::uint8_t, COFF_LINE_SIZE> bytes{};
    if (!read_part(bytes.data(), bytes.size(), "COFF line number")) {
        return false;
    }
    const std::uint8_t *p = bytes.data();
    line->srcndx = get32(p + CLN_SRCNDX);
    line->line = get16(p + CLN_LINE);
    line->paddr = get32(p + CLN_PADDR);
    line->flags = get16(p + CLN_FLAGS);
    line->fcnndx = get32(p + CLN_FCNNDX);
    return true;
}

// --- names ----------------------------------------------------------------------------------------------------------

bool coff_input::read_strings(const coff_file_header &header)
{
    const std::uint32_t position = coff_strings_position(header);
    std::array<std::uint8_t, COFF_STRING_TABLE_START> size_field{};
    seek(position);
    if (!read(size_field.data(), size_field.size(), "COFF string table size")) {
        return false;
    }
    const std::size_t size = get32(size_field.data());
    if (size < COFF_STRING_TABLE_START) {
        alert(MESSAGE_SHORT_STRING_TABLE);
        return false;
    }
    seek(position);
    strings_.clear();
    strings_.reserve(std::min<std::uint64_t>(size, file_size_));
    while (strings_.size() < size) {
        const std::size_t held = strings_.size();
        const std::size_t piece = std::min(size - held, STRINGS_PIECE);
        strings_.resize(held + piece);
        if (!read(reinterpret_cast<std::uint8_t *>(strings_.data() + held), piece, "COFF string table")) {
            return false;
        }
    }
    return true;
}

std::string_view coff_input::string_at(std::uint32_t offset)
{
    if (offset >= strings_.size()) {
        return {};
    }
    const char *text = strings_.data() + offset;
    const std::size_t room = strings_.size() - offset;
    std::size_t length = ::strnlen(text, std::min(room, FREE_NAME_LENGTH));
    if (length == FREE_NAME_LENGTH) {
        const std::size_t more = ::strnlen(text + length, std::min<std::uint64_t>(room - length, allowance_));
        allowance_ -= more;
        length += more;
    }
    return {text, length};
}

std::string_view coff_input::name(const std::uint8_t *field)
{
    if (get32(field) == NAME_IN_TABLE) {
        return string_at(get32(field + CSY_STRING));
    }
    const char *text = reinterpret_cast<const char *>(field);
    return {text, ::strnlen(text, COFF_NAME_SIZE)};
}
