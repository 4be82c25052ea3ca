// SPDX-License-Identifier: MIT
// Look-ups in the program model.
#include "compiler/tarnwick/model.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "common/osdep.h"
#include "common/stringcache.h"
#include "common/trace.h"
#include "compiler/tarnwick/model_names.h"

namespace {

constexpr std::uint32_t BASE_NAME_BUCKETS = 127;
constexpr std::uint32_t EXACT_NAME_BUCKETS = 127;

// Files by name, exactly compared, in the order of the list they were taken from.
struct file_name_index {
    hash_of<const char *, vector *> files; // name to vector of files
    std::uint32_t count = 0;               // files of `file_list` that were entered

    void reset()
    {
        if (files) {
            vector_of<vector *> lists = files.values();
            for (vector *list : each(lists)) {
                vector_free(list);
            }
            lists.free();
            files.free();
        }
        count = 0;
    }
    void add(const char *name, tarn_file *fp)
    {
        if (!files) {
            files = hash_of<const char *, vector *>::make_strings(EXACT_NAME_BUCKETS);
        }
        vector *list = files.get(name);
        if (list == nullptr) {
            list = vector_of<tarn_file *>::make(1).raw();
            files.insert(name, list);
        }
        vector_of<tarn_file *>(list).push(fp);
    }
    vector_of<tarn_file *> get(const char *name) const
    {
        return vector_of<tarn_file *>(files ? files.get(name) : nullptr);
    }
};

file_name_index exact_names;
std::uint32_t symbols_with_value = 0;          // symbols of `symbol_list` that `symbols_by_value` knows
hash_of<const char *, tarn_file *> base_names; // one file per base name; null until the first search by base name

// The union of ranges, in ascending order.
std::vector<address_range> in_order(const address_range *ranges, std::uint32_t count)
{
    std::vector<address_range> sorted(ranges, ranges + count);
    std::erase_if(sorted, [](const address_range &range) { return range.high < range.low; });
    std::sort(sorted.begin(), sorted.end(),
              [](const address_range &left, const address_range &right) { return left.low < right.low; });
    std::vector<address_range> joined;
    for (const address_range &range : sorted) {
        if (joined.empty() || joined.back().high < range.low) {
            joined.push_back(range);
        } else {
            joined.back().high = std::max(joined.back().high, range.high);
        }
    }
    return joined;
}

// One search of a line number.
struct line_search {
    using place = tarn_line *const *;

    std::uint32_t line;
    const std::vector<address_range> *ranges; // in ascending order and apart; null when any address counts
    std::uint32_t *out;
    const tarn_line *previous = nullptr; // the entry before; kept from file to file, not reset

    // The first of the ranges that ends at or behind an address, or their end.
    auto range_at(std::uint32_t address) const
    {
        return std::lower_bound(ranges->begin(), ranges->end(), address,
                                [](const address_range &range, std::uint32_t value) { return range.high < value; });
    }

    bool accept(const tarn_line *entry) const
    {
        if (ranges != nullptr) {
            const auto range = range_at(entry->ln_addr);
            if (range == ranges->end() || entry->ln_addr < range->low) {
                return false;
            }
        }
        *out = entry->ln_addr;
        return true;
    }

    // Takes the first entry that counts among those of one line, which are sorted by address. Each step leaps to the
    // next range, or to the next entry in it.
    bool accept_first(place first, place end) const
    {
        while (first != end && !accept(*first)) {
            const auto range = range_at((*first)->ln_addr);
            if (range == ranges->end()) {
                return false;
            }
            first = std::lower_bound(first, end, range->low,
                                     [](const tarn_line *lp, std::uint32_t low) { return lp->ln_addr < low; });
        }
        return first != end;
    }

    // Looks at a pair of neighbours: 1 or -1 as `tarn_line_addr`, 0 to go on.
    int look_at(const tarn_line *before, const tarn_line *current) const
    {
        if (before->ln_line > line || current->ln_line < line) {
            return 0;
        }
        if (before->ln_line == line && accept(before)) {
            return 1;
        }
        if (accept(current)) {
            return current->ln_line == line ? 1 : -1;
        }
        return 0;
    }

