// SPDX-License-Identifier: MIT
// Where the functions of the map file's store lie: the psect of a symbol, the splits of psects, and the ranges of a
// function that runs through several of them.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <map>
#include <queue>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "common/stringcache.h"
#include "common/trace.h"
#include "compiler/common/tmf_store.h"

namespace {

// From address `start` on, up to the next step, `first` is the first psect that holds the address.
struct address_step {
    std::uint64_t start = 0;
    std::uint32_t first = NO_INDEX;
};

// Psects with one delta, as a staircase over the addresses in units of this delta.
struct address_map {
    std::uint32_t delta = 0;
    std::vector<address_step> steps;
};

// The psects that bear one name, at most one of each object, in the order of the objects.
struct namesakes {
    std::vector<tmf_psect *> psects;
    std::vector<address_map> maps; // one for each delta; made when first asked for
};

// Only looked up by name, never walked.
std::unordered_map<std::string_view, namesakes> psect_index;
bool psect_index_valid = false;

// A delta of 0 never divides: the value is kept as it is.
std::uint32_t divisor_of(const tmf_psect *psect)
{
    return psect->tmfps_delta != 0 ? psect->tmfps_delta : 1;
}

// The upper bound of a psect for the search of an address. It is one above the last unit: the end label of a psect is
// searched for too.
std::uint32_t search_top(const tmf_psect *psect)
{
    return psect->tmfps_link + psect->tmfps_length;
}

namesakes *psects_named(const char *name)
{
    if (!psect_index_valid) {
        psect_index.clear();
        vector_of<tmf_psect *> psects = tmf_psects();
        for (tmf_psect *psect : each(psects)) {
            psect_index[psect->tmfps_name].psects.push_back(psect);
        }
        psects.free();
        psect_index_valid = true;
    }
    const auto found = psect_index.find(name);
    return found != psect_index.end() ? &found->second : nullptr;
}

// Builds the staircase of the psects with these indexes. A sweep over the addresses where psects begin and end keeps the
// psects that hold the present address in a heap, lowest index on top; what has ended is dropped when it gets there.
std::vector<address_step> make_steps(const std::vector<tmf_psect *> &psects, std::vector<std::uint32_t> members)
{
    std::erase_if(members, [&](std::uint32_t i) { return search_top(psects[i]) < psects[i]->tmfps_link; });
    std::sort(members.begin(), members.end(), [&](std::uint32_t left, std::uint32_t right) {
        return psects[left]->tmfps_link < psects[right]->tmfps_link;
    });
    std::vector<std::uint64_t> bounds;
    for (const std::uint32_t i : members) {
        bounds.push_back(psects[i]->tmfps_link);
        bounds.push_back(std::uint64_t{search_top(psects[i])} + 1);
    }
    std::sort(bounds.begin(), bounds.end());

    std::vector<address_step> steps;
    std::priority_queue<std::uint32_t, std::vector<std::uint32_t>, std::greater<>> live;
    std::size_t next = 0;
    for (const std::uint64_t bound : bounds) {
        for (; next < members.size() && psects[members[next]]->tmfps_link <= bound; next++) {
            live.push(members[next]);
        }
        while (!live.empty() && search_top(psects[live.top()]) < bound) {
            live.pop();
        }
        const std::uint32_t first = live.empty() ? NO_INDEX : live.top();
        if (steps.empty() || steps.back().first != first) {
            steps.push_back({bound, first});
        }
    }
    return steps;
}

void make_address_maps(namesakes *names)
{
    std::map<std::uint32_t, std::vector<std::uint32_t>> members;
    for (std::uint32_t i = 0; i < names->psects.size(); i++) {
        members[divisor_of(names->psects[i])].push_back(i);
    }
    for (auto &[delta, indexes] : members) {
        names->maps.push_back({delta, make_steps(names->psects, std::move(indexes))});
    }
}

std::uint32_t first_at(const std::vector<address_step> &steps, std::uint32_t address)
{
    const auto behind = std::upper_bound(steps.begin(), steps.end(), address,
                                         [](std::uint32_t value, const address_step &s) { return value < s.start; });
    return behind != steps.begin() ? std::prev(behind)->first : NO_INDEX;
}

} // namespace

void tmf_drop_psect_index()
{
    psect_index_valid = false;
}

tmf_psect *tmf_symbol_psect(const tmf_symbol *symbol)
{
    if (!tmf_initialised || symbol == nullptr) {
        return nullptr;
    }
    namesakes *names = psects_named(symbol->tmfsy_psect);
    if (names == nullptr) {
        return nullptr;
    }
    if (names->maps.empty()) {
        make_address_maps(names);
    }
    std::uint32_t first = NO_INDEX;
    for (const address_map &map : names->maps) {
        first = std::min(first, first_at(map.steps, symbol->tmfsy_value / map.delta));
    }
    return first != NO_INDEX ? names->psects[first] : nullptr;
}

