// SPDX-License-Identifier: MIT
// Consolidation. Readers leave data blocks as the input cut them and segments as the linker listed them; here each block
// gets a segment, what lies in none gets a stray one, and each segment becomes a single run of bytes.
#include "compiler/tarnwick/consolidate.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

#include "common/alert.h"
#include "common/alloc.h"
#include "common/distinct_sort.h"
#include "common/stringcache.h"
#include "common/trace.h"
#include "compiler/tarnwick/options.h"
#include "compiler/tarnwick/span_index.h"

namespace {

constexpr std::uint32_t MESSAGE_INTERNAL_ERROR = 1521;

bool consolidated = false;             // a run that found data is over
tarn_segment *stray_segment = nullptr; // the stray segment in use: the only one that can grow
std::uint32_t stray_count = 0;

std::uint32_t block_end(const tarn_data *dp)
{
    return dp->da_addr + dp->da_len;
}

std::uint32_t load_end(const tarn_segment *seg)
{
    return seg->sg_load + seg->sg_size;
}

// The segment at a number, or null for a number that is none.
tarn_segment *segment_at(std::uint32_t number)
{
    return seg_list.get(number - 1);
}

// Finds what a walk of `seg_list` from the first would find for a block. A segment whose end wraps below its start has no
// byte, and so has a block.
class segment_finder {
public:
    segment_finder()
    {
        const std::uint32_t count = seg_list.count();
        for (std::uint32_t position = 0; position < count; ++position) {
            const tarn_segment *seg = seg_list.get(position);
            if (seg != stray_segment && (seg->sg_flags & PDB_NOSPACE) == 0) {
                add(seg, position);
            }
        }
    }

    // Position of the first segment with a byte of the block, or NO_INDEX.
    std::uint32_t find(const tarn_data *dp) const
    {
        const std::uint32_t found = index_.lowest(dp->da_addr, block_end(dp));
        return stray_has_byte_of(dp) ? std::min(found, stray_segment->sg_index - 1) : found;
    }

    // To be called when the stray segment in use is about to be replaced: it won't grow any more.
    void settle_stray()
    {
        if (stray_segment != nullptr) {
            add(stray_segment, stray_segment->sg_index - 1);
        }
    }

private:
    void add(const tarn_segment *seg, std::uint32_t position)
    {
        if (seg->sg_load < load_end(seg)) {
            index_.add({seg->sg_load, load_end(seg), position});
        }
    }

    static bool stray_has_byte_of(const tarn_data *dp)
    {
        return stray_segment != nullptr &&
               std::max(dp->da_addr, stray_segment->sg_load) < std::min(block_end(dp), load_end(stray_segment));
    }