    // Entries are sorted by line number and address. Of the pairs of neighbours only those count in which an entry of
    // the line stands, and the one around the place where it would stand. A lone entry is in no pair and never found.
    int look_in(const tarn_file *fp)
    {
        if (fp->fl_lines == nullptr || fp->fl_nlines == 0) {
            return 0;
        }
        const place begin = fp->fl_lines;
        const place end = begin + fp->fl_nlines;
        if (previous != nullptr) {
            if (const int result = look_at(previous, *begin)) {
                return result;
            }
        }
        previous = end[-1];
        if (fp->fl_nlines == 1) {
            return 0;
        }
        const place first =
            std::lower_bound(begin, end, line, [](const tarn_line *lp, std::uint32_t n) { return lp->ln_line < n; });
        const place behind =
            std::upper_bound(first, end, line, [](std::uint32_t n, const tarn_line *lp) { return n < lp->ln_line; });
        if (accept_first(first, behind)) {
            return 1;
        }
        return behind != begin && behind != end && accept(*behind) ? -1 : 0;
    }
};

void index_file_names()
{
    if (exact_names.count > file_list.count()) {
        exact_names.reset();
    }
    for (; exact_names.count < file_list.count(); ++exact_names.count) {
        tarn_file *fp = file_list.get(exact_names.count);
        exact_names.add(fp->fl_name, fp);
    }
}

// Made once, and then kept: files that come later are not in it.
void index_base_names()
{
    if (base_names) {
        return;
    }
    base_names = hash_of<const char *, tarn_file *>::make_strings(BASE_NAME_BUCKETS);
    for (tarn_file *fp : each(file_list)) {
        base_names.insert(str_cache(path_tail(fp->fl_name)), fp);
    }
}

bool is_member(const set *spaces, std::uint32_t space)
{
    return set_contains(spaces, space);
}

const tarn_segment *segment_at(std::uint32_t number)
{
    return seg_list.get(number - 1);
}

} // namespace

void model_finders_reset()
{
    exact_names.reset();
    base_names.free();
    symbols_with_value = 0;
    model_segments_reset();
}

// Few outputs ask for symbols by value, so they are entered when the first one does. A value stays as it was added.
void tarn_settle_symbol_values()
{
    for (; symbols_with_value < symbol_list.count(); ++symbols_with_value) {
        tarn_symbol *sp = symbol_list.get(symbols_with_value);
        if (sp->sy_name[0] != 'F') { // those are found by name alone
            symbols_by_value.insert(sp->sy_value, sp);
        }
    }
}

tarn_psect *tarn_find_psect(const char *name)
{
    return psect_table.get(name);
}

tarn_symbol *tarn_find_symbol(const char *name)
{
    return symbols_by_name.get(name);
}

tarn_symbol *tarn_find_symbol_at(std::uint32_t value)
{
    tarn_settle_symbol_values();
    return symbols_by_value.get(value);
}

tarn_file *tarn_find_file(const char *name)
{
    const char *key = model_file_name(name);
    return key != nullptr ? files_by_name.get(key) : nullptr;
}

tarn_symbol *tarn_file_symbol(const char *file, const char *name)
{
    const tarn_file *fp = tarn_find_file(file);
    tarn_symbol *any = tarn_find_symbol(name);
    if (fp == nullptr || fp->fl_symbols == nullptr || any == nullptr) {
        return nullptr; // a name that no symbol bears is in no file
    }
    // Files list their symbols in the order in which they were added, so the first of all is the first of its file.
    if (any->sy_file == fp->fl_index) {
        return any;
    }
    for (std::uint32_t i = 0; i < fp->fl_nsymbols; ++i) {
        if (std::strcmp(fp->fl_symbols[i]->sy_name, name) == 0) {
            return fp->fl_symbols[i];
        }
    }
    return nullptr;
}

bool tarn_symbol_addr(const char *name, std::uint64_t *pair)
{
    const tarn_symbol *sp = tarn_find_symbol(name);
    if (sp == nullptr) {
        return false;
    }
    *pair = std::uint64_t{sp->sy_seg} << 32 | sp->sy_value;
    return true;
}

