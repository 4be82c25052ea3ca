// SPDX-License-Identifier: MIT
// The parser of the linker's map file. A bad field is reported and the line goes on with a default, so that one run
// shows as many mistakes as possible; only a missing section stops the reading.
#include <algorithm>
#include <array>
#include <bit>
#include <climits>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string_view>

#include "common/alert.h"
#include "common/convert.h"
#include "common/linereader.h"
#include "common/osdep.h"
#include "common/stringcache.h"
#include "common/trace.h"
#include "compiler/common/tmf.h"

namespace {

constexpr std::string_view MAGIC = "%TMF";
constexpr int DECIMAL = 10;
constexpr int HEX = 16;
constexpr std::uint32_t BYTE_MAX = 0xFF;

constexpr std::uint32_t NOTE_ROW_BYTES = 16;
// No line needs more tokens than a row of note data that is too long by one.
constexpr std::uint32_t TOKENS_KEPT = NOTE_ROW_BYTES + 1;

// The first tokens of a line, as parts of its text.
struct token_list {
    std::array<std::string_view, TOKENS_KEPT> token;
    std::uint32_t count = 0;
};

// What reports are made from. Path and line number stay behind a read: they remain the position of later reports.
token_list tmf_currtoks;
const char *tmf_path = nullptr;
std::uint32_t tmf_line_number = 0;

void set_report_position()
{
    alert_set_position(tmf_path, &tmf_line_number);
}

// The first blank of a text, or its end; eight characters a step.
const char *find_blank(const char *position, const char *end)
{
    constexpr std::uint64_t ALL_BLANK = 0x2020202020202020;
    constexpr std::uint64_t LOW_BITS = 0x7F7F7F7F7F7F7F7F;
    for (std::uint64_t piece = 0; end - position >= static_cast<std::ptrdiff_t>(sizeof piece);
         position += sizeof piece) {
        std::memcpy(&piece, position, sizeof piece);
        piece ^= ALL_BLANK; // a blank is a zero byte now, and only that leaves the top bit of its byte in the next line
        const std::uint64_t blanks = ~(((piece & LOW_BITS) + LOW_BITS) | piece | LOW_BITS);
        if (blanks != 0) {
            const int bit =
                std::endian::native == std::endian::little ? std::countr_zero(blanks) : std::countl_zero(blanks);
            return position + bit / CHAR_BIT;
        }
    }
    while (position != end && *position != ' ') {
        position++;
    }
    return position;
}

// Only the blank separates: a tab is part of a token.
void split_tokens(std::string_view line)
{
    tmf_currtoks.count = 0;
    const char *position = line.data();
    const char *const end = position + line.size();
    while (tmf_currtoks.count < TOKENS_KEPT) {
        while (position != end && *position == ' ') {
            position++;
        }
        if (position == end) {
            return;
        }
        const char *begin = position;
        position = find_blank(position, end);
        tmf_currtoks.token[tmf_currtoks.count++] = std::string_view(begin, static_cast<std::size_t>(position - begin));
    }
}

// The text of a line ends at a NUL, as that of any C string. A carriage return goes only with the newline behind it.
std::string_view line_text(std::string_view line)
{
    line = line.substr(0, line.find('\0'));
    if (line.ends_with('\n')) {
        line.remove_suffix(1);
        if (line.ends_with('\r')) {
            line.remove_suffix(1);
        }
    }
    return line;
}

// The next line that is neither blank nor a comment; nothing at the end of the file.
std::optional<std::string_view> tmf_next_line(line_reader &stream)
{
    std::string_view line;
    for (;;) {
        const bool more = stream.next(&line);
        tmf_line_number++; // also for the attempt that meets the end of the file
        if (!more) {
            return std::nullopt;
        }
        if (line.starts_with('#')) {
            continue;
        }
        line = line_text(line);
        if (!line.empty()) {
            split_tokens(line);
            return line;
        }
    }
}

std::string_view token_text(std::uint32_t index)
{
    if (index >= tmf_currtoks.count) {
        tmf_error("no token at index %u", index);
        return {};
    }
    return tmf_currtoks.token[index];
}

// A token as a number; where the number stops short of the token's end it stands as far as it was read. The empty text
// of a missing token is a silent 0.
template <auto Convert>
auto converted_token(std::uint32_t index, int base)
{
    const std::string_view text = token_text(index);
    std::size_t used = 0;
    const auto value = Convert(text, base, &used);
    if (used != text.size()) {
        tmf_error("token %u is not unsigned long of base %d", index, base);
    }
    return value;
}

std::uint32_t tmf_token_number(std::uint32_t index, int base)
{
    return converted_token<text_to_u32>(index, base);
}

std::int32_t signed_token_number(std::uint32_t index, int base)
{
    return converted_token<text_to_i32>(index, base);
}

// One kind of name in a file whose lines mostly repeat the name of the line before: repeats need no look-up.
class repeated_name {
public:
    const char *cached(std::string_view text)
    {
        if (cached_ == nullptr || text != last_) {
            cached_ = str_cache(text);
            last_ = cached_;
        }
        return cached_;
    }

private:
    std::string_view last_;
    const char *cached_ = nullptr;
};

struct map_reader {
    map_reader(std::FILE *stream, const char *path) : lines(stream, 0, path) {}

