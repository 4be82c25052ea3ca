// SPDX-License-Identifier: MIT
// The ELF writer: a section and a loadable program header for each segment of the model, a symbol table, and a section
// for each note-psect of the map file. What target families do differently is left to an extension.
#include "compiler/tarnwick/elf.h"

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <span>
#include <vector>

#include <sys/types.h>

#include "common/alert.h"
#include "common/trace.h"
#include "compiler/common/tmf.h"
#include "compiler/tarnwick/dwarf.h"
#include "compiler/tarnwick/dwarf_accessors.h"
#include "compiler/tarnwick/elf_dump.h"
#include "compiler/tarnwick/elf_layout.h"
#include "compiler/tarnwick/elf_osabi.h"
#include "compiler/tarnwick/encdec.h"
#include "compiler/tarnwick/format.h"
#include "compiler/tarnwick/options.h"
#include "compiler/tarnwick/sdb.h"

const extension *elf_extension = nullptr;

namespace {

constexpr std::uint32_t MESSAGE_WRITE_ERROR = 413;
constexpr std::uint32_t MESSAGE_DEBUG_WRITE_ERROR = 621;
constexpr std::uint32_t MESSAGE_NO_EXTENSION = 1302;

constexpr std::uint8_t VERBOSE_IDENTIFY = 2; // from here on a refused file says why

constexpr const extension *EXTENSIONS[] = {&elf_korh, &elf_kor, &elf_default};

std::uint8_t selected_osabi = 0; // the number for which the extension in force was selected

struct note_section {
    const char *psect;
    const char *section;
    std::uint32_t type;
};
constexpr note_section NOTE_SECTIONS[] = {
    {"codecov_info", ".codecov_info", SHT_CODECOV_INFO},
    {"codecov_info_hdr", ".codecov_info.hdr", SHT_CODECOV_INFO_HDR},
};

// --- records in output form ---------------------------------------------------------------------------------------------

struct section_header {
    std::uint32_t name = 0;
    std::uint32_t type = 0;
    std::uint32_t flags = 0;
    std::uint32_t addr = 0;
    std::uint32_t offset = 0;
    std::uint32_t size = 0;
    std::uint32_t link = 0;
    std::uint32_t info = 0;
    std::uint32_t addralign = 0;
    std::uint32_t entsize = 0;
};

struct program_header {
    std::uint32_t type = 0;
    std::uint32_t offset = 0;
    std::uint32_t vaddr = 0;
    std::uint32_t paddr = 0;
    std::uint32_t filesz = 0;
    std::uint32_t memsz = 0;
    std::uint32_t flags = 0;
    std::uint32_t align = 0;
};

// Room for one more zero-filled record at the end of a table.
std::uint8_t *append_record(std::vector<std::uint8_t> *table, std::uint32_t size)
{
    table->resize(table->size() + size);
    return table->data() + table->size() - size;
}

void push_section(elf_out *elf, const section_header &header)
{
    std::uint8_t *p = append_record(&elf->eo_sections, ELF_SECTION_SIZE);
    put32(p + SH_NAME, header.name);
    put32(p + SH_TYPE, header.type);
    put32(p + SH_FLAGS, header.flags);
    put32(p + SH_ADDR, header.addr);
    put32(p + SH_OFFSET, header.offset);
    put32(p + SH_SIZE, header.size);
    put32(p + SH_LINK, header.link);
    put32(p + SH_INFO, header.info);
    put32(p + SH_ADDRALIGN, header.addralign);
    put32(p + SH_ENTSIZE, header.entsize);
}

void put_segment(std::uint8_t *p, const program_header &header)
{
    put32(p + PH_TYPE, header.type);
    put32(p + PH_OFFSET, header.offset);
    put32(p + PH_VADDR, header.vaddr);
    put32(p + PH_PADDR, header.paddr);
    put32(p + PH_FILESZ, header.filesz);
    put32(p + PH_MEMSZ, header.memsz);
    put32(p + PH_FLAGS, header.flags);
    put32(p + PH_ALIGN, header.align);
}

void push_segment(elf_out *elf, const program_header &header)
{
    put_segment(append_record(&elf->eo_segments, ELF_SEGMENT_SIZE), header);
}

std::uint32_t section_count(const elf_out &elf)
{
    return static_cast<std::uint32_t>(elf.eo_sections.size() / ELF_SECTION_SIZE);
}

// Appends a string with its terminator, always anew; its offset.
std::uint32_t append_string(std::string *table, const char *text)
{
    const auto offset = static_cast<std::uint32_t>(table->size());
    table->append(text);
    table->push_back('\0');
    return offset;
}

// --- elements by segment number -----------------------------------------------------------------------------------------

// The elements of a segment number, in the order in which they were added.
template <typename T>
class by_segment {
public:
    void add(std::uint32_t number, T *element) { entries_.push_back({number, element}); }
    // To be called once, behind the last `add`.
    void sort() { std::stable_sort(entries_.begin(), entries_.end(), by_number); }