    span_index index_; // of all segments but the stray one in use
};

// Cuts off what of the block lies outside of the segment. The two have a byte in common.
void cut_at_bounds(tarn_data *dp, const tarn_segment *seg)
{
    if (dp->da_addr < seg->sg_load) {
        split_data(dp, std::int64_t{seg->sg_load} - dp->da_addr);
    }
    if (block_end(dp) > load_end(seg)) {
        split_data(dp, std::int64_t{load_end(seg)} - block_end(dp));
    }
}

tarn_segment *add_stray_segment(const tarn_data *dp)
{
    auto *seg = xnew<tarn_segment>();
    seg->sg_index = seg_list.count() + 1;
    seg->sg_name = str_printf("_stray_data_%u_", stray_count++);
    seg->sg_addr = dp->da_addr;
    seg->sg_load = dp->da_addr;
    seg->sg_size = dp->da_len;
    seg->sg_flags = PDB_WRITE;
    seg->sg_delta = code_delta;
    seg->sg_space = static_cast<std::uint32_t>(set_min(code_spaces));
    seg->sg_ranges = vector_of<tarn_segment_range *>::make();
    seg_list.push(seg); // directly: the name is not tested
    return seg;
}

void map_to_stray(tarn_data *dp, segment_finder *finder)
{
    if (stray_segment != nullptr && load_end(stray_segment) == dp->da_addr) {
        stray_segment->sg_size += dp->da_len;
    } else {
        finder->settle_stray();
        stray_segment = add_stray_segment(dp);
    }
    dp->da_seg = stray_segment->sg_index;
}

void map_block(tarn_data *dp, segment_finder *finder)
{
    const std::uint32_t position = finder->find(dp);
    if (position == NO_INDEX) {
        map_to_stray(dp, finder);
    } else {
        const tarn_segment *seg = seg_list.get(position);
        cut_at_bounds(dp, seg);
        dp->da_seg = position + 1; // the place counts: a COFF input stores numbers from 0
        TRACEF(TRACE_ON, "data [%X-%X] -> seg[%s,%X-%X]\n", dp->da_addr, block_end(dp) - 1, seg->sg_name, seg->sg_load,
               load_end(seg) - 1);
    }
    DB_ASSERT(dp->da_seg != 0, "dp->da_seg != 0");
}

// --- sort and merge -----------------------------------------------------------------------------------------------------

int compare_blocks(const tarn_data *left, const tarn_data *right)
{
    if (left->da_seg != right->da_seg) {
        return left->da_seg < right->da_seg ? -1 : 1;
    }
    if (left->da_addr != right->da_addr) {
        return left->da_addr < right->da_addr ? -1 : 1;
    }
    return 0;
}

// The position behind the blocks that continue the one at `first` without a gap.
std::uint32_t run_end(std::uint32_t first)
{
    const std::uint32_t count = data_list.count();
    const std::uint32_t segment = data_list.get(first)->da_seg;
    std::uint32_t address = block_end(data_list.get(first));
    std::uint32_t i = first + 1;
    for (; i < count; ++i) {
        const tarn_data *dp = data_list.get(i);
        if (dp->da_seg != segment || dp->da_addr != address) {
            break;
        }
        address += dp->da_len;
    }
    return i;
}

// Lets the block at `first` hold the bytes of all up to `behind`. Those of an image mostly lie behind each other already.
void join_run(std::uint32_t first, std::uint32_t behind)
{
    tarn_data *joined = data_list.get(first);
    std::size_t size = 0;
    bool contiguous = true;
    for (std::uint32_t i = first; i < behind; ++i) {
        const tarn_data *dp = data_list.get(i);
        contiguous = contiguous && dp->da_bytes == joined->da_bytes + size;
        size += dp->da_len;
    }
    if (contiguous) {
        joined->da_len = static_cast<std::uint32_t>(size);
        return;
    }
    auto *bytes = static_cast<std::uint8_t *>(xarena(size, 1));
    std::uint8_t *out = bytes;
    for (std::uint32_t i = first; i < behind; ++i) {
        const tarn_data *dp = data_list.get(i);
        if (dp->da_len != 0) {
            std::memcpy(out, dp->da_bytes, dp->da_len);
            out += dp->da_len;
        }
    }
    joined->da_bytes = bytes;
    joined->da_len = static_cast<std::uint32_t>(size);
}

// Merges blocks that touch. The result is the sum of all lengths but that of the first block: the report has always left
// it out.
std::uint32_t merge_blocks()
{
    const std::uint32_t count = data_list.count();
    std::uint32_t total = 0;
    for (std::uint32_t i = 1; i < count; ++i) {
        total += data_list.get(i)->da_len;
    }
    vector_of<tarn_data *> merged = vector_of<tarn_data *>::make();
    for (std::uint32_t first = 0; first < count;) {
        const std::uint32_t behind = run_end(first);
        if (behind - first > 1) {
            join_run(first, behind);
        }
        merged.push(data_list.get(first));
        first = behind;
    }
    data_list.free();
    data_list = merged;
    return total;
}

// --- one segment per block ----------------------------------------------------------------------------------------------

void trace_segments(const char *title)
{
    if (!tracing(TRACE_ON)) {
        return;
    }
    TRACEF(TRACE_ON, "%s", title);
    for (const tarn_segment *seg : each(seg_list)) {
        TRACEF(TRACE_ON, "  %u: \"%s\" [%X+%X] Load@%X", seg->sg_index, seg->sg_name, seg->sg_addr, seg->sg_size,
               seg->sg_load);
    }
}

void split_groups()
{
    const std::uint32_t count = data_list.count();
    if (count < 2) {
        return; // a lone block leaves all segments as they are, also when it covers only part of one
    }
    trace_segments("seg_list before");
    // Numbers above the count of now are no segments, and don't become any when pieces are added.
    const std::uint32_t segments = seg_list.count();
    const auto split = [segments](std::uint32_t number, vector_of<tarn_data *> blocks) {
        split_segment(number <= segments ? segment_at(number) : nullptr, blocks);
    };
    vector_of<tarn_data *> group = vector_of<tarn_data *>::make();
    std::uint32_t number = data_list.get(0)->da_seg;
    for (std::uint32_t i = 0; i < count; ++i) {
        tarn_data *dp = data_list.get(i);
        if (dp->da_seg != number) {
            split(number, group);
            group.clear();
            number = dp->da_seg;
        }
        group.push(dp);
        TRACEF(TRACE_ON, "data[%u]: seg[%d]", i, static_cast<std::int32_t>(dp->da_seg));
        TRACEF(TRACE_ON, "same_segs = %u", group.count());
    }
    split(number, group);
    group.free();
    tarn_segments_changed();
    trace_segments("seg_list after");
}

// Adds the segment of a block at the end of `seg_list`; null when its name is taken.
tarn_segment *add_piece(const tarn_segment *oldsp, const tarn_data *dp, std::uint32_t number)
{
    const std::uint32_t count = seg_list.count();
    tarn_segment record;
    record.sg_index = count + 1;
    record.sg_name = str_printf("%s$%u", oldsp->sg_name, number);
    record.sg_load = dp->da_addr;
    record.sg_addr = oldsp->sg_addr + dp->da_addr - oldsp->sg_load;
    record.sg_size = dp->da_len;
    record.sg_flags = oldsp->sg_flags;
    record.sg_delta = oldsp->sg_delta;
    record.sg_space = oldsp->sg_space;
    add_seg_internal(record, false);
    if (seg_list.count() == count) {
        return nullptr;
    }
    tarn_segment *newsp = seg_list.last();
    DB_ASSERT(newsp != nullptr, "newsp != NULL");
    newsp->sg_ranges.free();
    newsp->sg_ranges = oldsp->sg_ranges; // shared: the pieces don't have only their own
    return newsp;
}

// --- bounds and reports -------------------------------------------------------------------------------------------------

// The first block of each segment, by position; null where there is none.
std::vector<const tarn_data *> first_blocks()
{
    std::vector<const tarn_data *> first(seg_list.count(), nullptr);
    for (const tarn_data *dp : each(data_list)) {
        if (dp->da_seg - 1 < first.size() && first[dp->da_seg - 1] == nullptr) {
            first[dp->da_seg - 1] = dp;
        }
    }
    return first;
}

void widen_segment(tarn_segment *seg, const tarn_data *dp)
{
    const std::uint32_t end = std::max(load_end(seg), block_end(dp));
    if (dp->da_addr < seg->sg_load) {
        seg->sg_addr += dp->da_addr - seg->sg_load;
        seg->sg_load = dp->da_addr;
    }
    seg->sg_size = std::max(seg->sg_size, end - seg->sg_load);
}

void widen_segments()
{
    const std::vector<const tarn_data *> first = first_blocks();
    for (std::uint32_t position = 0; position < first.size(); ++position) {
        if (first[position] != nullptr && first[position]->da_len != 0) {
            widen_segment(seg_list.get(position), first[position]);
        }
    }
    tarn_segments_changed();
}

void report_blocks(std::uint32_t total)
{
    if (opt_verbose == 0) {
        return;
    }
    std::fprintf(stderr, "\nData blocks: %u, total size %X\n", data_list.count(), total);
    if (opt_verbose < 2) {
        return;
    }
    for (const tarn_data *dp : each(data_list)) {
        std::fprintf(stderr, "\t%X-%X", dp->da_addr, block_end(dp) - 1);
        if (const tarn_segment *seg = segment_at(dp->da_seg)) {
            std::fprintf(stderr, " %s\n", seg->sg_name);
        } else {
            std::fprintf(stderr, " seg %d\n", static_cast<std::int32_t>(dp->da_seg - 1));
        }
    }
}

void report_segments()
{
    if (opt_verbose == 0) {
        return;
    }
    std::fprintf(stderr, "\nSegments: %u\n", seg_list.count());
    for (const tarn_segment *seg : each(seg_list)) {
        std::fprintf(stderr, "\t%-*s %X", 0, seg->sg_name, seg->sg_addr);
        if (seg->sg_size != 0) {
            std::fprintf(stderr, "-%X", seg->sg_addr + seg->sg_size - 1);
        }
        if (seg->sg_load != seg->sg_addr) {
            std::fprintf(stderr, " Load@%X", seg->sg_load);
        }
        std::fputc('\n', stderr);
    }
    std::fputc('\n', stderr);
}

} // namespace

