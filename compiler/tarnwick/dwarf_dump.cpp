// SPDX-License-Identifier: MIT
// Finds the debugging sections of an ELF file, loads and prints them in their order.
#include "compiler/tarnwick/dwarf_dump.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <iterator>
#include <memory>

#include "common/alert.h"
#include "compiler/tarnwick/dwarf_dump_sections.h"
#include "compiler/tarnwick/elf.h"
#include "compiler/tarnwick/elf_layout.h"
#include "compiler/tarnwick/encdec.h"

namespace {

constexpr std::uint32_t MESSAGE_NO_MEMORY = 157;
constexpr std::uint32_t MESSAGE_SHORT_READ = 666;
constexpr std::uint32_t MESSAGE_NO_ABBREVIATIONS = 667;
constexpr std::uint32_t MESSAGE_BAD_HEADER = 1301;

enum section_id : std::uint8_t {
    STR,
    ABBREV,
    INFO,
    LINE,
    FRAME,
    PUBNAMES,
    PUBTYPES, // recognised, and never loaded or printed
    ARANGES,
    MACINFO,
    LOC,
    RANGES,
    SECTION_COUNT,
};

struct section_name {
    const char *name;
    const char *description;
};

// In the order of section_id.
constexpr section_name SECTION_NAMES[] = {
    {".debug_str", "string table"},
    {".debug_abbrev", "abbreviation table"},
    {".debug_info", "debug contributions"},
    {".debug_line", "line number information"},
    {".debug_frame", "call frame information"},
    {".debug_pubnames", "name lookup table"},
    {".debug_pubtypes", "name lookup table"},
    {".debug_aranges", "address range table"},
    {".debug_macinfo", "macro information"},
    {".debug_loc", "location lists"},
    {".debug_ranges", "address ranges"},
};
static_assert(std::size(SECTION_NAMES) == SECTION_COUNT);

constexpr std::size_t LONGEST_NAME = 32; // above that of every section looked for

constexpr std::string_view CONTENTS_OF = "\n\nContents of the ";
constexpr std::string_view THE_SECTION = "\n\nThe section ";
constexpr std::string_view DUMP_OF = "\n\nDump of debug contents of section ";
constexpr std::string_view SECTION_END = " section:\n";
constexpr std::string_view CONTAINS_END = " contains:\n";
constexpr std::string_view PLAIN_END = ":\n";

struct free_memory {
    void operator()(std::uint8_t *data) const { std::free(data); }
};

struct section_slot {
    const char *name = nullptr; // null for a section that the file does not have
    std::uint32_t size = 0;
    std::uint32_t offset = 0;
    std::unique_ptr<std::uint8_t[], free_memory> data;

    dwarf_bytes_view bytes() const { return {data.get(), data != nullptr ? size : 0}; }
};

class section_dump {
public:
    explicit section_dump(std::FILE *stream) : stream_(stream), out_(stdout) {}

    void find(std::span<const std::uint8_t> headers, std::string_view names);
    void run();

private:
    bool has(section_id id) const { return slots_[id].name != nullptr; }
    void fill_slot(std::string_view name, const std::uint8_t *header);
    bool load_section(section_id id);
    bool read_bytes(section_slot &slot);
    bool open(section_id id, std::string_view start, std::string_view end);
    void release(section_id id) { slots_[id].data.reset(); }
    std::uint32_t dump_entries();
    void dump_tables(std::uint32_t pointer_size);