    std::vector<T *> of(std::uint32_t number) const
    {
        const auto range = std::equal_range(entries_.begin(), entries_.end(), entry{number, nullptr}, by_number);
        std::vector<T *> result;
        for (auto i = range.first; i != range.second; ++i) {
            result.push_back(i->element);
        }
        return result;
    }

private:
    struct entry {
        std::uint32_t number;
        T *element;
    };
    static bool by_number(const entry &left, const entry &right) { return left.number < right.number; }

    std::vector<entry> entries_;
};

by_segment<tarn_symbol> symbols_by_segment()
{
    by_segment<tarn_symbol> result;
    for (const tarn_file *file : each(file_list)) {
        for (std::uint32_t i = 0; file->fl_symbols != nullptr && i < file->fl_nsymbols; ++i) {
            result.add(file->fl_symbols[i]->sy_seg, file->fl_symbols[i]);
        }
    }
    result.sort();
    return result;
}

by_segment<const tarn_data> blocks_by_segment()
{
    by_segment<const tarn_data> result;
    for (const tarn_data *dp : each(data_list)) {
        result.add(dp->da_seg, dp);
    }
    result.sort();
    return result;
}

// --- symbols ------------------------------------------------------------------------------------------------------------

elf_symbol_type type_without_node(const tarn_symbol *symbol)
{
    return (symbol->sy_flags & SYM_DABS) != 0 ? STT_OBJECT : STT_NOTYPE;
}

// The type as the node of its name in the symbol database tells it.
elf_symbol_type symbol_type(const tarn_symbol *symbol, const sdb_node *node)
{
    if (node == nullptr) {
        return type_without_node(symbol);
    }
    switch (node->sdb_sclass) {
    case sc_extern:
    case sc_global:
    case sc_static:
        return isfunc(node->var.va_type) ? STT_FUNC : STT_OBJECT;
    case sc_auto:
    case sc_param:
        return STT_OBJECT;
    case sc_func:
        return STT_FUNC;
    case sc_module:
    case sc_asmodule:
        return STT_SECTION;
    case sc_filename:
        return STT_FILE;
    default:
        return type_without_node(symbol);
    }
}

std::uint8_t symbol_info(const tarn_symbol *symbol, const sdb_node *node)
{
    constexpr std::uint32_t BINDING_SHIFT = 4;
    const std::uint32_t binding = (symbol->sy_flags & SYM_LOCAL) != 0 ? STB_LOCAL : STB_GLOBAL;
    return static_cast<std::uint8_t>(binding << BINDING_SHIFT | symbol_type(symbol, node));
}

void add_symbol(elf_out *elf, std::uint16_t section, const tarn_symbol *symbol, const sdb_node *node)
{
    const std::uint8_t info = symbol_info(symbol, node);
    std::uint8_t *p = append_record(&elf->eo_symbols, ELF_SYMBOL_SIZE);
    put32(p + ST_NAME, append_string(&elf->eo_strtab, symbol->sy_name));
    put32(p + ST_VALUE, symbol->sy_value);
    put8(p + ST_INFO, info);
    put8(p + ST_OTHER, elf_extension->symbol_other(symbol, info));
    put16(p + ST_SHNDX, section);
}

// Symbols whose nodes are looked for together.
constexpr std::size_t SYMBOL_BATCH = 128;

void add_symbols(elf_out *elf, std::uint16_t section, std::span<tarn_symbol *const> symbols)
{
    std::vector<const char *> names;
    names.reserve(symbols.size());
    for (const tarn_symbol *symbol : symbols) {
        names.push_back(symbol->sy_name);
    }
    const std::vector<sdb_node *> nodes = sdb_find_all(names);
    for (std::size_t i = 0; i < symbols.size(); ++i) {
        add_symbol(elf, section, symbols[i], nodes[i]);
    }
}

// --- the file -----------------------------------------------------------------------------------------------------------

// One output while it is written.
class elf_file {
public:
    elf_file(std::FILE *stream, const char *path) : path_(path) { out_.eo_stream = stream; }