void map_data_list_to_segments()
{
    segment_finder finder;
    for (std::uint32_t i = 0; i < data_list.count(); ++i) { // the list grows during the loop
        tarn_data *dp = data_list.get(i);
        if (dp->da_seg == 0) {
            map_block(dp, &finder);
        }
    }
    tarn_segments_changed();
}

// The pieces share the bytes of the block they were cut from; nothing writes through them.
void split_data(tarn_data *dp, std::int64_t count)
{
    DB_ASSERT(dp != nullptr, "dp != NULL");
    const bool head = count > 0;
    const std::uint64_t split_bytes = head ? static_cast<std::uint64_t>(count) : 0 - static_cast<std::uint64_t>(count);
    if (dp == nullptr || split_bytes == dp->da_len) {
        return;
    }
    DB_ASSERT(split_bytes < dp->da_len, "split_bytes < dp->da_len");
    if (split_bytes > dp->da_len) {
        return;
    }
    const auto cut = static_cast<std::uint32_t>(split_bytes);
    const std::uint32_t rest = dp->da_len - cut;
    const tarn_data whole = *dp;
    auto *piece = xnew<tarn_data>();
    piece->da_len = cut;
    dp->da_len = rest;
    if (head) {
        piece->da_addr = whole.da_addr;
        piece->da_bytes = whole.da_bytes;
        dp->da_addr += cut;
        dp->da_bytes += cut;
    } else {
        piece->da_addr = whole.da_addr + rest;
        piece->da_bytes = whole.da_bytes + rest;
    }
    data_list.push(piece);
    TRACEF(TRACE_ON, "split off [%X-%X]", piece->da_addr, block_end(piece) - 1);
}

