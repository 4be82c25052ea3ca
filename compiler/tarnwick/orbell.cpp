// SPDX-License-Identifier: MIT
// The legacy symbol file: one line for each symbol or source line, with a section of local symbols and one of segments.
//
//     reset_count 20 1 text        symbol: value, segment number and name, space; "ABS" for the name is absolute
//     %locals                      local symbols and file lines follow
//     main.c                       the file of what follows
//     12 3A0 1 text                source line: address, segment number and name
//     %segments
//     text 0 7FF ABS 4000 1        segment: low and high address, the segment name of any line, load address, space
//
// The reader is lenient: what it can't read it passes over, and it raises no reports. A line of more than 255
// characters ends the file.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "common/alloc.h"
#include "common/ascii.h"
#include "common/convert.h"
#include "common/distinct_sort.h"
#include "common/fileutils.h"
#include "common/hash_of.h"
#include "common/linereader.h"
#include "common/stringcache.h"
#include "compiler/tarnwick/format.h"
#include "compiler/tarnwick/hexdigits.h"
#include "compiler/tarnwick/model.h"
#include "compiler/tarnwick/sdb.h"
#include "compiler/tarnwick/span_index.h"

namespace {

constexpr std::size_t LINE_LIMIT = 255; // with the newline
constexpr std::string_view LOCALS_HEADING = "%locals";
constexpr std::string_view SEGMENTS_HEADING = "%segments";
constexpr std::string_view ABSOLUTE = "ABS"; // in place of a segment's name

// Cuts the end of a line off. False for a line that has none: the file counts as ended there, and nothing of such a
// line is looked at. A NUL ends the text that a line holds, and so its newline is not seen.
bool cut_line_end(std::string_view *line)
{
    if (line->back() != '\n' || line->find('\0') != std::string_view::npos) {
        return false;
    }
    line->remove_suffix(1);
    if (line->ends_with('\r')) {
        line->remove_suffix(1);
    }
    return true;
}

// --- fields ----------------------------------------------------------------------------------------------------------

enum field_position : std::uint32_t {
    FIELD_NAME = 0, // or line number
    FIELD_VALUE = 1,
    FIELD_THIRD = 2, // a segment's high address; in other lines the segment's number, which its name tells better
    FIELD_SEGMENT = 3,
    FIELD_SPACE = 4,
    FIELD_LOAD = 4, // of a segment
    FIELD_SEGMENT_SPACE = 5,
    FIELD_COUNT = 6,
};

// The fields of a line. They are separated by blanks, of which any number counts as one.
class field_list {
public:
    explicit field_list(std::string_view line)
    {
        while (count_ < FIELD_COUNT) {
            const std::size_t start = line.find_first_not_of(' ');
            if (start == std::string_view::npos) {
                break;
            }
            line.remove_prefix(start);
            fields_[count_] = line.substr(0, line.find(' '));
            line.remove_prefix(fields_[count_].size());
            ++count_;
        }
    }

