// SPDX-License-Identifier: MIT
// The readable dump of a COFF file, on the standard output stream. The more `opt_verbose` counts the more is shown:
// from 1 on symbols and lines, from 2 on the strings and all of the section headers.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <optional>
#include <string_view>
#include <vector>

#include "common/alert.h"
#include "compiler/tarnwick/coff.h"
#include "compiler/tarnwick/coff_file.h"
#include "compiler/tarnwick/coff_input.h"
#include "compiler/tarnwick/dump_rows.h"
#include "compiler/tarnwick/encdec.h"
#include "compiler/tarnwick/options.h"

namespace {

constexpr std::uint32_t MESSAGE_VERSION = 638;
constexpr std::uint32_t MESSAGE_OPTIONAL_LENGTH = 1036;
constexpr std::uint32_t MESSAGE_SYMBOL_COUNT = 1039;

constexpr std::uint8_t VERBOSE_SYMBOLS = 1;
constexpr std::uint8_t VERBOSE_DETAILS = 2;

constexpr std::size_t OFFSET_WIDTH = 5;
constexpr std::size_t INDEX_WIDTH = 5;
constexpr std::size_t LABEL_WIDTH = 24;
constexpr std::size_t LINE_DIGITS = 5;

// --- storage classes ------------------------------------------------------------------------------------------------

constexpr std::uint32_t CLASS_COUNT = 256;
constexpr std::uint32_t AUX_MAX = 255;

// Null for a number that is no class.
constexpr std::array<const char *, CLASS_COUNT> class_labels = [] {
    std::array<const char *, CLASS_COUNT> labels{};
    for (const coff_label &row : coff_classes) {
        labels[row.value] = row.text;
    }
    return labels;
}();

// What is told of an entry behind its class and size.
enum class entry_text : std::uint8_t {
    NOTHING,
    NAME,
    TYPED,   // value and type
    PLACED,  // value, section and type
    TAG,     // with the end of what it opens
    BITS,    // value and width
    MARKER,  // value, section and line
    FILE,    // the name in the auxiliary entry
    LISTING, // on or off
    SECTION, // value, size and counts
};

constexpr entry_text entry_text_of(std::uint8_t storage_class)
{
    switch (storage_class) {
    case CSC_NULL:
    case CSC_END_OF_FILE:
        return entry_text::NAME;
    case CSC_AUTO:
    case CSC_REGISTER:
    case CSC_STRUCT_MEMBER:
    case CSC_ARGUMENT:
    case CSC_UNION_MEMBER:
    case CSC_TYPEDEF:
    case CSC_ENUM_MEMBER:
    case CSC_REGISTER_PARAMETER:
    case CSC_AUTO_ARGUMENT:
        return entry_text::TYPED;
    case CSC_EXTERNAL:
    case CSC_STATIC:
    case CSC_LABEL:
    case CSC_WEAK:
        return entry_text::PLACED;
    case CSC_STRUCT_TAG:
    case CSC_UNION_TAG:
    case CSC_ENUM_TAG:
    case CSC_END_OF_STRUCT:
        return entry_text::TAG;
    case CSC_BIT_FIELD:
        return entry_text::BITS;
    case CSC_BLOCK:
    case CSC_FUNCTION:
        return entry_text::MARKER;
    case CSC_FILE:
        return entry_text::FILE;
    case CSC_LIST:
        return entry_text::LISTING;
    case CSC_SECTION:
        return entry_text::SECTION;
    default:
        return entry_text::NOTHING;
    }
}

// --- types ----------------------------------------------------------------------------------------------------------

std::uint32_t base_of(std::uint32_t type)
{
    return type & COFF_BASE_MASK;
}

std::uint32_t derivation_of(std::uint32_t type)
{
    return type & COFF_DERIVATION_MASK;
}

// The type below the outermost derivation.
std::uint32_t without_derivation(std::uint32_t type)
{
    return (type >> COFF_DERIVATION_BITS & ~COFF_BASE_MASK) | base_of(type);
}

// Struct, union and enum tell their size in the auxiliary entry.
bool is_tagged(std::uint32_t type)
{
    const std::uint32_t base = base_of(type);
    return base == CBT_STRUCT || base == CBT_UNION || base == CBT_ENUM;
}

std::uint32_t base_size(std::uint32_t type)
{
    const std::uint32_t base = base_of(type);
    return base < coff_base_types.size() ? coff_base_types[base].size : 0;
}

// Of a type that is not an array, as far as the type itself tells it.
std::uint32_t plain_size(std::uint32_t type)
{
    return derivation_of(type) == COFF_POINTER ? COFF_POINTER_SIZE : base_size(type);
}

// --- entries --------------------------------------------------------------------------------------------------------

// A symbol entry with its auxiliary entries; of those only the first says anything.
struct entry_view {
    const std::uint8_t *entry;
    const std::uint8_t *aux; // null without one

