// SPDX-License-Identifier: MIT
// Printing an ELF file: headers, symbols, strings and data; the debugging sections have a room of their own.
//
// Nothing in a file is believed before the bytes are there.
#include "compiler/tarnwick/elf_dump.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

#include "common/alert.h"
#include "common/trace.h"
#include "compiler/tarnwick/dump_allowance.h"
#include "compiler/tarnwick/dump_rows.h"
#include "compiler/tarnwick/dwarf_accessors.h"
#include "compiler/tarnwick/dwarf_dump.h"
#include "compiler/tarnwick/elf.h"
#include "compiler/tarnwick/elf_layout.h"
#include "compiler/tarnwick/elf_names.h"
#include "compiler/tarnwick/elf_osabi.h"
#include "compiler/tarnwick/encdec.h"
#include "compiler/tarnwick/options.h"

namespace {

constexpr std::uint32_t MESSAGE_SHORT_READ = 1037;
constexpr std::uint32_t MESSAGE_STRING_INDEX = 1291;
constexpr std::uint32_t MESSAGE_NO_EXTENSION = 1302;

constexpr std::uint8_t VERBOSE_SYMBOLS = 1;
constexpr std::uint8_t VERBOSE_FIELDS = 2;
constexpr std::uint8_t VERBOSE_DATA = 3;

constexpr std::size_t IDENT_SIZE = 16;
constexpr std::size_t HEX_ROW_SIZE = 16;
constexpr std::size_t WORD_DIGITS = 8;
constexpr std::size_t BYTE_DIGITS = 2;

// Widths of columns.
constexpr std::size_t NUMBER_WIDTH = 4;
constexpr std::size_t SECTION_NAME_WIDTH = 20;
constexpr std::size_t SECTION_TYPE_WIDTH = 30;
constexpr std::size_t SEGMENT_TYPE_WIDTH = 36;
constexpr std::size_t SYMBOL_NAME_WIDTH = 24;
constexpr std::size_t SYMBOL_SIZE_WIDTH = 5;
constexpr std::size_t BINDING_WIDTH = 12;
constexpr std::size_t SYMBOL_TYPE_WIDTH = 25;

constexpr std::uint32_t SYMBOLS_PIECE = 4096; // entries that are held at a time

constexpr std::string_view UNKNOWN_NAME = "(unknown)";

// --- small texts ---------------------------------------------------------------------------------------------------

std::string hex_text(std::uint32_t value)
{
    std::array<char, sizeof "0xFFFFFFFF"> text{};
    std::snprintf(text.data(), text.size(), "0x%X", static_cast<unsigned>(value));
    return text.data();
}

// The name of a number in a table whose rows are of a number and a text; with everything shown, the number behind it.
template <typename Table>
std::string name_of(const Table &table, std::uint32_t number)
{
    for (const auto &row : table) {
        if (row.number == number) {
            return opt_verbose >= VERBOSE_DATA ? row.text + (" (" + hex_text(number) + ")") : row.text;
        }
    }
    return hex_text(number);
}

// Between double quotes, those inside marked by a backslash. It need not be longer than its column.
std::string quoted(std::string_view name)
{
    std::string text = "\"";
    for (const char c : name.substr(0, SECTION_NAME_WIDTH)) {
        text += c == '"' ? "\\" : "";
        text += c;
    }
    return text + '"';
}

std::uint64_t size_of(std::FILE *stream)
{
    if (::fseeko(stream, 0, SEEK_END) != 0) {
        return 0;
    }
    const off_t size = ::ftello(stream);
    return size > 0 ? static_cast<std::uint64_t>(size) : 0;
}

// --- one dump ------------------------------------------------------------------------------------------------------

class elf_printer {
public:
    explicit elf_printer(std::FILE *stream) : stream_(stream), file_size_(size_of(stream)), allowance_(file_size_) {}

    bool print();

private:
    bool read_header();
    bool read_sections();
    bool read_segments();
    bool select_extension();

    void print_header();
    void print_table_line(const char *label, std::uint32_t count, std::uint32_t entry_size, std::uint32_t offset);
    void print_sections();
    void print_section(std::uint32_t number);
    void print_symbol_table(const std::uint8_t *section);
    void print_symbol(const std::uint8_t *entry);
    void print_strings(std::string_view table_name, std::string_view table);
    void print_section_data();
    void print_segments();
    void print_segment(std::uint32_t number);
    void print_segment_data();
    void print_data(std::uint32_t offset, std::uint32_t length);