    bool has(std::uint32_t position) const { return position < count_; }
    std::string_view get(std::uint32_t position) const { return fields_[position]; }

private:
    std::array<std::string_view, FIELD_COUNT> fields_;
    std::uint32_t count_ = 0;
};

// A field that is no number leaves the value as it was.
void scan_hex(std::string_view text, std::uint32_t *value)
{
    constexpr int HEXADECIMAL = 16;
    std::size_t used = 0;
    const std::uint32_t number = text_to_u32(text, HEXADECIMAL, &used);
    if (used != 0) {
        *value = number;
    }
}

// The number of a field that may be absent.
std::uint32_t space_field(const field_list &fields, std::uint32_t position)
{
    std::uint32_t space = 0;
    if (fields.has(position)) {
        scan_unsigned(fields.get(position), &space);
    }
    return space;
}

// --- identification --------------------------------------------------------------------------------------------------

// A sign alone passes too.
bool is_signed_hex(std::string_view text)
{
    if (text.front() == '+' || text.front() == '-') {
        text.remove_prefix(1);
    }
    return std::all_of(text.begin(), text.end(), is_hex_digit);
}

bool orbell_identify(std::FILE *stream)
{
    line_reader lines(stream, LINE_LIMIT);
    std::string_view line;
    if (!lines.next(&line) || !cut_line_end(&line)) {
        return false;
    }
    if (line == LOCALS_HEADING || line == SEGMENTS_HEADING) {
        return true;
    }
    const field_list fields(line);
    return fields.has(FIELD_THIRD) && is_signed_hex(fields.get(FIELD_VALUE)) && is_signed_hex(fields.get(FIELD_THIRD));
}

// --- parked symbols --------------------------------------------------------------------------------------------------

struct parked_symbol {
    tarn_symbol symbol;
    std::uint32_t number = 0; // in the order of parking
};

// Symbols that may be bounds of a psect wait here for the next "%segments". Bounds stay even then, and are settled
// again by a later one, in the next file too; those that no heading follows are lost.
hash_of<const char *, parked_symbol *> parked_symbols; // null until the first one
std::uint32_t parkings = 0;

constexpr std::uint32_t PARKED_BUCKETS = 127;
constexpr std::string_view BOUND_PREFIX = "__";
constexpr std::string_view BOUND_LETTERS = "BHIL";
constexpr std::string_view NO_BOUND_PREFIX = "__LOG"; // the C library's own
constexpr std::size_t BOUND_LETTER_AT = 2;
constexpr std::size_t BOUND_NAME_AT = 3;

bool may_be_bound(std::string_view name)
{
    return name.size() > BOUND_NAME_AT && name.starts_with(BOUND_PREFIX) &&
           BOUND_LETTERS.find(name[BOUND_LETTER_AT]) != std::string_view::npos && !name.starts_with(NO_BOUND_PREFIX);
}

// Null when a symbol of this name is parked already: the first of a name stays.
const parked_symbol *park_symbol(const tarn_symbol &symbol)
{
    if (!parked_symbols) {
        parked_symbols = hash_of<const char *, parked_symbol *>::make_strings(PARKED_BUCKETS);
    }
    if (parked_symbols.contains(symbol.sy_name)) {
        return nullptr;
    }
    auto *parked = xnew<parked_symbol>({symbol, parkings++});
    parked_symbols.insert(symbol.sy_name, parked);
    return parked;
}

const parked_symbol *find_parked(char letter, const char *psect)
{
    return parked_symbols.get((std::string(BOUND_PREFIX) + letter + psect).c_str());
}

bool is_parked(char letter, const char *psect)
{
    return find_parked(letter, psect) != nullptr;
}

bool is_bound_of(const char *psect)
{
    if (psect_flags_given) {
        return psect_flags_table.contains(psect);
    }
    return is_parked('L', psect) && is_parked('H', psect);
}

// Values are bytes as they stand, and the high bound is inclusive.
void set_bound(tarn_psect *pp, const tarn_symbol *symbol)
{
    switch (symbol->sy_name[BOUND_LETTER_AT]) {
    case 'B':
        tarn_psect_set_load(pp, symbol->sy_value);
        break;
    case 'H':
        tarn_psect_set_hi(pp, symbol->sy_value);
        break;
    case 'I':
        pp->ps_lib_reloc = symbol->sy_value;
        break;
    case 'L':
        tarn_psect_set_lo(pp, symbol->sy_value);
        tarn_psect_set_load(pp, symbol->sy_value);
        pp->ps_space = symbol->sy_space;
        if ((symbol->sy_flags & SYM_ABS) != 0) {
            pp->ps_use_link = true;
        }
        tarn_psects_changed();
        break;
    default:
        break; // no other letter is parked
    }
}

void settle_symbol(const tarn_symbol *symbol)
{
    const char *name = symbol->sy_name + BOUND_NAME_AT;
    if (!is_bound_of(name)) {
        tarn_add_symbol(*symbol);
        parked_symbols.remove(symbol->sy_name);
        return;
    }
    tarn_psect *pp = tarn_find_psect(name);
    set_bound(pp != nullptr ? pp : tarn_add_psect(name, 0, 1), symbol);
}

void settle_parked_symbols()
{
    if (!parked_symbols) {
        return;
    }
    vector_of<parked_symbol *> symbols = parked_symbols.values();
    for (const parked_symbol *parked : each(symbols)) {
        settle_symbol(&parked->symbol);
    }
    symbols.free();
}

// Whether the table holds one symbol ahead of another: chains grow at their ends.
bool stands_before(const parked_symbol *left, const parked_symbol *right)
{
    const auto place_of = [](const parked_symbol *parked) {
        return std::pair(hash_string(parked->symbol.sy_name) % PARKED_BUCKETS, parked->number);
    };
    return place_of(left) < place_of(right);
}

// Does what `settle_parked_symbols` does where all but the `fresh` ones are settled: to settle a psect's bounds again
// changes nothing unless there is a new one among them, and then all of that psect are settled in the table's order.
void settle_fresh_symbols(const std::vector<const parked_symbol *> &fresh)
{
    std::vector<const parked_symbol *> symbols;
    for (const parked_symbol *parked : fresh) {
        for (const char letter : BOUND_LETTERS) {
            if (const parked_symbol *bound = find_parked(letter, parked->symbol.sy_name + BOUND_NAME_AT)) {
                symbols.push_back(bound);
            }
        }
    }
    std::sort(symbols.begin(), symbols.end(), stands_before);
    symbols.erase(std::unique(symbols.begin(), symbols.end()), symbols.end());
    for (const parked_symbol *parked : symbols) {
        settle_symbol(&parked->symbol);
    }
}

// --- psects of symbols -----------------------------------------------------------------------------------------------

// Finds the last psect, in the order of the table, with a range that holds a value. It stands in for a walk over all of
// them for each symbol.
class psect_finder {
public:
    psect_finder() : psects_(psect_table.values())
    {
        for (std::uint32_t i = 0; i < psects_.count(); ++i) {
            for (const tarn_psect_range *rp : each(psects_.get(i)->ps_ranges)) {
                if (rp->pr_lo <= rp->pr_hi) {
                    enter(rp, i);
                }
            }
        }
    }
    ~psect_finder() { psects_.free(); }
    psect_finder(const psect_finder &) = delete;
    psect_finder &operator=(const psect_finder &) = delete;

