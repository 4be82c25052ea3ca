// SPDX-License-Identifier: MIT
// Segments: how they take their psect ranges and split by flags, and the searches over them. What a search would find
// by a walk over all psects or all segments comes from an index here, which is made when it is first asked for and made
// anew when what it was made from has changed.
#include "compiler/tarnwick/model.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <map>
#include <tuple>
#include <vector>

#include "common/alloc.h"
#include "common/stringcache.h"
#include "common/trace.h"
#include "compiler/tarnwick/model_names.h"
#include "compiler/tarnwick/span_index.h"

namespace {

constexpr std::uint32_t NAME_BUCKETS = 1021;
constexpr std::uint32_t LAST_SUFFIX = 0xFFFFFFFE;

// --- names -----------------------------------------------------------------------------------------------------------

// The first segment of each name. A name that left the list with its segment is noticed when it is asked for; names
// come in at the end of the list only, so one that is not known here is not in the list.
class segment_names {
public:
    tarn_segment *find(const char *name)
    {
        sync();
        const std::uint32_t place = places_.get(name);
        if (place == 0) {
            return nullptr;
        }
        tarn_segment *seg = seg_list.get(place - 1);
        if (seg != nullptr && std::strcmp(seg->sg_name, name) == 0) {
            return seg;
        }
        reset();
        sync();
        return seg_list.get(places_.get(name) - 1);
    }

    // To be called with every segment that is added here: when it is moved to an earlier place afterwards, its name is
    // known, and where it stands is found out when it is asked for.
    void sync()
    {
        const std::uint32_t count = seg_list.count();
        if (entered_ > count) {
            entered_ = count; // segments were taken off the end
        } else if (entered_ > 0 && seg_list.get(entered_ - 1) != last_) {
            reset();
        }
        if (!places_) {
            places_ = hash_of<const char *, std::uint32_t>::make_strings(NAME_BUCKETS);
        }
        for (; entered_ < count; ++entered_) {
            places_.insert(seg_list.get(entered_)->sg_name, entered_ + 1); // the first of a name stays
        }
        last_ = seg_list.last();
    }

    void reset()
    {
        places_.free();
        entered_ = 0;
        last_ = nullptr;
    }

private:
    hash_of<const char *, std::uint32_t> places_; // position + 1
    std::uint32_t entered_ = 0;                   // segments of the list that are in `places_`
    const tarn_segment *last_ = nullptr;          // the last one of them
};

segment_names names;
// By name, the first number that `tarn_unique_seg_name` has not yet found taken; it holds as long as no name leaves.
hash_of<const char *, std::uint32_t> next_suffix;

// --- addresses and numbers -------------------------------------------------------------------------------------------

// Segments by what their load address covers. Spans of a later place hide those of an earlier one, so places are
// turned round for an index that gives the lowest.
class segment_spans {
public:
    std::uint32_t youngest(std::uint32_t space, std::uint32_t load)
    {
        for (; entered_ < seg_list.count(); ++entered_) {
            enter(seg_list.get(entered_), entered_);
        }
        const auto of_space = spaces_.find(space);
        if (of_space == spaces_.end()) {
            return 0;
        }
        const std::uint32_t found = of_space->second.lowest(load, load + 1);
        return found == NO_INDEX ? 0 : turned(found) + 1;
    }

    void reset()
    {
        spaces_.clear();
        entered_ = 0;
    }
    std::uint32_t entered() const { return entered_; }

private:
    static std::uint32_t turned(std::uint32_t position) { return NO_INDEX - 1 - position; }

    void enter(const tarn_segment *seg, std::uint32_t position)
    {
        const std::uint32_t end = seg->sg_load + seg->sg_size;
        // A span whose end wraps is empty. The $FAKE_ABS segment takes no part.
        if (end > seg->sg_load && position + 1 != fake_abs_segment) {
            spaces_[seg->sg_space].add({seg->sg_load, end, turned(position)});
        }
    }

