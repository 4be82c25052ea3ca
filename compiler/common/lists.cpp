// SPDX-License-Identifier: MIT
// Range lists and the parser of a memory description. The parser is the linker's: its reports speak of the linker's
// option -A, although the option here is -s.
#include "compiler/common/lists.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>

#include "common/alert.h"
#include "common/alloc.h"
#include "common/ascii.h"
#include "common/convert.h"
#include "common/stringcache.h"

namespace {

enum list_message : std::uint32_t {
    MISSING_ADDRESS = 442,
    BAD_LOW_ADDRESS = 443,
    EXPECTED_HYPHEN = 444,
    BAD_HIGH_ADDRESS = 445,
    BAD_REPEAT_COUNT = 448,
    SYNTAX_ERROR = 449,
    ILLEGAL_ACTION = 1314,
};

constexpr std::uint32_t DEFAULT_CLASS_KIND = 2;

// Copies of ranges that one class may ask for. No target has so many banks; the bound keeps a mistyped repeat count
// from filling the memory.
constexpr std::uint32_t CLASS_COPIES_MAX = 1U << 20;

memory_range *range_new(std::uint32_t lo, std::uint32_t hi, memory_range *next)
{
    return place_record(xalloc(sizeof(memory_range)), memory_range{lo, hi, next});
}

// Whether an entry behind `hi` is in contact with what ends there.
bool reaches(std::uint32_t hi, const memory_range *behind, bool join)
{
    return behind->lo <= hi || (join && behind->lo - 1 == hi);
}

// Takes the entries behind `entry` into it that it has grown into.
void absorb_following(memory_range *entry, bool join)
{
    while (entry->next != nullptr && reaches(entry->hi, entry->next, join)) {
        memory_range *covered = entry->next;
        entry->hi = std::max(entry->hi, covered->hi);
        entry->next = covered->next;
        std::free(covered);
    }
}

// Adds a range to the part of a list that begins at `link`. Returns the link to the entry that holds the range now, at
// which a call for a higher range may begin.
memory_range **add_from(memory_range **link, std::uint32_t lo, std::uint32_t hi, bool join)
{
    if (hi < lo) {
        alert(ILLEGAL_ACTION);
        return link;
    }
    memory_range **before = nullptr; // link to the last entry below the range
    while (*link != nullptr && (*link)->hi < lo) {
        if ((*link)->next != nullptr && (*link)->next->lo < (*link)->lo) {
            alert(ILLEGAL_ACTION);
            return link;
        }
        before = link;
        link = &(*link)->next;
    }
    if (*link != nullptr && (*link)->lo <= lo && hi <= (*link)->hi) {
        return link;
    }
    if (join && before != nullptr && (*before)->hi == lo - 1) {
        link = before;
    } else if (*link == nullptr || !reaches(hi, *link, join)) {
        *link = range_new(lo, hi, *link);
        return link;
    }
    (*link)->lo = std::min((*link)->lo, lo);
    (*link)->hi = std::max((*link)->hi, hi);
    absorb_following(*link, join);
    return link;
}

// Adds `count` copies of a range, each directly behind the one before. Addresses wrap in 32 bits.
void add_copies(memory_range **mrp, std::uint32_t lo, std::uint32_t hi, std::uint32_t count)
{
    const std::uint32_t size = hi - lo + 1;
    memory_range **link = mrp;
    for (; count != 0; count--) {
        link = add_from(link, lo, hi, false);
        if (hi < lo) {
            return;
        }
        if (lo + size < lo) {
            link = mrp;
        }
        lo += size;
        hi += size;
    }
}

} // namespace

void range_add(memory_range **mrp, std::uint32_t lo, std::uint32_t hi, bool join)
{
    add_from(mrp, lo, hi, join);
}