    tarn_psect *last_with(std::uint32_t value) const
    {
        std::uint32_t found = NO_INDEX;
        for (const auto &[delta, ranges] : deltas_) {
            const std::uint32_t byte = value * delta;
            found = std::min(found, byte == LAST_BYTE ? ranges.at_last_byte : ranges.spans.lowest(byte, byte + 1));
        }
        return found != NO_INDEX ? psects_.get(turned(found)) : nullptr;
    }

private:
    static constexpr std::uint32_t LAST_BYTE = 0xFFFFFFFF; // no span can end behind it

    // Ranges of the psects with one delta: a value is another byte for each delta.
    struct delta_ranges {
        span_index spans;
        std::uint32_t at_last_byte = NO_INDEX;
    };

    // The index gives the lowest position; turned round that is the last psect.
    std::uint32_t turned(std::uint32_t position) const { return psects_.count() - 1 - position; }

    void enter(const tarn_psect_range *rp, std::uint32_t position)
    {
        delta_ranges &ranges = deltas_[psects_.get(position)->ps_delta];
        if (rp->pr_hi == LAST_BYTE) {
            ranges.at_last_byte = std::min(ranges.at_last_byte, turned(position));
        }
        const std::uint32_t end = rp->pr_hi == LAST_BYTE ? LAST_BYTE : rp->pr_hi + 1;
        if (rp->pr_lo < end) {
            ranges.spans.add({rp->pr_lo, end, turned(position)});
        }
    }