    void write();

private:
    void fill_header();
    void write_segments();
    void write_segment(std::uint32_t position, const tarn_segment *seg, const std::vector<const tarn_data *> &blocks);
    std::uint32_t write_blocks(const tarn_segment *seg, const std::vector<const tarn_data *> &blocks);
    void write_string_table();
    void write_symbol_table();
    void write_debug_sections();
    void write_debug_section(const dwarf_output_section *section);
    void write_notes();
    void write_note(const tmf_note *note);
    void write_section_names();
    void write_section_headers();
    void write_program_headers();
    void write_header();

    bool put(const void *bytes, std::size_t size);
    void seek(std::uint64_t position);
    std::uint32_t position() const { return static_cast<std::uint32_t>(position_); }

    elf_out out_;
    const char *path_;
    std::uint64_t position_ = 0;
    std::uint32_t off_ = ELF_HEADER_SIZE; // where the next part of the file goes
    std::uint32_t strtab_index_ = 0;
    bool write_failed_ = false;
};

bool elf_file::put(const void *bytes, std::size_t size)
{
    position_ += size;
    return size == 0 || std::fwrite(bytes, 1, size, out_.eo_stream) == size;
}

// A place far behind the end costs nothing: the file gets a hole.
void elf_file::seek(std::uint64_t position)
{
    if (position != position_) {
        write_failed_ |= fseeko(out_.eo_stream, static_cast<off_t>(position), SEEK_SET) != 0; // in a pipe, for one
        position_ = position;
    }
}

void elf_file::fill_header()
{
    std::uint8_t *p = out_.eo_header;
    std::memcpy(p + EH_MAGIC, ELF_MAGIC, sizeof ELF_MAGIC);
    put8(p + EH_CLASS, ELF_CLASS_32);
    put8(p + EH_DATA, opt_big_endian ? ELF_DATA_BIG : ELF_DATA_LITTLE);
    put8(p + EH_IDENT_VERSION, ELF_VERSION);
    put8(p + EH_OSABI, selected_osabi);
    put16(p + EH_TYPE, ELF_TYPE_EXECUTABLE);
    put16(p + EH_MACHINE, ELF_MACHINE);
    put32(p + EH_VERSION, ELF_VERSION);
    put16(p + EH_EHSIZE, ELF_HEADER_SIZE);
    put16(p + EH_PHENTSIZE, ELF_SEGMENT_SIZE);
    put16(p + EH_SHENTSIZE, ELF_SECTION_SIZE);
}

// Writes the blocks of a segment, each at its place. The result is the file's share of the segment in bytes.
std::uint32_t elf_file::write_blocks(const tarn_segment *seg, const std::vector<const tarn_data *> &blocks)
{
    std::uint32_t high = seg->sg_load;
    for (const tarn_data *dp : blocks) {
        seek(off_ + dp->da_addr - seg->sg_load);
        write_failed_ |= !put(dp->da_bytes, dp->da_len);
        high = std::max(high, dp->da_addr + dp->da_len);
    }
    return high - seg->sg_load;
}

// The divisor of a segment's addresses: its delta as one signed byte, as the file format's readers have always been given
// it, then taken to 32 bits without sign. A delta from 128 to 255 so divides by almost 2^32, and leaves 0 or 1. A delta
// whose low byte is 0 divides by 1.
std::uint32_t address_divisor(const tarn_segment *seg)
{
    const auto delta = static_cast<std::int8_t>(seg->sg_delta);
    return delta == 0 ? 1 : static_cast<std::uint32_t>(std::int32_t{delta});
}

std::uint32_t segment_access(const tarn_segment *seg)
{
    std::uint32_t flags = PF_R;
    flags |= (seg->sg_flags & PDB_WRITE) != 0 ? PF_W : 0U;
    flags |= (seg->sg_flags & PDB_EXEC) != 0 ? PF_X : 0U;
    return flags;
}

std::uint32_t section_access(const tarn_segment *seg)
{
    std::uint32_t flags = SHF_ALLOC;
    flags |= (seg->sg_flags & PDB_WRITE) != 0 ? SHF_WRITE : 0U;
    flags |= (seg->sg_flags & PDB_EXEC) != 0 ? SHF_EXECINSTR : 0U;
    flags |= tarn_seg_is_eeprom(seg) ? SHF_EEDATA : 0U;
    return flags;
}

void trace_segment(std::uint32_t position, const tarn_segment *seg, std::uint32_t divisor)
{
    constexpr const char *NAME = "elf_write";
    TRACEF(TRACE_ON, "%s: (%d, %d) Seg name: %s", NAME, static_cast<std::int32_t>(position),
           static_cast<std::int32_t>(seg->sg_index), seg->sg_name);
    TRACEF(TRACE_ON, "%s: Seg addr: %X", NAME, seg->sg_addr / divisor);
    TRACEF(TRACE_ON, "%s: Load addr: %X", NAME, seg->sg_load / divisor);
    TRACEF(TRACE_ON, "%s: Seg length (bytes): %i\n", NAME, static_cast<std::int32_t>(seg->sg_size));
}

void elf_file::write_segment(std::uint32_t position, const tarn_segment *seg,
                             const std::vector<const tarn_data *> &blocks)
{
    const std::uint32_t divisor = address_divisor(seg);
    const std::uint32_t name = append_string(&out_.eo_shstrtab, seg->sg_name);
    trace_segment(position, seg, divisor);
    const std::uint32_t filesz = write_blocks(seg, blocks);
    if (seg->sg_size != 0) {
        push_segment(&out_, {.type = PT_LOAD,
                             .offset = off_,
                             .vaddr = seg->sg_addr / divisor,
                             .paddr = seg->sg_load / divisor,
                             .filesz = filesz,
                             .memsz = seg->sg_size,
                             .flags = segment_access(seg)});
    }
    const bool no_bits = filesz == 0 && (seg->sg_flags & PDB_NOSPACE) != 0;
    push_section(&out_, {.name = name,
                         .type = no_bits ? SHT_NOBITS : SHT_PROGBITS,
                         .flags = elf_extension->section_flags(seg, filesz, section_access(seg)),
                         .addr = seg->sg_load / divisor,
                         .offset = off_,
                         .size = seg->sg_size}); // what it takes in memory; the file may hold less
    off_ += filesz;
}

void elf_file::write_segments()
{
    const by_segment<tarn_symbol> symbols = symbols_by_segment();
    const by_segment<const tarn_data> blocks = blocks_by_segment();
    elf_add_symbols(&out_, 0, symbols.of(0));
    const std::uint32_t count = seg_list.count();
    for (std::uint32_t index = 0; index < count; ++index) {
        const tarn_segment *seg = seg_list.get(index);
        write_segment(index, seg, blocks.of(index + 1));
        if (seg->sg_index != 0) { // symbols of no segment are absolute, also when a segment bears the number 0
            elf_add_symbols(&out_, index + 1, symbols.of(seg->sg_index));
        }
    }
    seek(off_);
    // A full disk may show only when the buffer goes out.
    if (write_failed_ || std::fflush(out_.eo_stream) != 0) {
        alert(MESSAGE_WRITE_ERROR, path_);
    }
}

void elf_file::write_string_table()
{
    put(out_.eo_strtab.data(), out_.eo_strtab.size());
    strtab_index_ = section_count(out_);
    push_section(&out_, {.name = append_string(&out_.eo_shstrtab, ".strtab"),
                         .type = SHT_STRTAB,
                         .offset = off_,
                         .size = position() - off_});
    off_ = position();
}

// Local and global symbols stand mixed, in the order of the sections, and sh_info stays 0.
void elf_file::write_symbol_table()
{
    put(out_.eo_symbols.data(), out_.eo_symbols.size());
    push_section(&out_, {.name = append_string(&out_.eo_shstrtab, ".symtab"),
                         .type = SHT_SYMTAB,
                         .offset = off_,
                         .size = position() - off_,
                         .link = strtab_index_,
                         .entsize = ELF_SYMBOL_SIZE});
    off_ = position();
}

void elf_file::write_debug_section(const dwarf_output_section *section)
{
    TRACEF(TRACE_ON, "%s: Writing DWARF section %s which resides at address %p and has size %u", "elf_write",
           section->name, static_cast<const void *>(section->data), section->size);
    // A full disk may show only when the buffer goes out.
    if (!put(section->data, section->size) || std::fflush(out_.eo_stream) != 0) {
        alert(MESSAGE_DEBUG_WRITE_ERROR, section->name, path_);
    }
    push_section(&out_, {.name = append_string(&out_.eo_shstrtab, section->name),
                         .type = elf_extension->debug_section_type,
                         .offset = off_,
                         .size = section->size});
    off_ += section->size;
    seek(off_);
}

void elf_file::write_debug_sections()
{
    auto sections = vector_of<dwarf_output_section *>::make();
    dwarf_write(sections);
    for (const dwarf_output_section *section : each(sections)) {
        if (section->size != 0) {
            write_debug_section(section);
        }
    }
    sections.free();
}

// Note sections are not loadable, and no program header covers them.
void elf_file::write_note(const tmf_note *note)
{
    std::string name = std::string(".") + note->tmfnp_name;
    std::uint32_t type = SHT_USER;
    for (const note_section &row : NOTE_SECTIONS) {
        if (std::strcmp(row.psect, note->tmfnp_name) == 0) {
            name = row.section;
            type = row.type;
        }
    }
    push_section(&out_, {.name = append_string(&out_.eo_shstrtab, name.c_str()),
                         .type = type,
                         .offset = off_,
                         .size = note->tmfnp_length});
    put(note->tmfnp_data, note->tmfnp_length);
    off_ = position();
}

void elf_file::write_notes()
{
    vector_of<tmf_note *> notes = tmf_notes();
    for (const tmf_note *note : each(notes)) {
        write_note(note);
    }
    notes.free();
}

void elf_file::write_section_names()
{
    const std::uint32_t name = append_string(&out_.eo_shstrtab, ".shstrtab"); // it names itself, too
    put(out_.eo_shstrtab.data(), out_.eo_shstrtab.size());
    put16(out_.eo_header + EH_SHSTRNDX, static_cast<std::uint16_t>(section_count(out_)));
    push_section(&out_, {.name = name, .type = SHT_STRTAB, .offset = off_, .size = position() - off_});
}

// The header's counts have 16 bits, and wrap when there are more.
void elf_file::write_section_headers()
{
    put32(out_.eo_header + EH_SHOFF, position());
    put16(out_.eo_header + EH_SHNUM, static_cast<std::uint16_t>(section_count(out_)));
    put(out_.eo_sections.data(), out_.eo_sections.size());
}

void elf_file::write_program_headers()
{
    const auto count = static_cast<std::uint16_t>(out_.eo_segments.size() / ELF_SEGMENT_SIZE);
    const std::uint32_t size = std::uint32_t{count} * ELF_SEGMENT_SIZE;
    put32(out_.eo_header + EH_PHOFF, position());
    put16(out_.eo_header + EH_PHNUM, count);
    // The first one describes the program headers themselves.
    put_segment(out_.eo_segments.data(), {.type = PT_PHDR, .offset = position(), .filesz = size, .memsz = size});
    put(out_.eo_segments.data(), out_.eo_segments.size());
}

void elf_file::write_header()
{
    seek(0);
    put(out_.eo_header, sizeof out_.eo_header);
}

void elf_file::write()
{
    fill_header();
    seek(ELF_HEADER_SIZE);
    out_.eo_strtab.push_back('\0');
    out_.eo_shstrtab.push_back('\0');
    push_section(&out_, {});
    push_segment(&out_, {});

    write_segments(); // and all symbols
    elf_extension->fix_header(&out_);
    write_string_table();
    write_symbol_table();
    if (enable_dwarf) {
        write_debug_sections();
    }
    write_notes();
    write_section_names();
    write_section_headers();
    write_program_headers();
    write_header();
}

bool elf_write(std::FILE *stream, const char *path)
{
    if (!elf_select_extension()) {
        alert(MESSAGE_NO_EXTENSION);
        return false;
    }
    dwarf_access = elf_extension->accessors();
    elf_file(stream, path).write();
    return true;
}

// ELF files are not read: they add nothing to the model.
bool elf_read(std::FILE *, const char *)
{
    return false;
}

// --- identification -----------------------------------------------------------------------------------------------------

PRINTF_LIKE(1, 2) bool refuse(const char *format, ...)
{
    if (opt_verbose >= VERBOSE_IDENTIFY) {
        std::va_list arguments;
        va_start(arguments, format);
        std::vfprintf(stderr, format, arguments);
        va_end(arguments);
    }
    return false;
}

// Sets the byte order in force as soon as the file tells it, also when the file is refused afterwards.
bool elf_identify(std::FILE *stream)
{
    std::uint8_t header[ELF_HEADER_SIZE];
    if (std::fread(header, 1, sizeof header, stream) != sizeof header) {
        return refuse("ELF header too short\n");
    }
    if (std::memcmp(header + EH_MAGIC, ELF_MAGIC, sizeof ELF_MAGIC) != 0) {
        return refuse("Magic number not ELF\n");
    }
    if (header[EH_CLASS] != ELF_CLASS_32) {
        return refuse("Not 32 bit ELF\n");
    }
    if (header[EH_DATA] != ELF_DATA_LITTLE && header[EH_DATA] != ELF_DATA_BIG) {
        return refuse("Not big or little-endian ELF (%d)\n", header[EH_DATA]);
    }
    opt_big_endian = header[EH_DATA] == ELF_DATA_BIG;
    if (header[EH_IDENT_VERSION] != ELF_VERSION) {
        return refuse("Unsupported ELF Version %d\n", header[EH_IDENT_VERSION]);
    }
    return true;
}

// The first row with a word of the processor option in its text, the words taken in their order; null when there is none.
const elf_osabi_row *find_osabi_row()
{
    for (const char *piece : processor_args) {
        if (piece == nullptr) {
            break;
        }
        for (const elf_osabi_row &row : elf_osabi_table) {
            if (std::strstr(row.text, piece) != nullptr) {
                return &row;
            }
        }
    }
    return nullptr;
}

} // namespace