    std::uint32_t value() const { return get32(entry + CSY_VALUE); }
    std::uint32_t type() const { return get32(entry + CSY_TYPE); }
    std::uint16_t section() const { return get16(entry + CSY_SECTION); }
    std::uint8_t storage_class() const { return entry[CSY_CLASS]; }
    std::uint8_t aux_count() const { return entry[CSY_AUX]; }
    std::uint16_t aux16(std::uint32_t field) const { return get16(aux + field); }
    std::uint32_t aux32(std::uint32_t field) const { return get32(aux + field); }
};

struct object_size {
    std::uint32_t size;
    std::uint32_t count = 1; // elements
};

object_size array_size(const entry_view &symbol)
{
    std::uint32_t type = symbol.type();
    while (derivation_of(type) == COFF_ARRAY) {
        type = without_derivation(type);
    }
    const std::uint32_t size = symbol.aux16(CAX_SIZE);
    const std::uint32_t element = plain_size(type);
    return {size, element != 0 ? size / element : size};
}

object_size size_of(const entry_view &symbol)
{
    const std::uint32_t type = symbol.type();
    if (symbol.aux == nullptr) {
        return {plain_size(type)};
    }
    if (derivation_of(type) == COFF_ARRAY) {
        return array_size(symbol);
    }
    // A pointer to something tagged shows the size of that.
    return {is_tagged(type) ? symbol.aux16(CAX_SIZE) : plain_size(type)};
}

// --- one dump -------------------------------------------------------------------------------------------------------

class coff_dump {
public:
    explicit coff_dump(std::FILE *stream) : input_(stream) {}

    // Each step is false on a failure, which it has reported.
    bool print()
    {
        if (!print_header() || !print_optional_header() || !input_.read_strings(header_) || !print_sections()) {
            return false;
        }
        print_strings();
        return opt_verbose < VERBOSE_SYMBOLS || (print_symbols() && print_lines());
    }

private:
    bool print_header();
    bool print_optional_header();
    bool print_sections();
    void print_section_flags(std::uint32_t flags);
    void print_strings();
    bool print_symbols();
    void print_symbol(std::uint32_t index, const entry_view &symbol);
    void print_entry_text(const entry_view &symbol);
    dump_rows &print_value(const entry_view &symbol);
    void print_type(const entry_view &symbol);
    void print_dimension(const entry_view &symbol, std::uint32_t place);
    void print_tag(const entry_view &symbol);
    void print_marker(const entry_view &symbol);
    void print_file(const entry_view &symbol);
    void print_listing(const entry_view &symbol);
    void print_section_entry(const entry_view &symbol);
    bool print_lines();
    bool print_lines_of(std::uint32_t number);
    void print_line(const coff_line_record &line);

    std::string_view name(const entry_view &symbol) { return input_.name(symbol.entry); }
    std::string_view section_name(std::uint16_t number);
    void record_name(std::uint32_t index, const entry_view &symbol);
    std::string_view recorded_name(std::uint32_t index);