    vector_of<tarn_psect *> psects_;
    std::map<std::uint32_t, delta_ranges> deltas_;
};

// All symbols take part, those of other inputs too. A symbol that no psect holds keeps what it had.
void find_psects_of_symbols()
{
    const psect_finder psects;
    for (tarn_symbol *sp : each(symbol_list)) {
        if (tarn_psect *pp = psects.last_with(sp->sy_value)) {
            sp->sy_psect = pp;
        }
    }
}

// --- reading ---------------------------------------------------------------------------------------------------------

// Numbers of segments by name. While a file is read segments come in at the end of the list alone; one that is added
// may bring others with it.
class segment_numbers {
public:
    segment_numbers() : numbers_(hash_of<const char *, std::uint32_t>::make_strings(BUCKETS)) {}
    ~segment_numbers() { numbers_.free(); }
    segment_numbers(const segment_numbers &) = delete;
    segment_numbers &operator=(const segment_numbers &) = delete;

    // 0 when no segment bears the name.
    std::uint32_t find(const char *name)
    {
        for (; entered_ < seg_list.count(); ++entered_) {
            numbers_.insert(seg_list.get(entered_)->sg_name, entered_ + 1);
        }
        return numbers_.get(name);
    }

private:
    static constexpr std::uint32_t BUCKETS = 1021;

    hash_of<const char *, std::uint32_t> numbers_;
    std::uint32_t entered_ = 0; // segments of the list that are in `numbers_`
};

class symbol_file_reader {
public:
    explicit symbol_file_reader(const char *path) : path_(path) {}
    void take_line(std::string_view line);

private:
    void settle();
    bool take_file_line(std::string_view line);
    void take_fields(const field_list &fields);
    std::uint32_t segment_number(const field_list &fields);
    void add_segment(const field_list &fields, std::uint32_t number) const;
    void add_line(const field_list &fields, std::uint32_t segment) const;
    void add_symbol(const field_list &fields, std::uint32_t segment);