std::uint32_t elf_find_osabi()
{
    const elf_osabi_row *row = find_osabi_row();
    const std::uint32_t osabi = row != nullptr ? row->number : 0;
    DB_ASSERT(osabi != 0, "osabi != 0");
    return osabi;
}

bool elf_select_extension()
{
    const std::uint32_t osabi = elf_find_osabi();
    for (const extension *candidate : EXTENSIONS) {
        if (candidate->is_for(osabi)) {
            elf_extension = candidate;
            selected_osabi = static_cast<std::uint8_t>(osabi);
            return true;
        }
    }
    return false;
}

void elf_add_symbols(elf_out *elf, std::uint32_t section, const std::vector<tarn_symbol *> &symbols)
{
    DB_ASSERT(elf_extension != nullptr, "NULL != extension");
    if (elf->eo_symbols.empty()) {
        append_record(&elf->eo_symbols, ELF_SYMBOL_SIZE);
    }
    const std::uint16_t field = section == 0 ? SHN_ABS : static_cast<std::uint16_t>(section);
    for (std::size_t start = 0; start < symbols.size(); start += SYMBOL_BATCH) {
        add_symbols(elf, field, std::span(symbols).subspan(start, std::min(SYMBOL_BATCH, symbols.size() - start)));
    }
}

const format_descriptor format_elf = {
    .identify = elf_identify,
    .read = elf_read,
    .write = elf_write,
    .dump = elf_dump,
    .name = "ELF/DWARF",
    .key = "elf",
    .ext = "elf",
    .binary = true,
};