    bool read(std::uint32_t offset, void *out, std::size_t size);
    bool read_table(std::vector<std::uint8_t> *table, std::uint32_t offset, std::size_t size, const char *label);
    std::string load_strings(const std::uint8_t *section);
    // Up to the terminator or the end of the table; unknown for an offset outside.
    std::string_view name_at(std::string_view table, std::uint32_t offset);
    std::string_view section_name(const std::uint8_t *section) { return name_at(shstrtab_, get32(section + SH_NAME)); }

    std::uint16_t field16(elf_header_offset field) const { return get16(header_.data() + field); }
    std::uint32_t field32(elf_header_offset field) const { return get32(header_.data() + field); }
    std::uint32_t section_count() const { return field16(EH_SHNUM); }
    std::uint32_t segment_count() const { return field16(EH_PHNUM); }
    const std::uint8_t *section(std::uint32_t number) const { return sections_.data() + number * ELF_SECTION_SIZE; }
    const std::uint8_t *segment(std::uint32_t number) const { return segments_.data() + number * ELF_SEGMENT_SIZE; }
    std::string segment_type(std::uint32_t number) const
    {
        return name_of(elf_segment_type_names, get32(segment(number) + PH_TYPE));
    }

    std::FILE *stream_;
    std::uint64_t file_size_;
    dump_allowance allowance_; // for data and long names
    dump_rows rows_{stdout};
    std::array<std::uint8_t, ELF_HEADER_SIZE> header_{};
    std::vector<std::uint8_t> sections_; // as they stand in the file
    std::vector<std::uint8_t> segments_;
    std::string shstrtab_;
    std::string strtab_;
    const std::uint8_t *symbol_table_ = nullptr; // the section header of the last one, once the sections are printed
};

bool elf_printer::print()
{
    // The byte order is known when the header has been read.
    if (!read_header() || !read_sections() || !read_segments()) {
        return false;
    }
    print_header();
    if (!select_extension()) {
        return false;
    }
    if (section_count() != 0) {
        print_sections();
    }
    if (opt_verbose >= VERBOSE_SYMBOLS) {
        if (symbol_table_ != nullptr) {
            print_symbol_table(symbol_table_);
        }
        print_strings(".strtab", strtab_);
        print_strings(".shstrtab", shstrtab_);
    }
    strtab_ = {}; // it may be large, and is not needed any more
    if (opt_verbose >= VERBOSE_DATA) {
        print_section_data();
    }
    print_segments();
    if (opt_verbose >= VERBOSE_DATA) {
        print_segment_data();
    }
    if (section_count() != 0) {
        dwarf_find_secs(stream_, sections_, shstrtab_);
    }
    return true;
}

// --- reading -------------------------------------------------------------------------------------------------------

bool elf_printer::read(std::uint32_t offset, void *out, std::size_t size)
{
    return ::fseeko(stream_, static_cast<off_t>(offset), SEEK_SET) == 0 && std::fread(out, 1, size, stream_) == size;
}

bool elf_printer::read_table(std::vector<std::uint8_t> *table, std::uint32_t offset, std::size_t size,
                             const char *label)
{
    table->resize(size); // at most 65535 headers
    if (size != 0 && !read(offset, table->data(), size)) {
        alert(MESSAGE_SHORT_READ, label);
        return false;
    }
    return true;
}

bool elf_printer::read_header()
{
    if (!read(0, header_.data(), header_.size())) {
        alert(MESSAGE_SHORT_READ, "ELF header");
        return false;
    }
    if (std::memcmp(header_.data(), ELF_MAGIC, sizeof ELF_MAGIC) != 0 || header_[EH_CLASS] != ELF_CLASS_32) {
        return false;
    }
    if (header_[EH_DATA] != ELF_DATA_LITTLE && header_[EH_DATA] != ELF_DATA_BIG) {
        return false;
    }
    opt_big_endian = header_[EH_DATA] == ELF_DATA_BIG;
    return header_[EH_IDENT_VERSION] == ELF_VERSION;
}

// The headers have the size of this file format, whatever the file says of it.
bool elf_printer::read_sections()
{
    if (!read_table(&sections_, field32(EH_SHOFF), std::size_t{section_count()} * ELF_SECTION_SIZE,
                    "ELF section headers")) {
        return false;
    }
    // A file without any section has no index that would do.
    if (field16(EH_SHSTRNDX) >= section_count()) {
        alert(MESSAGE_STRING_INDEX);
        return false;
    }
    shstrtab_ = load_strings(section(field16(EH_SHSTRNDX)));
    for (std::uint32_t i = 0; i < section_count(); ++i) {
        if (section_name(section(i)) == ".strtab") {
            strtab_ = load_strings(section(i));
            break;
        }
    }
    return true;
}

bool elf_printer::read_segments()
{
    return read_table(&segments_, field32(EH_PHOFF), std::size_t{segment_count()} * ELF_SEGMENT_SIZE,
                      "ELF program headers");
}

// As far as the file holds them.
std::string elf_printer::load_strings(const std::uint8_t *section)
{
    const std::uint32_t offset = get32(section + SH_OFFSET);
    const std::uint64_t held = file_size_ - std::min<std::uint64_t>(file_size_, offset);
    std::string table(static_cast<std::size_t>(std::min<std::uint64_t>(get32(section + SH_SIZE), held)), '\0');
    if (!table.empty() && !read(offset, table.data(), table.size())) {
        table.clear();
    }
    return table;
}

std::string_view elf_printer::name_at(std::string_view table, std::uint32_t offset)
{
    if (offset >= table.size()) {
        return UNKNOWN_NAME;
    }
    return allowance_.text(table.data() + offset, table.size() - offset);
}

bool elf_printer::select_extension()
{
    if (!elf_select_extension()) {
        alert(MESSAGE_NO_EXTENSION);
        return false;
    }
    dwarf_access = elf_extension->accessors();
    return true;
}

// --- the header ----------------------------------------------------------------------------------------------------

void elf_printer::print_header()
{
    rows_.text("ELF header:").end_row();
    rows_.text("\tMagic:          ").lower_hex(header_[0], BYTE_DIGITS);
    for (std::size_t i = 1; i < sizeof ELF_MAGIC; ++i) {
        const char letter = static_cast<char>(header_[i]);
        rows_.text(" '").text({&letter, 1}).text("'");
    }
    for (std::size_t i = sizeof ELF_MAGIC; i < IDENT_SIZE; ++i) {
        rows_.text(" ").lower_hex(header_[i], BYTE_DIGITS);
    }
    rows_.end_row();
    rows_.text("\tClass:          ").text(name_of(elf_class_names, header_[EH_CLASS])).end_row();
    rows_.text("\tData:           ").text(name_of(elf_data_names, header_[EH_DATA])).end_row();
    rows_.text("\tVersion:        0x").hex(header_[EH_IDENT_VERSION]).end_row();
    rows_.text("\tOS ABI:         ").text(name_of(elf_osabi_table, header_[EH_OSABI])).end_row();
    rows_.text("\tType:           ").text(name_of(elf_file_type_names, field16(EH_TYPE))).end_row();
    rows_.text("\tMachine:        ").text(name_of(elf_machine_names, field16(EH_MACHINE))).end_row();
    rows_.text("\tFlags:          0x").lower_hex(field32(EH_FLAGS)).end_row();
    print_table_line("\tProg hdrs:      ", segment_count(), field16(EH_PHENTSIZE), field32(EH_PHOFF));
    print_table_line("\tSec hdrs:       ", section_count(), field16(EH_SHENTSIZE), field32(EH_SHOFF));
    rows_.text("\tshstrtab index: 0x").hex(field16(EH_SHSTRNDX)).end_row();
    rows_.text("\tStart addr:     0x").hex(field32(EH_ENTRY)).end_row();
    rows_.end_row();
}

// The brackets hold the entry size once more.
void elf_printer::print_table_line(const char *label, std::uint32_t count, std::uint32_t entry_size,
                                   std::uint32_t offset)
{
    rows_.text(label).number(count).text(" at [0x").hex(entry_size).text("] ").number(entry_size).text(" bytes each");
    if (opt_verbose >= VERBOSE_FIELDS) {
        rows_.text(" (@ 0x").hex(offset).text("/").number(offset).text(" bytes into file)");
    }
    rows_.end_row();
}

// --- sections ------------------------------------------------------------------------------------------------------

void elf_printer::print_sections()
{
    rows_.text("No.   Name                 Type                           Address  Offset   Size     Link     ");
    rows_.text(opt_verbose >= VERBOSE_FIELDS ? "Info     Align    " : "").text("Flags").end_row();
    for (std::uint32_t i = 0; i < section_count(); ++i) {
        print_section(i);
    }
}

void elf_printer::print_section(std::uint32_t number)
{
    struct flag_name {
        std::uint32_t flag;
        const char *text;
    };
    static constexpr flag_name FLAGS[] = {
        {SHF_ALLOC, " ALLOC"}, {SHF_EXECINSTR, " EXECINSTR"}, {SHF_WRITE, " WRITE"}, {SHF_EEDATA, " EEDATA"}};
    static constexpr elf_section_offset FIELDS[] = {SH_ADDR, SH_OFFSET, SH_SIZE, SH_LINK, SH_INFO, SH_ADDRALIGN};
    constexpr std::size_t PLAIN_FIELDS = 4;

    const std::uint8_t *header = section(number);
    const std::uint32_t type = get32(header + SH_TYPE);
    // A long type loses the end of the number behind it: the column is as wide as it is.
    const std::string type_text = name_of(elf_section_type_names, type);
    rows_.hex_left(number, NUMBER_WIDTH).text("  ");
    rows_.left_field(quoted(section_name(header)).substr(0, SECTION_NAME_WIDTH), SECTION_NAME_WIDTH).text(" ");
    rows_.left_field(type_text.substr(0, SECTION_TYPE_WIDTH), SECTION_TYPE_WIDTH);
    for (std::size_t i = 0; i < (opt_verbose >= VERBOSE_FIELDS ? std::size(FIELDS) : PLAIN_FIELDS); ++i) {
        rows_.text(" ").hex(get32(header + FIELDS[i]), WORD_DIGITS, '0');
    }
    for (const flag_name &flag : FLAGS) {
        rows_.text((get32(header + SH_FLAGS) & flag.flag) != 0 ? flag.text : "");
    }
    rows_.end_row();
    if (type == SHT_SYMTAB) {
        symbol_table_ = header;
    }
}

void elf_printer::print_section_data()
{
    for (std::uint32_t i = 0; i < section_count(); ++i) {
        const std::uint8_t *header = section(i);
        const bool in_memory = (get32(header + SH_FLAGS) & SHF_ALLOC) != 0 && get32(header + SH_TYPE) != SHT_NOBITS;
        if (header != symbol_table_ && in_memory && get32(header + SH_SIZE) != 0) {
            rows_.text("\nSection Data: ").text(section_name(header)).end_row();
            print_data(get32(header + SH_OFFSET), get32(header + SH_SIZE));
            rows_.end_row();
        }
    }
}

void elf_printer::print_data(std::uint32_t offset, std::uint32_t length)
{
    const std::uint64_t held = file_size_ - std::min<std::uint64_t>(file_size_, offset);
    const std::uint64_t shown = allowance_.take(std::min<std::uint64_t>(length, held));
    elf_hex_rows(offset, static_cast<std::uint32_t>(shown), stream_);
}

// --- symbols and strings -------------------------------------------------------------------------------------------

// Entries have the size of this file format, whatever the file says of it; those that the file does not hold are left
// out.
void elf_printer::print_symbol_table(const std::uint8_t *section)
{
    const std::uint32_t entry_size = get32(section + SH_ENTSIZE);
    rows_.text("\nSymbol Table:").end_row();
    rows_.text("Symbol entry size: 0x").hex(entry_size).text("/").number(entry_size).text(" bytes").end_row();
    rows_
        .text(
            "name                          value       size   binding       type                       other  section")
        .end_row();
    if (::fseeko(stream_, static_cast<off_t>(get32(section + SH_OFFSET)), SEEK_SET) != 0) {
        return;
    }
    std::vector<std::uint8_t> piece(std::size_t{SYMBOLS_PIECE} * ELF_SYMBOL_SIZE);
    for (std::uint32_t left = get32(section + SH_SIZE) / ELF_SYMBOL_SIZE; left != 0;) {
        const std::size_t wanted = std::min(left, SYMBOLS_PIECE);
        const std::size_t count = std::fread(piece.data(), ELF_SYMBOL_SIZE, wanted, stream_);
        for (std::size_t i = 0; i < count; ++i) {
            print_symbol(piece.data() + i * ELF_SYMBOL_SIZE);
        }
        left = count == wanted ? left - static_cast<std::uint32_t>(count) : 0;
    }
}

void elf_printer::print_symbol(const std::uint8_t *entry)
{
    constexpr std::uint8_t TYPE_BITS = 4;
    constexpr std::uint8_t TYPE_MASK = 0xF;
    const std::uint8_t info = entry[ST_INFO];
    rows_.text("\t").left_field(name_at(strtab_, get32(entry + ST_NAME)), SYMBOL_NAME_WIDTH);
    rows_.text("  0x").hex(get32(entry + ST_VALUE), WORD_DIGITS, '0').text("  ");
    const auto size = static_cast<std::int32_t>(get32(entry + ST_SIZE));
    rows_.left_field(std::to_string(size), SYMBOL_SIZE_WIDTH);
    rows_.text("  ").left_field(name_of(elf_binding_names, info >> TYPE_BITS), BINDING_WIDTH);
    rows_.text("  ").left_field(name_of(elf_symbol_type_names, info & TYPE_MASK), SYMBOL_TYPE_WIDTH);
    rows_.text("  0x").hex(entry[ST_OTHER], BYTE_DIGITS, '0');
    rows_.text("   ").text(name_of(elf_section_number_names, get16(entry + ST_SHNDX))).end_row();
}

void elf_printer::print_strings(std::string_view table_name, std::string_view table)
{
    rows_.text("\nString table: ").text(table_name).text("\n").end_row();
    if (table.empty()) {
        rows_.text("Empty").end_row();
    }
    for (std::size_t offset = 0; offset < table.size();) {
        const std::string_view text = table.substr(offset, table.find('\0', offset) - offset);
        rows_.hex(static_cast<std::uint32_t>(offset), WORD_DIGITS, '0').text(": \"").text(text).text("\"").end_row();
        offset += text.size() + 1;
    }
}

// --- segments ------------------------------------------------------------------------------------------------------

void elf_printer::print_segments()
{
    rows_.text("\nProgram Headers:\n\nNo.   Type                                 Virtual  Physical ");
    rows_.text("Memsize  Offset   Filesize Flg ").text(opt_verbose >= VERBOSE_FIELDS ? "Align    " : "").end_row();
    for (std::uint32_t i = 0; i < segment_count(); ++i) {
        print_segment(i);
    }
}

void elf_printer::print_segment(std::uint32_t number)
{
    const std::uint8_t *header = segment(number);
    const std::uint32_t flags = get32(header + PH_FLAGS);
    rows_.hex_left(number, NUMBER_WIDTH).text("  ");
    rows_.left_field(segment_type(number).substr(0, SEGMENT_TYPE_WIDTH), SEGMENT_TYPE_WIDTH);
    for (const elf_segment_offset field : {PH_VADDR, PH_PADDR, PH_MEMSZ, PH_OFFSET, PH_FILESZ}) {
        rows_.text(" ").hex(get32(header + field), WORD_DIGITS, '0');
    }
    rows_.text(" ").text((flags & PF_R) != 0 ? "r" : "-").text((flags & PF_W) != 0 ? "w" : "-");
    rows_.text((flags & PF_X) != 0 ? "x" : "-");
    if (opt_verbose >= VERBOSE_FIELDS) {
        rows_.text(" ").hex(get32(header + PH_ALIGN), WORD_DIGITS, '0');
    }
    rows_.end_row();
}

void elf_printer::print_segment_data()
{
    for (std::uint32_t i = 0; i < segment_count(); ++i) {
        const std::uint32_t size = get32(segment(i) + PH_FILESZ);
        if (size != 0) {
            rows_.text("\nSegment Data: No. ").hex(i).text(", ").text(segment_type(i)).end_row();
            print_data(get32(segment(i) + PH_OFFSET), size);
        }
    }
}

} // namespace

bool elf_dump(std::FILE *stream)
{
    const trace_scope scope(TRACE_ON, "elf_dump");
    return elf_printer(stream).print();
}

void elf_hex_rows(std::uint32_t offset, std::uint32_t length, std::FILE *stream)
{
    if (::fseeko(stream, static_cast<off_t>(offset), SEEK_SET) != 0) {
        return;
    }
    dump_rows rows(stdout);
    std::array<std::uint8_t, HEX_ROW_SIZE> bytes{};
    for (std::uint32_t done = 0; done < length;) {
        const std::size_t wanted = std::min<std::size_t>(length - done, HEX_ROW_SIZE);
        const std::size_t count = std::fread(bytes.data(), 1, wanted, stream);
        if (count == 0) {
            return;
        }
        rows.text(done == 0 ? "  offset:  byte data\n" : "").hex(offset + done, WORD_DIGITS).text(": ");
        for (std::size_t i = 0; i < count; ++i) {
            rows.text(" ").hex(bytes[i], BYTE_DIGITS, '0');
        }
        rows.end_row();
        done += static_cast<std::uint32_t>(count); // short only at the end of the file, where the next read says so
    }
}
