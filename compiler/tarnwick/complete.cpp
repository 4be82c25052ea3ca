// SPDX-License-Identifier: MIT
// Completing the model after all inputs were read.
#include "compiler/tarnwick/complete.h"

#include <cstdio>
#include <tuple>
#include <vector>

#include "common/alert.h"
#include "common/alloc.h"
#include "common/distinct_sort.h"
#include "compiler/tarnwick/options.h"

namespace {

// The longest span in address units that a line keeps; a longer one collapses to the line's first address.
constexpr std::uint32_t LINE_SPAN_MAX = 255;

template <typename Key>
int compare_keys(const Key &left, const Key &right)
{
    return left < right ? -1 : right < left ? 1 : 0;
}

int compare_by_address(const tarn_line *left, const tarn_line *right)
{
    return compare_keys(std::tie(left->ln_addr, left->ln_line, left->ln_file),
                        std::tie(right->ln_addr, right->ln_line, right->ln_file));
}

int compare_by_line(const tarn_line *left, const tarn_line *right)
{
    return compare_keys(std::tie(left->ln_line, left->ln_addr, left->ln_end),
                        std::tie(right->ln_line, right->ln_addr, right->ln_end));
}

void set_line_end(tarn_line *line, const tarn_line *next)
{
    const std::uint32_t span = next->ln_addr - line->ln_addr;
    line->ln_end = line->ln_addr;
    if (span == 0) {
        return;
    }
    if (span <= LINE_SPAN_MAX) {
        line->ln_end = next->ln_addr - 1;
    } else if (line->ln_file == next->ln_file) {
        alert(1289, next->ln_addr - 1, span);
    }
}

const char *segment_name(std::uint32_t number)
{
    const tarn_segment *seg = seg_list.get(number - 1);
    return seg != nullptr ? seg->sg_name : "";
}

template <typename T>
T **new_array(std::uint32_t count)
{
    return static_cast<T **>(xarena(std::size_t{count} * sizeof(T *), alignof(T *)));
}

// The entries of each file, gathered in one pass over their list.
struct gathered {
    std::vector<std::uint32_t> symbols; // stored so far, by file number less 1
    std::vector<std::uint32_t> lines;
};

void make_arrays()
{
    for (tarn_file *fp : each(file_list)) {
        if (fp->fl_nsymbols != 0) {
            fp->fl_symbols = new_array<tarn_symbol>(fp->fl_nsymbols);
        }
        if (fp->fl_nlines != 0) {
            fp->fl_lines = new_array<tarn_line>(fp->fl_nlines);
        }
    }
}

gathered gather()
{
    gathered counts = {std::vector<std::uint32_t>(file_list.count()), std::vector<std::uint32_t>(file_list.count())};
    for (tarn_symbol *sp : each(symbol_list)) {
        const tarn_file *fp = file_list.get(sp->sy_file - 1);
        if (fp != nullptr && counts.symbols[sp->sy_file - 1] < fp->fl_nsymbols) {
            fp->fl_symbols[counts.symbols[sp->sy_file - 1]++] = sp;
        }
    }
    for (tarn_line *lp : each(line_list)) {
        const tarn_file *fp = file_list.get(lp->ln_file - 1);
        if (fp != nullptr && counts.lines[lp->ln_file - 1] < fp->fl_nlines) {
            fp->fl_lines[counts.lines[lp->ln_file - 1]++] = lp;
        }
    }
    return counts;
}

void complete_symbols(tarn_file *fp, std::uint32_t count, std::uint32_t name_width)
{
    if (opt_verbose > 1) {
        for (std::uint32_t i = 0; i < count; ++i) {
            const tarn_symbol *sp = fp->fl_symbols[i];
            std::fprintf(stderr, "\t%-*s %-8X %s\n", static_cast<int>(name_width), segment_name(sp->sy_seg),
                         sp->sy_value, sp->sy_name);
        }
    }
    if (count < fp->fl_nsymbols) {
        alert(606);
        fp->fl_nsymbols = count; // what is there can be written still
    }
}

void complete_lines(tarn_file *fp, std::uint32_t count)
{
    if (count < fp->fl_nlines) {
        alert(607, count);
        fp->fl_nlines = count;
    }
    if (count > 1) {
        sort_records<compare_by_line>(fp->fl_lines, count);
    }
    if (opt_verbose > 1) {
        for (std::uint32_t i = 0; i < count; ++i) {
            const tarn_line *lp = fp->fl_lines[i];
            std::fprintf(stderr, "\t%5.5u: %X-%X %s\n", lp->ln_line, lp->ln_addr, lp->ln_end, segment_name(lp->ln_seg));
        }
    }
}

} // namespace

void line_span_fixup()
{
    if (line_list.empty()) {
        return;
    }
    vector_of<tarn_line *> sorted = line_list.copy();
    sort_records<compare_by_address>(sorted);
    for (std::uint32_t i = 0; i + 1 < sorted.count(); ++i) {
        set_line_end(sorted.get(i), sorted.get(i + 1));
    }
    sorted.last()->ln_end = sorted.last()->ln_addr;
    sorted.free();
}

void distribute_by_file(std::uint32_t name_width)
{
    make_arrays();
    const gathered counts = gather();
    std::uint32_t index = 0;
    for (tarn_file *fp : each(file_list)) {
        if (opt_verbose != 0) {
            std::fprintf(stderr, "\nFile: %s\n", fp->fl_name);
            std::fprintf(stderr, "Symbols: %u\n", fp->fl_nsymbols);
        }
        complete_symbols(fp, counts.symbols[index], name_width);
        if (opt_verbose != 0) {
            std::fprintf(stderr, "Lines: %u\n", fp->fl_nlines);
        }
        complete_lines(fp, counts.lines[index]);
        ++index;
    }
}