void range_add_blocks(memory_range **mrp, std::uint32_t lo, std::uint32_t hi, std::uint32_t block, bool join)
{
    if (block == 0 || hi < lo) {
        range_add(mrp, lo, hi, join);
        return;
    }
    memory_range **link = mrp;
    for (std::uint64_t piece = lo; piece <= hi;) {
        const std::uint64_t next_block = piece - piece % block + block;
        const std::uint64_t end = std::min<std::uint64_t>(hi, next_block - 1);
        link = add_from(link, static_cast<std::uint32_t>(piece), static_cast<std::uint32_t>(end), join);
        piece = end + 1;
    }
}

void range_free(memory_range **mrp)
{
    while (*mrp != nullptr) {
        memory_range *entry = *mrp;
        *mrp = entry->next;
        std::free(entry);
    }
}

memory_space *space_find_add(memory_space **list, const memory_space &record)
{
    while (*list != nullptr) {
        if (std::strcmp((*list)->ms_name, record.ms_name) == 0) {
            return *list;
        }
        list = &(*list)->ms_next;
    }
    *list = xnew(record);
    (*list)->ms_next = nullptr;
    return *list;
}

memory_class *class_find_add(memory_space *space, const char *name, std::uint32_t kind, std::uint32_t size,
                             std::uint32_t overrun, std::uint32_t value)
{
    memory_class **list = &space->ms_classes;
    while (*list != nullptr) {
        if (std::strcmp((*list)->cl_name, name) == 0) {
            return *list;
        }
        list = &(*list)->cl_next;
    }
    *list = xnew(memory_class{.cl_name = str_cache(name),
                              .cl_kind = kind,
                              .cl_size = size,
                              .cl_overrun = overrun,
                              .cl_value = value,
                              .cl_ranges = nullptr,
                              .cl_space = space,
                              .cl_next = nullptr});
    return *list;
}

namespace {

constexpr std::uint32_t BASE_OCTAL = 8;
constexpr std::uint32_t BASE_DECIMAL = 10;
constexpr std::uint32_t BASE_HEX = 16;

bool is_one_of(char c, std::string_view characters)
{
    return characters.find(c) != std::string_view::npos;
}

// The base of a run of digits. Takes the suffix from `after` or, as "d" is a digit too, from the end of the run.
std::uint32_t number_base(std::string_view *run, const char **after)
{
    if (is_one_of(**after, "hH")) {
        ++*after;
        return BASE_HEX;
    }
    if (is_one_of(**after, "oOqQ")) {
        ++*after;
        return BASE_OCTAL;
    }
    if (!run->empty() && is_one_of(run->back(), "dD")) {
        run->remove_suffix(1);
    }
    return BASE_DECIMAL;
}

} // namespace

bool parse_number(const char **text, std::uint32_t *value)
{
    const char *begin = *text;
    const bool prefixed = begin[0] == '0' && is_one_of(begin[1], "xX");
    if (prefixed) {
        begin += 2;
    }
    const char *after = begin;
    while (digit_value(*after) < BASE_HEX) {
        after++;
    }
    std::string_view run(begin, static_cast<std::size_t>(after - begin));
    const std::uint32_t base = prefixed ? BASE_HEX : number_base(&run, &after);
    if (run.empty()) {
        return true;
    }
    std::uint32_t result = 0;
    for (const char c : run) {
        const std::uint32_t digit = digit_value(c);
        if (digit >= base) {
            return true;
        }
        result = result * base + digit;
    }
    *value = result;
    *text = after;
    return false;
}