    const char *path_;
    std::uint32_t file_ = 0;     // current file number
    sdb_node *module_ = nullptr; // of the last object file
    bool in_segments_ = false;
    bool local_ = false;
    bool settled_ = false;                     // this file had its first "%segments"
    std::vector<const parked_symbol *> fresh_; // parked since the latest one
    segment_numbers segments_;
    // Numbers of the second and third field. They keep those of an earlier line where a line has none.
    std::uint32_t value_ = 0;
    std::uint32_t third_ = 0;
    std::string text_; // of a line that may be a path
};

void symbol_file_reader::take_line(std::string_view line)
{
    if (line == SEGMENTS_HEADING) {
        settle();
        in_segments_ = true;
    } else if (line == LOCALS_HEADING) {
        in_segments_ = false;
        local_ = true; // for the rest of the file
    } else if (!take_file_line(line)) {
        if (file_ == 0) {
            file_ = tarn_add_file(path_);
        }
        const field_list fields(line);
        if (fields.has(FIELD_VALUE)) {
            take_fields(fields);
        }
    }
}

void symbol_file_reader::settle()
{
    if (settled_) {
        settle_fresh_symbols(fresh_);
    } else {
        settle_parked_symbols(); // those of earlier files too
        settled_ = true;
    }
    fresh_.clear();
}

// Any line that ends in the extension of a source is a file line, also where its last field is meant as a segment. An
// object file must exist, or it is none.
bool symbol_file_reader::take_file_line(std::string_view line)
{
    constexpr std::uint64_t OBJECT_CLASS = 0x10020;
    if (line.find('.') == std::string_view::npos) {
        return false; // without an extension no file is of these classes, so the host need not be asked
    }
    text_ = line;
    const std::uint64_t fid = fileid(text_.c_str());
    const bool object = fileid_has(fid, OBJECT_CLASS);
    if (!object && !fileid_is_asm_fid(fid) && !fileid_is_c(fid)) {
        return false;
    }
    file_ = tarn_add_file(text_.c_str());
    if (object) {
        module_ = sdb_read(text_.c_str());
    } else if (module_ != nullptr && module_->sdb_sclass == sc_asmodule) {
        sdb_add_filename(module_, text_.c_str(), 0);
    }
    return true;
}

// The segment is there before the line's own data is added.
void symbol_file_reader::take_fields(const field_list &fields)
{
    if (fields.has(FIELD_THIRD)) {
        scan_hex(fields.get(FIELD_THIRD), &third_);
    }
    const std::uint32_t number = segment_number(fields);
    scan_hex(fields.get(FIELD_VALUE), &value_);
    if (in_segments_) {
        add_segment(fields, number);
    } else if (is_digit(fields.get(FIELD_NAME).front())) {
        add_line(fields, number);
    } else {
        add_symbol(fields, number);
    }
}

// The number of the segment that a line names, which is added when it is a new one; 0 for what is absolute.
std::uint32_t symbol_file_reader::segment_number(const field_list &fields)
{
    if (!fields.has(FIELD_SEGMENT) || fields.get(FIELD_SEGMENT) == ABSOLUTE) {
        return 0;
    }
    const char *name = str_cache(fields.get(FIELD_SEGMENT));
    if (const std::uint32_t known = segments_.find(name)) {
        return known;
    }
    tarn_segment segment;
    segment.sg_index = seg_list.count() + 1;
    segment.sg_name = name;
    tarn_add_segment(segment);
    return segment.sg_index;
}

// A segment that was named before is dropped, even when that was in the fourth field of its own line.
void symbol_file_reader::add_segment(const field_list &fields, std::uint32_t number) const
{
    tarn_segment segment;
    segment.sg_index = number;
    segment.sg_name = str_cache(fields.get(FIELD_NAME));
    segment.sg_addr = value_;
    segment.sg_load = value_;
    if (fields.has(FIELD_LOAD)) {
        scan_hex(fields.get(FIELD_LOAD), &segment.sg_load);
    }
    segment.sg_size = third_ + 1 - value_;
    segment.sg_space = space_field(fields, FIELD_SEGMENT_SPACE);
    tarn_add_segment(segment);
}

void symbol_file_reader::add_line(const field_list &fields, std::uint32_t segment) const
{
    tarn_line line;
    line.ln_file = file_;
    line.ln_addr = value_;
    line.ln_seg = segment;
    line.ln_flags = LN_SOURCE;
    line.ln_line = static_cast<std::uint32_t>(text_to_int(fields.get(FIELD_NAME)));
    tarn_add_line(line);
}

void symbol_file_reader::add_symbol(const field_list &fields, std::uint32_t segment)
{
    tarn_symbol symbol;
    symbol.sy_file = file_;
    symbol.sy_value = value_;
    symbol.sy_seg = segment;
    symbol.sy_flags = (local_ ? SYM_LOCAL : 0U) | (segment == 0 ? SYM_ABS : 0U);
    symbol.sy_space = space_field(fields, FIELD_SPACE);
    symbol.sy_name = str_cache(fields.get(FIELD_NAME));
    if (segment != 0) {
        // Each symbol sets it, one without a space to 0.
        tarn_segment *seg = seg_list.get(segment - 1);
        if (seg->sg_space != symbol.sy_space) {
            seg->sg_space = symbol.sy_space;
            tarn_segments_changed();
        }
    }
    if (may_be_bound(fields.get(FIELD_NAME))) {
        if (const parked_symbol *parked = park_symbol(symbol)) {
            fresh_.push_back(parked);
        }
    } else {
        tarn_add_symbol(symbol);
    }
}

bool orbell_read(std::FILE *stream, const char *path)
{
    symbol_file_reader reader(path);
    line_reader lines(stream, LINE_LIMIT, path);
    std::string_view line;
    while (lines.next(&line) && cut_line_end(&line)) {
        reader.take_line(line);
    }
    find_psects_of_symbols();
    return true;
}

// --- writing ---------------------------------------------------------------------------------------------------------

std::uint32_t names_written = 0; // names of `file_list` that the output holds so far

using sort_key = std::tuple<std::uint32_t, std::uint32_t, std::uint32_t>; // file, segment and address

sort_key key_of(const tarn_symbol *sp)
{
    return {sp->sy_file, sp->sy_seg, sp->sy_value};
}

sort_key key_of(const tarn_line *lp)
{
    return {lp->ln_file, lp->ln_seg, lp->ln_addr};
}

int compare_symbols(const tarn_symbol *left, const tarn_symbol *right)
{
    const sort_key left_key = key_of(left);
    const sort_key right_key = key_of(right);
    return left_key < right_key ? -1 : left_key > right_key ? 1 : 0;
}

int compare_lines(const tarn_line *left, const tarn_line *right)
{
    const sort_key left_key = key_of(left);
    const sort_key right_key = key_of(right);
    return left_key < right_key ? -1 : left_key > right_key ? 1 : 0;
}

class symbol_file_writer {
public:
    explicit symbol_file_writer(std::FILE *stream) : stream_(stream) {}
    ~symbol_file_writer() { flush(); }
    symbol_file_writer(const symbol_file_writer &) = delete;
    symbol_file_writer &operator=(const symbol_file_writer &) = delete;