    coff_input input_;
    dump_rows rows_{stdout};
    coff_file_header header_;
    std::vector<coff_section_header> sections_;
    std::vector<std::optional<coff_name_field>> names_; // by index; auxiliary entries have none
};

bool coff_dump::print_header()
{
    if (!input_.read_header(&header_)) {
        return false;
    }
    // The magic comes in the byte order in force, that is with its bytes exchanged.
    rows_.text("COFF header:\n\tMagic:\t\t0x").hex(header_.magic);
    rows_.text("\n\tSections:\t").number(header_.sections);
    std::array<char, 32> dated{};
    const auto seconds = static_cast<std::time_t>(header_.dated);
    const char *text = ::ctime_r(&seconds, dated.data()); // ends with a newline
    rows_.text("\n\tDated:\t\t").text(text != nullptr ? text : "\n");
    rows_.text("\tSymptr:\t\t0x").hex(header_.symptr);
    rows_.text("\n\tNsyms:\t\t").signed_number(header_.nsyms);
    rows_.text("\n\tOpthdr:\t\t").number(header_.opthdr);
    rows_.text("\n\tFlags:\t\t0x").hex(header_.flags);
    for (const coff_label &flag : coff_file_flags) {
        if ((header_.flags & flag.value) != 0) {
            rows_.text(" ").text(flag.text);
        }
    }
    rows_.text("\n").end_row();
    return true;
}

bool coff_dump::print_optional_header()
{
    if (header_.opthdr == 0) {
        return true;
    }
    if (header_.opthdr != COFF_OPTIONAL_SIZE) {
        alert(MESSAGE_OPTIONAL_LENGTH, "optional", COFF_OPTIONAL_SIZE);
        return true;
    }
    coff_optional_header optional;
    if (!input_.read_optional_header(&optional, "optional header")) {
        return false;
    }
    rows_.text("Optional header:\n\tMagic:\t\t0x").hex(optional.magic);
    if (optional.magic >= COFF_OPTIONAL_MAGIC && optional.magic <= COFF_OPTIONAL_MAGIC_LAST) {
        rows_.text(" (Orbell Software)");
    }
    rows_.text("\n\tVersion:\t").signed_number(optional.version);
    rows_.text("\n\tProcessor:\t0x").hex(optional.processor);
    rows_.text("\n\tROM width:\t").number(optional.rom_width);
    rows_.text("\n\tRAM width:\t").number(optional.ram_width).end_row();
    if (optional.version != COFF_VERSION) {
        alert(MESSAGE_VERSION, COFF_VERSION);
    }
    rows_.end_row();
    return true;
}

// --- sections and strings -------------------------------------------------------------------------------------------

bool coff_dump::print_sections()
{
    input_.seek(coff_sections_position(header_));
    for (std::uint32_t i = 0; i < header_.sections; ++i) {
        coff_section_header section;
        if (!input_.read_section(&section)) {
            return false;
        }
        sections_.push_back(section);
        rows_.text("Section ").number(i).text(": ").text(input_.name(section.name.data()));
        rows_.text(": @").hex(section.paddr);
        if (opt_verbose >= VERBOSE_DETAILS) {
            rows_.text(" scnptr 0x").hex(section.scnptr).text(" relptr 0x").hex(section.relptr);
            rows_.text(" lnnoptr 0x").hex(section.lnnoptr);
        }
        rows_.text(" size 0x").hex(section.size).text(" lines ").number(section.lines);
        rows_.text(" relocs ").number(section.relocs).text(" flags 0x").hex(section.flags);
        if (opt_verbose >= VERBOSE_DETAILS) {
            print_section_flags(section.flags);
        }
        rows_.end_row();
    }
    return true;
}

// From the highest flag down. The lowest, "dummy", is never shown.
void coff_dump::print_section_flags(std::uint32_t flags)
{
    bool is_first = true;
    for (std::size_t bit = coff_section_flags.size() - 1; bit > 0; --bit) {
        if ((flags & coff_section_flags[bit].value) != 0) {
            rows_.text(is_first ? " ( " : ", ").text(coff_section_flags[bit].text);
            is_first = false;
        }
    }
    if (!is_first) {
        rows_.text(" )");
    }
}

void coff_dump::print_strings()
{
    const std::string_view strings = input_.strings();
    rows_.text("\nString table: ").signed_number(static_cast<std::uint32_t>(strings.size()));
    rows_.text(" bytes, file offset 0x").hex(coff_strings_position(header_)).end_row();
    if (opt_verbose >= VERBOSE_DETAILS) {
        for (std::size_t offset = COFF_STRING_TABLE_START; offset < strings.size();) {
            const std::string_view text = strings.substr(offset, strings.find('\0', offset) - offset);
            rows_.signed_number(static_cast<std::uint32_t>(offset), OFFSET_WIDTH).text(":\t").text(text).end_row();
            offset += text.size() + 1;
        }
    }
    rows_.end_row();
}

// --- symbols --------------------------------------------------------------------------------------------------------

bool coff_dump::print_symbols()
{
    rows_.text("Symbol table:").end_row();
    input_.seek(header_.symptr);
    std::array<std::uint8_t, COFF_SYMBOL_SIZE> entry{};
    std::array<std::uint8_t, AUX_MAX * COFF_SYMBOL_SIZE> aux{};
    for (std::uint64_t index = 0; index < header_.nsyms;) {
        if (!input_.read_entries(entry.data(), 1)) {
            return false;
        }
        const std::uint32_t aux_count = entry[CSY_AUX];
        if (!input_.read_entries(aux.data(), aux_count)) {
            return false;
        }
        print_symbol(static_cast<std::uint32_t>(index), {entry.data(), aux_count != 0 ? aux.data() : nullptr});
        // One auxiliary entry behind the end of the table passes.
        if (index + aux_count > header_.nsyms) {
            alert(MESSAGE_SYMBOL_COUNT);
            return false;
        }
        index += aux_count + 1;
    }
    return true;
}

void coff_dump::print_symbol(std::uint32_t index, const entry_view &symbol)
{
    rows_.number(index, INDEX_WIDTH).text(":\t");
    if (const char *label = class_labels[symbol.storage_class()]) {
        rows_.field(label, LABEL_WIDTH);
    } else {
        std::array<char, LABEL_WIDTH> unknown{};
        std::snprintf(unknown.data(), unknown.size(), "??Unknown (%u)", symbol.storage_class());
        rows_.field(unknown.data(), LABEL_WIDTH);
    }
    const object_size object = size_of(symbol);
    rows_.text(" ").number(symbol.aux_count()).text(" ").number(object.size);
    rows_.text("[").number(object.count).text("]\t");
    print_entry_text(symbol);
    rows_.end_row();
    record_name(index, symbol);
}

void coff_dump::print_entry_text(const entry_view &symbol)
{
    switch (entry_text_of(symbol.storage_class())) {
    case entry_text::NOTHING:
        break;
    case entry_text::NAME:
        rows_.text(name(symbol));
        break;
    case entry_text::TYPED:
        print_value(symbol).text(": ");
        print_type(symbol);
        break;
    case entry_text::PLACED:
        print_value(symbol).text(": ").text(section_name(symbol.section())).text(" ");
        print_type(symbol);
        break;
    case entry_text::TAG:
        print_tag(symbol);
        break;
    case entry_text::BITS:
        print_value(symbol);
        if (symbol.aux != nullptr) {
            rows_.text(": size ").number(symbol.aux16(CAX_SIZE));
        }
        break;
    case entry_text::MARKER:
        print_marker(symbol);
        break;
    case entry_text::FILE:
        print_file(symbol);
        break;
    case entry_text::LISTING:
        print_listing(symbol);
        break;
    case entry_text::SECTION:
        print_section_entry(symbol);
        break;
    }
}

dump_rows &coff_dump::print_value(const entry_view &symbol)
{
    return rows_.text(name(symbol)).text(" = ").hex(symbol.value());
}

// The derivations from the outermost inward, as far as they lie in the low half of the word, and the base type.
void coff_dump::print_type(const entry_view &symbol)
{
    constexpr std::uint32_t SHOWN_BITS = 0xFFFF;
    std::uint32_t type = symbol.type() & SHOWN_BITS;
    std::uint32_t dimensions = 0;
    for (; derivation_of(type) != 0; type = without_derivation(type)) {
        if (derivation_of(type) == COFF_POINTER) {
            rows_.text("pointer to ");
        } else if (derivation_of(type) == COFF_FUNCTION) {
            rows_.text("function ");
            if (symbol.aux != nullptr) {
                rows_.text("[lineptr ").hex(symbol.aux32(CAX_LINEPTR)).text(", endndx ");
                rows_.signed_number(symbol.aux32(CAX_ENDNDX)).text("] ");
            }
            rows_.text("returning ");
        } else if (derivation_of(type) == COFF_ARRAY) {
            print_dimension(symbol, dimensions++);
        }
    }
    if (base_of(type) >= coff_base_types.size()) {
        rows_.text("type 0x").hex(base_of(type));
        return;
    }
    rows_.text(coff_base_types[base_of(type)].name);
    if (is_tagged(type) && symbol.aux != nullptr) {
        rows_.text(" [").number(symbol.aux32(CAX_TAG)).text("]");
    }
}

void coff_dump::print_dimension(const entry_view &symbol, std::uint32_t place)
{
    constexpr std::uint32_t DIMENSION_SIZE = 2;
    rows_.text("array [");
    if (symbol.aux != nullptr && place < COFF_DIMENSIONS) {
        rows_.number(symbol.aux16(CAX_DIMENSIONS + place * DIMENSION_SIZE));
    }
    rows_.text("] of ");
}

void coff_dump::print_tag(const entry_view &symbol)
{
    rows_.text(name(symbol));
    if (symbol.aux != nullptr) {
        rows_.text(": tag ").number(symbol.aux32(CAX_TAG)).text(", size ").number(symbol.aux16(CAX_SIZE));
        rows_.text(", index ").number(symbol.aux32(CAX_ENDNDX));
    }
}

void coff_dump::print_marker(const entry_view &symbol)
{
    print_value(symbol).text(": ").text(section_name(symbol.section()));
    if (symbol.aux != nullptr) {
        rows_.text(": line ").number(symbol.aux16(CAX_LINE)).text(", index ").number(symbol.aux32(CAX_ENDNDX));
    }
}

void coff_dump::print_file(const entry_view &symbol)
{
    if (symbol.aux != nullptr) {
        rows_.text(input_.string_at(symbol.aux32(CAX_FILE_NAME)));
        rows_.text(" [").number(symbol.aux32(CAX_FILE_NUMBER)).text("]");
    }
}

void coff_dump::print_listing(const entry_view &symbol)
{
    const std::string_view text = name(symbol);
    rows_.text(text == ".list" ? "ON" : text == ".nolist" ? "OFF" : text).text(": ").hex(symbol.value());
}

void coff_dump::print_section_entry(const entry_view &symbol)
{
    print_value(symbol);
    if (symbol.aux != nullptr) {
        rows_.text(": size ").hex(symbol.aux32(CAX_SECTION_SIZE));
        rows_.text(", relocs ").number(symbol.aux16(CAX_RELOCS)).text(", lines ").number(symbol.aux16(CAX_LINES));
    }
}

std::string_view coff_dump::section_name(std::uint16_t number)
{
    return number == 0 || number > sections_.size() ? "(abs)" : input_.name(sections_[number - 1].name.data());
}

// A file goes by the name in its auxiliary entry, all others by their own.
void coff_dump::record_name(std::uint32_t index, const entry_view &symbol)
{
    coff_name_field field{};
    if (symbol.storage_class() == CSC_FILE && symbol.aux != nullptr) {
        put32(field.data() + CSY_STRING, symbol.aux32(CAX_FILE_NAME));
    } else {
        std::copy_n(symbol.entry, field.size(), field.begin());
    }
    names_.resize(index);
    names_.emplace_back(field);
}

std::string_view coff_dump::recorded_name(std::uint32_t index)
{
    return index < names_.size() && names_[index] ? input_.name(names_[index]->data()) : "??";
}

// --- lines ----------------------------------------------------------------------------------------------------------

bool coff_dump::print_lines()
{
    rows_.end_row();
    for (std::uint32_t i = 0; i < sections_.size(); ++i) {
        if (sections_[i].lines != 0 && !print_lines_of(i)) {
            return false;
        }
    }
    return true;
}

bool coff_dump::print_lines_of(std::uint32_t number)
{
    const coff_section_header &section = sections_[number];
    rows_.text("Section ").number(number).text(" line numbers: ").number(section.lines);
    rows_.text(", file offset 0x").hex(section.lnnoptr).end_row();
    input_.seek(section.lnnoptr);
    for (std::uint32_t i = 0; i < section.lines; ++i) {
        coff_line_record line;
        if (!input_.read_line(&line)) {
            return false;
        }
        print_line(line);
    }
    return true;
}

void coff_dump::print_line(const coff_line_record &line)
{
    if (line.line == 0) {
        rows_.text("Symbol: ").text(recorded_name(line.paddr)).text(" (").number(line.paddr).text(")").end_row();
        return;
    }
    rows_.padded_number(line.line, LINE_DIGITS).text(":\tsrcndx: ").number(line.srcndx);
    rows_.text(", paddr: 0x").hex(line.paddr).text(", flags 0x").hex(line.flags);
    rows_.text(", fcnndx: ").number(line.fcnndx).end_row();
}

} // namespace

bool vcoff_dump(std::FILE *stream)
{
    return coff_dump(stream).print();
}