namespace {

// One range of a class, "<low>-<high>[-<overrun>][x<repeat>]".
struct class_range {
    std::uint32_t lo = 0;
    std::uint32_t hi = 0;
    std::uint32_t overrun = 0;
    std::uint32_t repeat = 1;
};

// Passes over the character at `position` and reads the number behind it; false on success.
bool parse_number_behind(const char **position, std::uint32_t *value)
{
    ++*position;
    return parse_number(position, value);
}

// Moves `position` behind a range; false after a report.
bool parse_class_range(const char *whole, const char **position, class_range *range)
{
    if (**position == '\0') {
        alert(MISSING_ADDRESS);
        return false;
    }
    if (parse_number(position, &range->lo)) {
        alert(BAD_LOW_ADDRESS, whole);
        return false;
    }
    if (**position != '-') {
        alert(EXPECTED_HYPHEN, *position);
        return false;
    }
    if (parse_number_behind(position, &range->hi)) {
        alert(BAD_HIGH_ADDRESS, whole);
        return false;
    }
    if (**position == '-' && parse_number_behind(position, &range->overrun)) {
        alert(BAD_REPEAT_COUNT, whole);
        return false;
    }
    if (is_one_of(**position, "xX*") && parse_number_behind(position, &range->repeat)) {
        alert(BAD_REPEAT_COUNT, whole);
        return false;
    }
    return true;
}

// What stands behind the ranges: "/<size>", or the end of the text.
void parse_class_end(memory_class *cls, const char *position)
{
    if (*position == '/' && parse_number_behind(&position, &cls->cl_size)) {
        alert(MISSING_ADDRESS);
        return;
    }
    if (*position != '\0') {
        alert(SYNTAX_ERROR, position);
    }
}

} // namespace

void parse_class_spec(memory_class *cls, const char *text)
{
    const char *position = std::strchr(text, '=');
    if (position == nullptr) {
        alert(MISSING_ADDRESS);
        return;
    }
    std::uint32_t copies_left = CLASS_COPIES_MAX;
    do {
        position++; // the "=", or the "," in front of a further range
        class_range range;
        if (!parse_class_range(text, &position, &range)) {
            return;
        }
        if (range.repeat > copies_left) {
            alert(BAD_REPEAT_COUNT, text);
            return;
        }
        copies_left -= range.repeat;
        add_copies(&cls->cl_ranges, range.lo, range.hi, range.repeat);
        cls->cl_overrun = range.overrun;
    } while (*position == ',');
    parse_class_end(cls, position);
}

void parse_memory_spec(const char *text, memory_space **list)
{
    std::size_t digits = 0;
    const std::uint32_t number = text_to_u32(text, BASE_DECIMAL, &digits);
    const char *separator = text + digits; // any character
    const char *colon = *separator != '\0' ? std::strchr(separator + 1, ':') : nullptr;
    const char *at = colon != nullptr ? std::strchr(colon + 1, '@') : nullptr;
    const char *equals = at != nullptr ? std::strchr(at + 1, '=') : nullptr;
    if (equals == nullptr) {
        alert(SYNTAX_ERROR, text);
        return;
    }
    const auto between = [](const char *begin, const char *end) {
        return std::string_view(begin + 1, static_cast<std::size_t>(end - begin - 1));
    };
    const std::uint32_t value = text_to_u32(between(colon, at), BASE_HEX);
    memory_space *space = space_find_add(list, {.ms_name = str_cache(between(separator, colon)), .ms_number = number});
    memory_class *cls = class_find_add(space, str_cache(between(at, equals)), DEFAULT_CLASS_KIND, 0, 0, value);
    parse_class_spec(cls, at + 1);
}

namespace {

struct psect_flag_letter {
    char letter;
    psect_flag flag;
};

// Lowest bit first.
constexpr psect_flag_letter PSECT_FLAG_LETTERS[] = {
    {'w', PDB_WRITE},
    {'x', PDB_EXEC},
    {'s', PDB_NOSPACE},
    {'f', PDB_FAKE},
};

} // namespace

const char *psect_flags_text(std::uint32_t flags)
{
    char letters[std::size(PSECT_FLAG_LETTERS)];
    std::size_t count = 0;
    for (const psect_flag_letter &row : PSECT_FLAG_LETTERS) {
        if ((flags & row.flag) != 0) {
            letters[count++] = row.letter;
        }
    }
    return str_cache(std::string_view(letters, count));
}

std::uint32_t psect_flags_parse(const char *text)
{
    std::uint32_t flags = 0;
    for (const char c : std::string_view(text)) {
        for (const psect_flag_letter &row : PSECT_FLAG_LETTERS) {
            if (c == row.letter) {
                flags |= row.flag;
            }
        }
    }
    return flags;
}