void split_segment(tarn_segment *oldsp, vector_of<tarn_data *> datals)
{
    DB_ASSERT(oldsp != nullptr, "oldsp != NULL");
    DB_ASSERT(bool(datals), "datals != NULL");
    if (oldsp == nullptr || datals.empty()) {
        return;
    }
    if (datals.count() == 1 && datals.get(0)->da_len == oldsp->sg_size) {
        return; // contiguous already
    }
    const std::uint32_t place = datals.get(0)->da_seg - 1;
    for (std::uint32_t i = 0; i < datals.count(); ++i) {
        tarn_data *dp = datals.get(i);
        tarn_segment *newsp = add_piece(oldsp, dp, i);
        if (newsp == nullptr) {
            alert(MESSAGE_INTERNAL_ERROR); // the linker makes no such names
        } else if (i == 0) {
            newsp->sg_index = oldsp->sg_index;
            seg_list.pop();
            seg_list.set(newsp, place);
        } else {
            newsp->sg_index = seg_list.count();
            dp->da_seg = seg_list.count();
        }
    }
}

void ensure_contiguous_data()
{
    if (consolidated || data_list.empty()) {
        return; // data may still come: a later call does the work then
    }
    map_data_list_to_segments();
    sort_records<compare_blocks>(data_list);
    const std::uint32_t total = merge_blocks();
    split_groups();
    report_blocks(total);
    widen_segments();
    report_segments();
    consolidated = true;
}

void consolidation_reset()
{
    consolidated = false;
    stray_segment = nullptr;
    stray_count = 0;
}