    std::map<std::uint32_t, span_index> spaces_;
    std::uint32_t entered_ = 0; // segments of the list that were looked at
};

segment_spans spans;

struct numbered_segment {
    std::uint32_t number;
    std::uint32_t position;
};

std::vector<numbered_segment> numbers; // sorted by stored number, then position
bool numbers_valid = false;

bool number_before(const numbered_segment &left, const numbered_segment &right)
{
    return std::tie(left.number, left.position) < std::tie(right.number, right.position);
}

void index_numbers()
{
    if (numbers_valid && numbers.size() == seg_list.count()) {
        return;
    }
    numbers.clear();
    for (const tarn_segment *seg : each(seg_list)) {
        numbers.push_back({seg->sg_index, static_cast<std::uint32_t>(numbers.size())});
    }
    std::sort(numbers.begin(), numbers.end(), number_before); // no two are equal
    numbers_valid = true;
}

void addresses_changed()
{
    if (spans.entered() != 0) {
        spans.reset();
    }
    numbers_valid = false;
}

// --- psect ranges ----------------------------------------------------------------------------------------------------

std::uint32_t range_size(const tarn_psect_range *range)
{
    return range->pr_hi + 1 - range->pr_lo;
}

// Where the range lies for a segment.
std::uint32_t range_place(const tarn_psect_range *range)
{
    return range->pr_psect->ps_use_link ? range->pr_lo : range->pr_load;
}

bool can_hold(const tarn_segment *seg, const tarn_psect *pp)
{
    return (pp->ps_flags & PDB_FAKE) == 0 && pp->ps_space == seg->sg_space;
}

// Appends the range to the segment if it lies wholly inside; one that straddles the segment's end joins nothing.
void offer_range(tarn_segment *seg, tarn_psect *pp, std::uint32_t index)
{
    const tarn_psect_range *range = pp->ps_ranges.get(index);
    const std::uint32_t size = range_size(range);
    const std::uint32_t place = range_place(range);
    if (size == 0 || place < seg->sg_load || place + size > seg->sg_load + seg->sg_size) {
        return;
    }
    TRACEF(TRACE_ON, "  ADD RANGE: \"%s\" @[%X-%X][%X+%X]", pp->ps_name, range->pr_lo, range->pr_hi, place, size);
    seg->sg_ranges.push(xnew<tarn_segment_range>({.sr_psect = pp, .sr_index = index}));
}

// All psect ranges by space and place, so that a segment is offered only those that begin inside.
class range_index {
public:
    // Offers what can lie in the segment, in the order of a walk: by psect as the table has them, then by range.
    void offer_to(tarn_segment *seg)
    {
        build();
        found_.clear();
        gather(seg);
        std::sort(found_.begin(), found_.end(), walk_before); // no two are equal
        for (const entry &e : found_) {
            if (can_hold(seg, e.psect)) {
                offer_range(seg, e.psect, e.index);
            }
        }
    }

    void reset() { valid_ = false; }

private:
    struct entry {
        std::uint32_t space;
        std::uint32_t place;
        std::uint32_t order; // of the psect in a walk over the table
        std::uint32_t index;
        tarn_psect *psect;
    };

    static bool place_before(const entry &left, const entry &right)
    {
        return std::tie(left.space, left.place) < std::tie(right.space, right.place);
    }
    static bool walk_before(const entry &left, const entry &right)
    {
        return std::tie(left.order, left.index) < std::tie(right.order, right.index);
    }

    void build()
    {
        if (valid_) {
            return;
        }
        ordered_.clear();
        wrapping_.clear();
        vector_of<tarn_psect *> psects = psect_table.values();
        std::uint32_t order = 0;
        for (tarn_psect *pp : each(psects)) {
            for (std::uint32_t i = 0; i < pp->ps_ranges.count(); ++i) {
                enter(pp, order, i);
            }
            ++order;
        }
        psects.free();
        std::sort(ordered_.begin(), ordered_.end(), place_before); // the order of equals doesn't show
        valid_ = true;
    }

