// SPDX-License-Identifier: MIT
// Sorting of records by the thousand. The program's own quicksort takes its time on lists that rise and then fall, and
// on interleaved runs, as two modules with alternating functions make them. Its steps show only in the order of equal
// elements: where there are none, there is one order, and any sort finds it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "common/quicksort.h"
#include "common/vector_of.h"

// Merges ascending runs, pair by pair, until one is left. Inputs are made of few of them: a linker lists modules, a
// module its functions, and each of these ascends.
template <typename T, typename Before>
void merge_runs(std::vector<T> *items, Before before)
{
    std::vector<std::size_t> starts; // of the runs, and the end of the last
    for (std::size_t i = 0; i < items->size(); ++i) {
        if (i == 0 || before((*items)[i], (*items)[i - 1])) {
            starts.push_back(i);
        }
    }
    starts.push_back(items->size());
    std::vector<T> merged(starts.size() > 2 ? items->size() : 0);
    while (starts.size() > 2) {
        std::size_t kept = 0;
        for (std::size_t run = 0; run + 1 < starts.size(); run += 2) {
            const auto at = [&](std::size_t i) {
                return items->begin() + static_cast<std::ptrdiff_t>(starts[std::min(i, starts.size() - 1)]);
            };
            const auto out = merged.begin() + static_cast<std::ptrdiff_t>(starts[run]);
            std::merge(at(run), at(run + 1), at(run + 1), at(run + 2), out, before);
            starts[kept++] = starts[run];
        }
        starts[kept++] = items->size();
        starts.resize(kept);
        items->swap(merged);
    }
}

// Puts records in the order of `Compare`, an `int (const T *, const T *)`. False, with any order of equal records, when
// there are such.
template <auto Compare, typename T>
bool sort_distinct(std::vector<T *> *records)
{
    merge_runs(records, [](const T *left, const T *right) { return Compare(left, right) < 0; });
    return std::adjacent_find(records->begin(), records->end(), [](const T *left, const T *right) {
               return Compare(left, right) == 0;
           }) == records->end();
}

template <auto Compare, typename T>
bool is_strictly_ascending(vector_of<T *> list)
{
    const std::uint32_t count = list.count();
    for (std::uint32_t i = 1; i < count; ++i) {
        if (Compare(list.get(i - 1), list.get(i)) >= 0) {
            return false;
        }
    }
    return true;
}

// Sorts `count` records at `base`, equal ones as the quicksort leaves them.
template <auto Compare, typename T>
void sort_records(T **base, std::uint32_t count)
{
    std::vector<T *> sorted(base, base + count);
    if (sort_distinct<Compare>(&sorted)) {
        std::copy(sorted.begin(), sorted.end(), base);
        return;
    }
    quicksort(base, count, sizeof *base, [](const void *left, const void *right) -> int {
        return Compare(*static_cast<T *const *>(left), *static_cast<T *const *>(right));
    });
}

// The same for a vector. A large one that needs no sort is not even copied.
template <auto Compare, typename T>
void sort_records(vector_of<T *> list)
{
    if (is_strictly_ascending<Compare>(list)) {
        return;
    }
    std::vector<T *> sorted;
    sorted.reserve(list.count());
    for (T *record : each(list)) {
        sorted.push_back(record);
    }
    if (!sort_distinct<Compare>(&sorted)) {
        list.template sort<Compare>();
        return;
    }
    for (std::uint32_t i = 0; i < sorted.size(); ++i) {
        list.set(sorted[i], i);
    }
}