    std::FILE *stream_;
    dwarf_text out_;
    std::array<section_slot, SECTION_COUNT> slots_;
};

void section_dump::find(std::span<const std::uint8_t> headers, std::string_view names)
{
    for (; headers.size() >= ELF_SECTION_SIZE; headers = headers.subspan(ELF_SECTION_SIZE)) {
        const std::uint32_t offset = get32(headers.data() + SH_NAME);
        if (offset >= names.size()) {
            alert(MESSAGE_BAD_HEADER);
            continue;
        }
        const std::string_view start = names.substr(offset, LONGEST_NAME);
        fill_slot(start.substr(0, start.find('\0')), headers.data());
    }
}

void section_dump::fill_slot(std::string_view name, const std::uint8_t *header)
{
    const auto *row = std::find_if(std::begin(SECTION_NAMES), std::end(SECTION_NAMES),
                                   [name](const section_name &known) { return name == known.name; });
    if (row != std::end(SECTION_NAMES)) {
        section_slot &slot = slots_[static_cast<std::size_t>(row - SECTION_NAMES)];
        slot.name = row->name;
        slot.size = get32(header + SH_SIZE);
        slot.offset = get32(header + SH_OFFSET);
    }
}

// False if the file does not hold them. Nothing is allocated for a section that cannot be there.
bool section_dump::read_bytes(section_slot &slot)
{
    if (std::fseek(stream_, 0, SEEK_END) != 0) {
        return false;
    }
    const long file_size = std::ftell(stream_);
    if (file_size < 0 || std::uint64_t{slot.offset} + slot.size > static_cast<std::uint64_t>(file_size) ||
        std::fseek(stream_, static_cast<long>(slot.offset), SEEK_SET) != 0) {
        return false;
    }
    slot.data.reset(static_cast<std::uint8_t *>(std::malloc(std::max<std::size_t>(slot.size, 1))));
    if (slot.data == nullptr) {
        alert(MESSAGE_NO_MEMORY, slot.size);
        return true;
    }
    return std::fread(slot.data.get(), 1, slot.size, stream_) == slot.size;
}

bool section_dump::load_section(section_id id)
{
    section_slot &slot = slots_[id];
    if (!read_bytes(slot)) {
        slot.data.reset();
        alert(MESSAGE_SHORT_READ, slot.name, SECTION_NAMES[id].description);
    }
    return slot.data != nullptr;
}

// Loads a section and prints its heading; false if there is nothing to dump.
bool section_dump::open(section_id id, std::string_view start, std::string_view end)
{
    if (!has(id)) {
        return false;
    }
    out_.flush(); // what may be reported stands behind what was printed
    if (!load_section(id)) {
        return false;
    }
    out_.text(start).text(slots_[id].name).text(end);
    return true;
}

std::uint32_t section_dump::dump_entries()
{
    std::uint32_t pointer_size = sizeof(std::uint32_t);
    if (open(STR, CONTENTS_OF, SECTION_END)) {
        dwarf_str_dump(out_, slots_[STR].bytes());
    }
    if (open(ABBREV, CONTENTS_OF, SECTION_END)) {
        dwarf_abbrev_dump(out_, slots_[ABBREV].bytes());
    }
    if (open(INFO, THE_SECTION, CONTAINS_END)) {
        pointer_size = dwarf_info_dump(out_, slots_[INFO].bytes(), slots_[ABBREV].bytes(), slots_[STR].bytes());
    }
    release(STR);
    release(ABBREV);
    release(INFO);
    return pointer_size;
}

void section_dump::dump_tables(std::uint32_t pointer_size)
{
    if (open(LINE, DUMP_OF, PLAIN_END)) {
        dwarf_line_dump(out_, slots_[LINE].bytes());
        release(LINE);
    }
    if (open(FRAME, THE_SECTION, CONTAINS_END)) {
        dwarf_frame_dump(out_, slots_[FRAME].bytes(), pointer_size);
        release(FRAME);
    }
    if (open(PUBNAMES, CONTENTS_OF, SECTION_END)) {
        dwarf_pubnames_dump(out_, slots_[PUBNAMES].bytes());
        release(PUBNAMES);
    }
    if (open(ARANGES, THE_SECTION, CONTAINS_END)) {
        dwarf_aranges_dump(out_, slots_[ARANGES].bytes());
        release(ARANGES);
    }
    // There is no dump of macro information; the address table's has always printed it.
    if (open(MACINFO, THE_SECTION, CONTAINS_END)) {
        dwarf_aranges_dump(out_, slots_[MACINFO].bytes());
        release(MACINFO);
    }
    if (open(LOC, CONTENTS_OF, SECTION_END)) {
        dwarf_loc_dump(out_, slots_[LOC].bytes(), pointer_size);
        release(LOC);
    }
    if (open(RANGES, CONTENTS_OF, SECTION_END)) {
        dwarf_ranges_dump(out_, slots_[RANGES].bytes(), pointer_size);
        release(RANGES);
    }
}

void section_dump::run()
{
    if (!has(INFO)) {
        out_.text("\n\nNo DWARF found\n");
        return;
    }
    out_.text("\n\nDWARF:\n");
    if (!has(ABBREV)) {
        out_.flush();
        alert(MESSAGE_NO_ABBREVIATIONS);
        return;
    }
    dump_tables(dump_entries());
}

} // namespace

void dwarf_find_secs(std::FILE *stream, std::span<const std::uint8_t> headers, std::string_view names)
{
    section_dump dump(stream);
    dump.find(headers, names);
    dump.run();
}