    void enter(tarn_psect *pp, std::uint32_t order, std::uint32_t index)
    {
        const tarn_psect_range *range = pp->ps_ranges.get(index);
        const std::uint32_t place = range_place(range);
        const std::uint32_t size = range_size(range);
        if (size == 0) {
            return;
        }
        const bool wraps = size > std::numeric_limits<std::uint32_t>::max() - place;
        (wraps ? wrapping_ : ordered_).push_back({pp->ps_space, place, order, index, pp});
    }

    // A range that does not wrap and ends inside begins in front of the segment's end. That holds for a segment whose
    // own end wraps as well: none of them fits there.
    void gather(const tarn_segment *seg)
    {
        const std::uint32_t end = seg->sg_load + seg->sg_size;
        const entry first = {seg->sg_space, seg->sg_load, 0, 0, nullptr};
        auto at = std::lower_bound(ordered_.begin(), ordered_.end(), first, place_before);
        for (; at != ordered_.end() && at->space == seg->sg_space && at->place < end; ++at) {
            found_.push_back(*at);
        }
        found_.insert(found_.end(), wrapping_.begin(), wrapping_.end());
    }

    std::vector<entry> ordered_;  // ranges whose end does not wrap, by space and place
    std::vector<entry> wrapping_; // the others: few, and looked at one by one
    std::vector<entry> found_;
    bool valid_ = false;
};

range_index ranges;

const tarn_psect_range *range_of(const tarn_segment_range *sr)
{
    return sr->sr_psect->ps_ranges.get(sr->sr_index);
}

int compare_ranges(const tarn_segment_range *left, const tarn_segment_range *rght)
{
    DB_ASSERT(left->sr_psect->ps_space == rght->sr_psect->ps_space,
              "left.sr->sr_psect->ps_space == rght.sr->sr_psect->ps_space");
    // The difference wraps: places more than half the address range apart compare the other way round.
    return static_cast<std::int32_t>(range_place(range_of(left)) - range_place(range_of(rght)));
}

// Sorts the segment's ranges. Psects with ranges in many objects come as interleaved runs, which are slow work for the
// program's own quicksort. Where no two ranges are equal there is one order only, and any sort finds it; equal ones, and
// places so far apart that their differences wrap, are left to the quicksort.
void sort_ranges(tarn_segment *seg)
{
    constexpr std::uint32_t HALF = 0x80000000;
    struct placed {
        std::uint32_t place;
        tarn_segment_range *sr;
    };
    std::vector<placed> sorted;
    for (tarn_segment_range *sr : each(seg->sg_ranges)) {
        sorted.push_back({range_place(range_of(sr)), sr});
    }
    std::sort(sorted.begin(), sorted.end(), [](const placed &a, const placed &b) { return a.place < b.place; });
    const bool has_equals = std::adjacent_find(sorted.begin(), sorted.end(), [](const placed &a, const placed &b) {
                                return a.place == b.place;
                            }) != sorted.end();
    if (has_equals || (!sorted.empty() && sorted.back().place - sorted.front().place >= HALF)) {
        seg->sg_ranges.sort<compare_ranges>();
        return;
    }
    for (std::uint32_t i = 0; i < sorted.size(); ++i) {
        seg->sg_ranges.set(sorted[i].sr, i);
    }
}

// The segment that goes on where a range brings other flags.
tarn_segment *add_continuation(const tarn_segment *before, const tarn_segment_range *sr)
{
    const tarn_psect_range *range = range_of(sr);
    auto *seg = xnew<tarn_segment>();
    seg->sg_index = seg_list.count() + 1;
    seg->sg_addr = range->pr_lo;
    seg->sg_load = range->pr_load;
    seg->sg_flags = sr->sr_psect->ps_flags;
    seg->sg_delta = before->sg_delta;
    seg->sg_space = before->sg_space;
    seg->sg_noranges = before->sg_noranges;
    seg->sg_name = tarn_unique_seg_name(sr->sr_psect->ps_name);
    seg->sg_ranges = vector_of<tarn_segment_range *>::make();
    seg_list.push(seg);
    return seg;
}

// Deals the sorted ranges out, so that each segment has ranges of one flag word. Sizes become the sums of the ranges'
// sizes: holes between them are not counted.
void split_by_flags(tarn_segment *seg)
{
    vector_of<tarn_segment_range *> sorted = seg->sg_ranges.copy();
    seg->sg_ranges.clear();
    seg->sg_size = 0;
    seg->sg_flags = sorted.get(0)->sr_psect->ps_flags;
    for (tarn_segment_range *sr : each(sorted)) {
        if (sr->sr_psect->ps_flags != seg->sg_flags) {
            seg = add_continuation(seg, sr);
        }
        seg->sg_ranges.push(sr);
        seg->sg_size += range_size(range_of(sr));
    }
    sorted.free();
}

} // namespace