    line_reader lines;
    const char *object = nullptr; // of the psects or lines that follow
    repeated_name psect_name;
    repeated_name class_name;
    repeated_name file_name;

    // The note-psect whose data is being read.
    const char *note = nullptr;
    std::uint32_t note_length = 0; // as declared
    std::uint32_t note_read = 0;
};

void read_psect(map_reader &reader, std::string_view line)
{
    if (line.starts_with('$')) {
        reader.object = str_cache(line.substr(1));
        if (reader.object[0] == '\0') {
            tmf_error("Nameless object file");
        }
        return;
    }
    if (reader.object == nullptr) {
        tmf_error("psect defined outside of an object file");
    }
    tmf_psect psect;
    psect.tmfps_obj = reader.object;
    psect.tmfps_class = reader.class_name.cached(token_text(1));
    psect.tmfps_name = reader.psect_name.cached(token_text(0));
    psect.tmfps_space = tmf_token_number(2, DECIMAL);
    psect.tmfps_delta = tmf_token_number(6, DECIMAL);
    psect.tmfps_reloc = tmf_token_number(7, DECIMAL);
    psect.tmfps_link = tmf_token_number(3, HEX);
    psect.tmfps_length = tmf_token_number(5, HEX);
    psect.tmfps_load = tmf_token_number(4, HEX);
    if (tmf_add_psect(psect) == nullptr) {
        tmf_error("duplicate psect entry"); // the second report of a duplicate
    }
}

// One end of an unused range; `which` is "low" or "high".
std::uint32_t range_bound(std::string_view text, const char *which, std::uint32_t index)
{
    std::size_t used = 0;
    const std::uint32_t value = text_to_u32(text, HEX, &used);
    if (used != text.size()) {
        tmf_error("%s address of token %u is not an unsigned long of base %d", which, index, HEX);
    }
    return value;
}

void read_unused(map_reader &reader, std::string_view)
{
    constexpr std::uint32_t range_index = 1;
    // The lines of %LINETAB that come before its first object have none, but in a file without unused ranges they
    // belong to the last object of %PSECTS.
    reader.object = nullptr;
    const char *class_name = reader.class_name.cached(token_text(0));
    const std::uint32_t delta = tmf_token_number(2, DECIMAL);
    const std::string_view range = token_text(range_index);
    const std::size_t hyphen = range.find('-');
    std::uint32_t low = 0;
    std::uint32_t high = 0;
    if (hyphen == std::string_view::npos || hyphen == 0) {
        tmf_error("token %u is not a valid range token", range_index);
    } else {
        low = range_bound(range.substr(0, hyphen), "low", range_index);
        high = range_bound(range.substr(hyphen + 1), "high", range_index);
    }
    tmf_add_unused(class_name, delta, low, high);
}

std::uint32_t line_number(std::string_view text)
{
    std::size_t used = 0;
    const std::uint32_t number = text_to_u32(text, DECIMAL, &used);
    if (used != text.size()) {
        tmf_error("line number (%s) is not an unsigned long of base 10", str_cache(text));
    }
    return number;
}

void read_line(map_reader &reader, std::string_view line)
{
    if (line.starts_with('$')) {
        reader.object = str_cache(line.substr(1));
        return;
    }
    tmf_line record;
    record.tmfln_obj = reader.object;
    record.tmfln_addr = tmf_token_number(0, HEX);
    record.tmfln_psect = reader.psect_name.cached(token_text(1));
    record.tmfln_class = reader.class_name.cached(token_text(2));
    const std::size_t mark = line.find('>');
    if (mark == std::string_view::npos || mark + 1 == line.size()) {
        tmf_error("missing line:file token");
        return;
    }
    const std::string_view place = line.substr(mark + 1);
    const std::size_t colon = place.find(':'); // the first: the file name may hold more
    if (colon == std::string_view::npos || colon + 1 == place.size()) {
        tmf_error("Invalid line:file token");
        record.tmfln_file = "";
    } else {
        record.tmfln_line = line_number(place.substr(0, colon));
        record.tmfln_file = reader.file_name.cached(place.substr(colon + 1));
    }
    tmf_add_line(record);
}

void read_symbol(map_reader &reader, std::string_view)
{
    tmf_symbol symbol;
    const std::string_view name = token_text(0);
    str_prefetch(name);
    symbol.tmfsy_value = tmf_token_number(1, HEX);
    symbol.tmfsy_loadadj = signed_token_number(2, HEX);
    symbol.tmfsy_name = str_cache(name);
    tmf_prefetch_symbol(symbol.tmfsy_name);
    symbol.tmfsy_class = reader.class_name.cached(token_text(3));
    symbol.tmfsy_space = tmf_token_number(4, DECIMAL);
    symbol.tmfsy_psect = reader.psect_name.cached(token_text(5));
    symbol.tmfsy_file = reader.file_name.cached(token_text(6));
    tmf_add_symbol(symbol);
}

void read_split(map_reader &reader, std::string_view)
{
    const char *child = str_cache(token_text(1));
    const char *parent = reader.psect_name.cached(token_text(0));
    tmf_add_split(parent, child);
}

void read_dabs(map_reader &, std::string_view)
{
    tmf_dabs_record dabs;
    dabs.tmfda_name = str_cache(token_text(0));
    dabs.tmfda_space = tmf_token_number(1, DECIMAL);
    dabs.tmfda_addr = tmf_token_number(2, HEX);
    dabs.tmfda_size = tmf_token_number(3, HEX);
    tmf_add_dabs(dabs);
}

void read_segment(map_reader &, std::string_view)
{
    tmf_segment segment;
    segment.tmfsg_name = str_cache(token_text(0));
    segment.tmfsg_space = tmf_token_number(1, DECIMAL);
    segment.tmfsg_link = tmf_token_number(2, HEX);
    segment.tmfsg_file = tmf_token_number(3, HEX);
    segment.tmfsg_size = tmf_token_number(4, HEX);
    segment.tmfsg_delta = tmf_token_number(5, DECIMAL);
    tmf_add_segment(segment);
}

void check_note_length(const map_reader &reader)
{
    if (reader.note_read != reader.note_length) {
        tmf_error("note-psect \"%s\" has length %u, but read only %u bytes",
                  reader.note != nullptr ? reader.note : "(null)", reader.note_length, reader.note_read);
    }
}

void start_note(map_reader &reader)
{
    check_note_length(reader);
    reader.note = str_cache(token_text(0).substr(1));
    if (reader.note[0] == '\0') {
        tmf_error("missing note-psect name");
    }
    reader.note_length = tmf_token_number(1, DECIMAL);
    if (reader.note_length == 0) {
        tmf_error("note-psect cannot have zero length");
    }
    reader.note_read = 0;
}

// Of a row that is too long the first bytes are kept.
void read_note_row(map_reader &reader)
{
    if (reader.note == nullptr) {
        tmf_error("missing note-psect name and length");
    }
    if (tmf_currtoks.count == 0 || tmf_currtoks.count > NOTE_ROW_BYTES) {
        tmf_error("line must contain (0,%u] bytes of data", NOTE_ROW_BYTES);
    }
    std::array<std::uint8_t, NOTE_ROW_BYTES> row;
    const std::uint32_t count = std::min(tmf_currtoks.count, NOTE_ROW_BYTES);
    for (std::uint32_t i = 0; i < count; i++) {
        const std::uint32_t value = tmf_token_number(i, HEX);
        if (value > BYTE_MAX) {
            tmf_error("value of token %u (base %d) is wider than unsigned char", i, HEX);
        }
        row[i] = static_cast<std::uint8_t>(value & BYTE_MAX);
    }
    tmf_append_note(reader.note, count, row.data());
    reader.note_read += count;
}

void read_note_line(map_reader &reader, std::string_view line)
{
    if (line.starts_with('$')) {
        start_note(reader);
    } else {
        read_note_row(reader);
    }
}

// Reads the lines of a section; the result is the line behind it, which begins with "%", or nothing.
template <void (*ReadEntry)(map_reader &, std::string_view)>
std::optional<std::string_view> read_section(map_reader &reader)
{
    std::optional<std::string_view> line = tmf_next_line(reader.lines);
    while (line && !line->starts_with('%')) {
        ReadEntry(reader, *line);
        line = tmf_next_line(reader.lines);
    }
    return line;
}

std::optional<std::string_view> read_notes(map_reader &reader)
{
    const trace_scope scope(TRACE_ON, "read_notes");
    const std::optional<std::string_view> line = read_section<read_note_line>(reader);
    // The length of the last note-psect is checked at the end of the file but not at a "%" line.
    if (!line) {
        check_note_length(reader);
    }
    return line;
}

struct section {
    std::string_view heading;
    std::optional<std::string_view> (*read)(map_reader &);
};

constexpr section SECTIONS[] = {
    {"%PSECTS", read_section<read_psect>},     //
    {"%UNUSED", read_section<read_unused>},    //
    {"%LINETAB", read_section<read_line>},     //
    {"%SYMTAB", read_section<read_symbol>},    //
    {"%SPLITSTAB", read_section<read_split>},  //
    {"%DABS", read_section<read_dabs>},        //
    {"%SEGMENTS", read_section<read_segment>}, //
    {"%NOTES", read_notes},
};

// False when a section is missing. What stands behind the last one isn't read.
bool read_sections(std::FILE *stream)
{
    map_reader reader(stream, tmf_path);
    tmf_next_line(reader.lines); // the magic line, which `tmf_isTMF` has seen
    std::optional<std::string_view> line = tmf_next_line(reader.lines);
    for (const section &expected : SECTIONS) {
        if (line != expected.heading) {
            tmf_error("Did not find section %s", expected.heading.data());
            return false;
        }
        line = expected.read(reader);
    }
    return true;
}

// Moves behind the line, of whose text `c` is the last character read.
void skip_line(std::FILE *stream, int c)
{
    while (c != '\n' && c != EOF) {
        c = std::getc(stream);
    }
}

} // namespace

bool tmf_isTMF(std::FILE *stream)
{
    if (stream == nullptr) {
        return false;
    }
    std::rewind(stream);
    // Character by character: other files that are asked about here need not have lines at all.
    for (;;) {
        int c = std::getc(stream);
        if (c == '\n') {
            continue;
        }
        if (c == '#' || c == '\0') {
            skip_line(stream, c);
            continue;
        }
        if (c == '\r') {
            if (std::getc(stream) == '\n') {
                continue;
            }
            return false;
        }
        return std::all_of(MAGIC.begin(), MAGIC.end(), [&](char expected) {
            const bool same = c == expected;
            c = same ? std::getc(stream) : c;
            return same;
        });
    }
}

bool tmf_read(std::FILE *stream, const char *path)
{
    tmf_store_create();
    tmf_fp = stream;
    tmf_line_number = 0;
    std::rewind(stream);
    tmf_path = str_cache(path);
    const alert_hook_function old_hook = alert_hook(set_report_position);
    tmf_initialised = read_sections(stream);
    alert_hook(old_hook);
    file_close_input(stream);
    tmf_fp = nullptr;
    return tmf_initialised;
}
