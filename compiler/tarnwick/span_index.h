// SPDX-License-Identifier: MIT
// Spans of addresses that lie at positions of a list, and the question which of them comes first in the list among those
// that have a byte in common with a given span. It stands in for a walk of the list.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "common/base.h"

// Addresses from `start` up to but not including `end`; never empty.
struct address_span {
    std::uint32_t start = 0;
    std::uint32_t end = 0;
    std::uint32_t position = 0;
};

class span_index {
public:
    void add(const address_span &span);
    // The lowest position of a span with a byte in common with `start` up to `end`, NO_INDEX when there is none. An empty
    // range has no byte.
    std::uint32_t lowest(std::uint32_t start, std::uint32_t end) const;

private:
    // Spans that no longer change. The bounds of all of them cut the addresses into intervals, each with the lowest
    // position that covers it.
    class table {
    public:
        explicit table(std::vector<address_span> spans);
        std::uint32_t lowest(std::uint32_t start, std::uint32_t end) const;
        const std::vector<address_span> &spans() const { return spans_; }

    private:
        void sweep();

        std::vector<address_span> spans_;
        std::vector<std::uint32_t> bounds_;
        std::size_t intervals_ = 0;
        std::vector<std::uint32_t> minimum_; // of interval i at intervals_ + i, of nodes 2n and 2n + 1 at n
    };

    void close_recent();

    std::vector<table> tables_;        // each more than twice as large as the next
    std::vector<address_span> recent_; // few enough to be looked at one by one
};