tarn_psect_range *tarn_psect_range_at(tarn_psect *pp, std::uint32_t address, bool near)
{
    DB_ASSERT(pp != nullptr, "pp != NULL");
    if (pp == nullptr) {
        return nullptr;
    }
    const std::uint32_t byte = address * pp->ps_delta;
    for (tarn_psect_range *rp : each(pp->ps_ranges)) {
        if (rp->pr_lo <= byte && byte <= rp->pr_hi) {
            return rp;
        }
    }
    if (near) {
        // A symbol that marks the end of a psect belongs to it still.
        for (tarn_psect_range *rp : each(pp->ps_ranges)) {
            if (rp->pr_hi + 1 == byte) {
                return rp;
            }
        }
    }
    return nullptr;
}

const char *tarn_name_counter(hash_of<const char *, std::uint32_t> counters, const char *name)
{
    const char *key = str_cache(name);
    if (counters.insert(key, 0)) {
        return key;
    }
    const std::uint32_t count = counters.remove(key) + 1;
    counters.insert(key, count);
    return str_printf("%s%d", key, static_cast<std::int32_t>(count));
}

bool tarn_is_code_space(std::uint32_t space)
{
    return is_member(code_spaces, space);
}

bool tarn_is_data_space(std::uint32_t space)
{
    return is_member(data_spaces, space);
}

bool tarn_is_eeprom_space(std::uint32_t space)
{
    return is_member(eeprom_spaces, space);
}

bool tarn_seg_is_code(const tarn_segment *seg)
{
    DB_ASSERT(seg != nullptr, "seg != NULL");
    return seg != nullptr && tarn_is_code_space(seg->sg_space);
}

bool tarn_seg_is_eeprom(const tarn_segment *seg)
{
    DB_ASSERT(seg != nullptr, "seg != NULL");
    return seg != nullptr && tarn_is_eeprom_space(seg->sg_space);
}

bool tarn_segno_is_code(std::uint32_t number)
{
    return number != 0 && tarn_seg_is_code(segment_at(number));
}

bool tarn_segno_is_data(std::uint32_t number)
{
    if (number == 0) {
        return false;
    }
    const tarn_segment *seg = segment_at(number);
    DB_ASSERT(seg != nullptr, "seg != NULL");
    return seg != nullptr && tarn_is_data_space(seg->sg_space);
}

namespace {

// Over the files of exactly this name.
int find_line(const char *name, line_search search)
{
    index_file_names();
    for (const tarn_file *fp : each(exact_names.get(name))) {
        if (const int result = search.look_in(fp)) {
            return result;
        }
    }
    return 0;
}

// The same, and then over the one file of this base name.
int find_line_any(const char *name, line_search search)
{
    if (const int result = find_line(name, search)) {
        return result;
    }
    index_base_names();
    const tarn_file *fp = base_names.get(path_tail(name));
    return fp != nullptr ? search.look_in(fp) : 0;
}

} // namespace

int tarn_line_addr(const char *name, std::uint32_t line, std::uint32_t *out, const address_range *ranges,
                   std::uint32_t range_count)
{
    if (name == nullptr) {
        return 0;
    }
    if (ranges == nullptr) {
        return find_line(name, {line, nullptr, out});
    }
    const std::vector<address_range> ordered = in_order(ranges, range_count);
    return find_line(name, {line, &ordered, out});
}

int tarn_line_addr_any(const char *name, std::uint32_t line, std::uint32_t *out, const address_range *ranges,
                       std::uint32_t range_count)
{
    if (name == nullptr) {
        return 0;
    }
    if (ranges == nullptr) {
        return find_line_any(name, {line, nullptr, out});
    }
    const std::vector<address_range> ordered = in_order(ranges, range_count);
    return find_line_any(name, {line, &ordered, out});
}

int tarn_line_addr_any(const char *name, std::uint32_t line, std::uint32_t *out,
                       const std::vector<address_range> &ordered)
{
    return name != nullptr ? find_line_any(name, {line, ordered.empty() ? nullptr : &ordered, out}) : 0;
}