void model_segments_reset()
{
    names.reset();
    next_suffix.free();
    addresses_changed();
    ranges.reset();
}

void tarn_segments_changed()
{
    next_suffix.free();
    addresses_changed();
}

void tarn_psects_changed()
{
    ranges.reset();
}

void add_seg_range(tarn_segment *seg, tarn_psect *pp)
{
    DB_ASSERT(seg != nullptr, "seg != NULL");
    DB_ASSERT(pp != nullptr, "pp != NULL");
    if (seg == nullptr || pp == nullptr || !can_hold(seg, pp)) {
        return;
    }
    for (std::uint32_t i = 0; i < pp->ps_ranges.count(); ++i) {
        offer_range(seg, pp, i);
    }
}

void tarn_add_segment(const tarn_segment &record)
{
    add_seg_internal(record, true);
}

void add_seg_internal(const tarn_segment &record, bool look)
{
    if (tarn_find_segment(record.sg_name) != nullptr) {
        return;
    }
    auto *seg = xnew<tarn_segment>(record);
    seg->sg_name = str_cache(record.sg_name);
    seg->sg_ranges = vector_of<tarn_segment_range *>::make();
    seg_list.push(seg);
    names.sync();
    if (seg->sg_noranges) {
        return;
    }
    if (look) {
        ranges.offer_to(seg);
    }
    sort_ranges(seg);
    if (!seg->sg_ranges.empty()) {
        split_by_flags(seg);
    }
}

tarn_segment *tarn_find_segment(const char *name)
{
    return names.find(name);
}

const char *tarn_unique_seg_name(const char *name)
{
    if (tarn_find_segment(name) == nullptr) {
        return str_cache(name);
    }
    if (!next_suffix) {
        next_suffix = hash_of<const char *, std::uint32_t>::make_strings(NAME_BUCKETS);
    }
    const char *key = str_cache(name);
    std::uint32_t suffix = std::max<std::uint32_t>(next_suffix.remove(key), 1);
    const char *candidate = str_printf("%s_%u", key, suffix);
    while (tarn_find_segment(candidate) != nullptr) {
        if (suffix == LAST_SUFFIX) {
            DB_ASSERT(false, "0");
            break;
        }
        candidate = str_printf("%s_%u", key, ++suffix);
    }
    next_suffix.insert(key, suffix);
    return candidate;
}

std::uint32_t tarn_segment_of(std::uint32_t address, std::uint32_t segment, std::uint32_t delta)
{
    index_numbers();
    const std::uint32_t byte = address * delta;
    auto at = std::lower_bound(numbers.begin(), numbers.end(), numbered_segment{segment, 0}, number_before);
    for (; at != numbers.end() && at->number == segment; ++at) {
        const tarn_segment *seg = seg_list.get(at->position);
        if (byte >= seg->sg_addr && byte < seg->sg_addr + seg->sg_size) {
            return at->position + 1;
        }
    }
    return segment;
}

std::uint32_t tarn_youngest_segment_at(std::uint32_t space, std::uint32_t load)
{
    return spans.youngest(space, load);
}
