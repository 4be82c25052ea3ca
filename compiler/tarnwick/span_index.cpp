// SPDX-License-Identifier: MIT
// Spans of addresses by list position. New spans gather in a short list; a full one becomes a table, and tables of like
// size are joined, so that both adding and asking stay logarithmic.
#include "compiler/tarnwick/span_index.h"

#include <algorithm>
#include <queue>
#include <utility>

namespace {

constexpr std::size_t RECENT_MAX = 64;

bool by_start(const address_span &left, const address_span &right)
{
    return left.start < right.start;
}

struct higher_position {
    bool operator()(const address_span &left, const address_span &right) const
    {
        return left.position > right.position;
    }
};

} // namespace

span_index::table::table(std::vector<address_span> spans) : spans_(std::move(spans))
{
    bounds_.reserve(2 * spans_.size());
    for (const address_span &span : spans_) {
        bounds_.push_back(span.start);
        bounds_.push_back(span.end);
    }
    std::sort(bounds_.begin(), bounds_.end());
    bounds_.erase(std::unique(bounds_.begin(), bounds_.end()), bounds_.end());
    intervals_ = bounds_.size() - 1;
    std::sort(spans_.begin(), spans_.end(), by_start);
    sweep();
}

void span_index::table::sweep()
{
    minimum_.assign(2 * intervals_, NO_INDEX);
    std::priority_queue<address_span, std::vector<address_span>, higher_position> open;
    auto next = spans_.cbegin();
    for (std::size_t i = 0; i < intervals_; ++i) {
        for (; next != spans_.cend() && next->start == bounds_[i]; ++next) {
            open.push(*next);
        }
        while (!open.empty() && open.top().end <= bounds_[i]) {
            open.pop();
        }
        if (!open.empty()) {
            minimum_[intervals_ + i] = open.top().position;
        }
    }
    for (std::size_t node = intervals_ - 1; node > 0; --node) {
        minimum_[node] = std::min(minimum_[2 * node], minimum_[2 * node + 1]);
    }
}

std::uint32_t span_index::table::lowest(std::uint32_t start, std::uint32_t end) const
{
    if (end <= bounds_.front() || start >= bounds_.back()) {
        return NO_INDEX;
    }
    const auto first = std::upper_bound(bounds_.begin(), bounds_.end(), std::max(start, bounds_.front())) - 1;
    const auto behind = std::lower_bound(first, bounds_.end(), std::min(end, bounds_.back()));
    auto low = static_cast<std::size_t>(first - bounds_.begin()) + intervals_;
    auto high = static_cast<std::size_t>(behind - bounds_.begin()) + intervals_; // behind the last interval
    std::uint32_t result = NO_INDEX;
    for (; low < high; low /= 2, high /= 2) {
        if (low % 2 == 1) {
            result = std::min(result, minimum_[low++]);
        }
        if (high % 2 == 1) {
            result = std::min(result, minimum_[--high]);
        }
    }
    return result;
}

void span_index::add(const address_span &span)
{
    recent_.push_back(span);
    if (recent_.size() == RECENT_MAX) {
        close_recent();
    }
}

void span_index::close_recent()
{
    std::vector<address_span> spans = std::exchange(recent_, {});
    while (!tables_.empty() && tables_.back().spans().size() <= 2 * spans.size()) {
        const std::vector<address_span> &older = tables_.back().spans();
        spans.insert(spans.end(), older.begin(), older.end());
        tables_.pop_back();
    }
    tables_.emplace_back(std::move(spans));
}

std::uint32_t span_index::lowest(std::uint32_t start, std::uint32_t end) const
{
    if (start >= end) {
        return NO_INDEX;
    }
    std::uint32_t result = NO_INDEX;
    for (const table &part : tables_) {
        result = std::min(result, part.lowest(start, end));
    }
    for (const address_span &span : recent_) {
        if (span.start < end && start < span.end) {
            result = std::min(result, span.position);
        }
    }
    return result;
}