    void put(const tarn_symbol *sp);
    void put(const tarn_line *lp);

private:
    static constexpr std::size_t PIECE = std::size_t{1} << 20;

    void change_file(std::uint32_t file);
    void put_segment(std::uint32_t segment);
    void put_hex(std::uint32_t number);
    void end_line();
    void flush();

    std::FILE *stream_;
    std::string text_;       // not yet written
    std::uint32_t file_ = 0; // of the item before
};

void symbol_file_writer::put(const tarn_symbol *sp)
{
    change_file(sp->sy_file);
    text_ += sp->sy_name;
    put_hex(sp->sy_value);
    if ((sp->sy_flags & SYM_ABS) == 0) {
        put_segment(sp->sy_seg);
    }
    end_line();
}

void symbol_file_writer::put(const tarn_line *lp)
{
    change_file(lp->ln_file);
    text_ += std::to_string(static_cast<std::int32_t>(lp->ln_line));
    put_hex(lp->ln_addr);
    put_segment(lp->ln_seg);
    end_line();
}

// Names all files up to that of the next item, those without items too. What has no file stands ahead of "%locals".
void symbol_file_writer::change_file(std::uint32_t file)
{
    if (file == file_) {
        return;
    }
    file_ = file;
    if (names_written == 0) {
        text_ += LOCALS_HEADING;
        end_line();
    }
    for (; names_written < std::min(file, file_list.count()); ++names_written) {
        text_ += file_list.get(names_written)->fl_name;
        end_line();
    }
}

void symbol_file_writer::put_segment(std::uint32_t segment)
{
    put_hex(segment);
    if (const tarn_segment *seg = seg_list.get(segment - 1)) { // null for 0
        text_ += ' ';
        text_ += seg->sg_name;
    }
}

// A field of its own, behind a blank.
void symbol_file_writer::put_hex(std::uint32_t number)
{
    char field[16];
    const int length = std::snprintf(field, sizeof field, " %X", number);
    text_.append(field, static_cast<std::size_t>(length));
}

void symbol_file_writer::end_line()
{
    text_ += '\n';
    if (text_.size() >= PIECE) {
        flush();
    }
}

void symbol_file_writer::flush()
{
    std::fwrite(text_.data(), 1, text_.size(), stream_);
    text_.clear();
}

// Sorts the tables themselves: later outputs find them so.
bool orbell_write(std::FILE *stream, const char *)
{
    tarn_settle_symbol_values();
    sort_records<compare_symbols>(symbol_list);
    sort_records<compare_lines>(line_list);

    symbol_file_writer out(stream);
    std::uint32_t symbol = 0;
    std::uint32_t line = 0;
    while (symbol < symbol_list.count() || line < line_list.count()) {
        const tarn_symbol *sp = symbol_list.get(symbol);
        const tarn_line *lp = line_list.get(line);
        // Symbols win ties.
        if (lp != nullptr && (sp == nullptr || key_of(lp) < key_of(sp))) {
            out.put(lp);
            ++line;
        } else {
            out.put(sp);
            ++symbol;
        }
    }
    return true;
}

} // namespace

constinit const format_descriptor format_orbell = {
    .identify = orbell_identify,
    .read = orbell_read,
    .write = orbell_write,
    .dump = format_no_dump,
    .name = "Orbell Software",
    .key = "orbell",
    .ext = "sym",
    .binary = false,
};