namespace {

struct split_psects {
    tmf_psect *parent = nullptr;
    tmf_psect *child = nullptr;
};

tmf_psect *psect_of_same_object(const tmf_psect *psect, const char *name)
{
    return tmf_store.objects.get(psect->tmfps_obj)->tmfob_psects.get(name);
}

// Parent and child of a split in the first object that has both; nulls when there is none. The search goes through the
// rarer of the two names.
split_psects find_split_psects(const tmf_split *split)
{
    const namesakes *parents = psects_named(split->tmfsp_parent);
    const namesakes *children = psects_named(split->tmfsp_child);
    if (parents == nullptr || children == nullptr) {
        return {};
    }
    if (parents->psects.size() < children->psects.size()) {
        for (tmf_psect *parent : parents->psects) {
            if (tmf_psect *child = psect_of_same_object(parent, split->tmfsp_child)) {
                return {parent, child};
            }
        }
        return {};
    }
    for (tmf_psect *child : children->psects) {
        if (tmf_psect *parent = psect_of_same_object(child, split->tmfsp_parent)) {
            return {parent, child};
        }
    }
    return {};
}

// A child is cut from the top of its parent, so that it stands in front of the children that were cut before.
void link_split(tmf_psect *parent, tmf_psect *child)
{
    child->tmfps_split.next = parent->tmfps_split.next;
    parent->tmfps_split.next = child;
    child->tmfps_split.parent = parent;
    if (child->tmfps_split.next != nullptr) {
        child->tmfps_split.next->tmfps_split.parent = child;
    }
}

void resolve_splits()
{
    for (tmf_split *split : each(tmf_store.splits)) {
        if (split->tmfsp_done) {
            continue;
        }
        const split_psects found = find_split_psects(split);
        if (found.parent != nullptr) {
            link_split(found.parent, found.child);
            split->tmfsp_done = true;
        }
    }
    tmf_store.splits_dirty = false;
}

// The last unit of a range that begins at `low` and ends in front of a label with this value.
std::uint32_t range_high(const tmf_psect *psect, std::uint32_t end_value, std::uint32_t low)
{
    const std::uint32_t high = end_value / divisor_of(psect);
    return end_value < divisor_of(psect) || high == low ? high : high - 1;
}

// The ranges behind the first, psect by psect along the chain of splits, up to `end_ps`. A chain has no more members
// than there are psects, unless a file makes it a circle.
void add_chain_ranges(const tmf_psect *first, const tmf_psect *end_ps, std::uint32_t end_value,
                      std::vector<tmf_range> *ranges)
{
    const tmf_psect *ps = first->tmfps_split.next;
    for (std::uint32_t left = tmf_store.psect_count; ps != nullptr && ps != end_ps && left != 0; left--) {
        ranges->push_back({ps->tmfps_link, ps->tmfps_link + ps->tmfps_length - 1});
        ps = ps->tmfps_split.next;
    }
    DB_ASSERT(ps == end_ps, "ps == end_ps");
    if (ps == end_ps) {
        ranges->push_back({end_ps->tmfps_link, range_high(end_ps, end_value, end_ps->tmfps_link)});
    }
}

} // namespace

std::vector<tmf_range> tmf_entry_ranges(const char *label)
{
    const tmf_symbol *symbol = tmf_find_symbol(label);
    if (symbol == nullptr) {
        return {};
    }
    const tmf_psect *ps = tmf_symbol_psect(symbol);
    if (ps == nullptr) {
        return {{0, 0}};
    }
    const tmf_symbol *end = tmf_find_symbol(std::string("__end_of").append(label).c_str());
    if (end == nullptr) {
        return {};
    }
    const tmf_psect *end_ps = tmf_symbol_psect(end);
    DB_ASSERT(end_ps != nullptr, "end_ps != NULL");
    if (end_ps == nullptr) {
        return {}; // a function whose end is nowhere has no ranges
    }
    const std::uint32_t low = symbol->tmfsy_value / divisor_of(ps);
    if (ps == end_ps) {
        return {{low, range_high(ps, end->tmfsy_value, low)}};
    }
    if (tmf_store.splits_dirty) {
        resolve_splits();
    }
    std::vector<tmf_range> ranges{{low, ps->tmfps_link + ps->tmfps_length - 1}};
    add_chain_ranges(ps, end_ps, end->tmfsy_value, &ranges);
    return ranges;
}
