// SPDX-License-Identifier: MIT
// The program's own quicksort. Which of two equal elements comes first is decided by the exact steps below, and sorted
// outputs depend on it.
#include "common/quicksort.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <numeric>
#include <utility>
#include <vector>

#include "common/alloc.h"
#include "common/base.h"
#include "common/check.h"

namespace {

// Signed, because the downward scan may end in front of element 0.
using position = std::int64_t;

struct range {
    position low;
    position high;
};

// The larger side always waits, so each waiting range is at most half as long as the one beneath it.
constexpr std::size_t MAX_WAITING = std::numeric_limits<std::uint32_t>::digits;

// Elements of one word, the case of all vectors.
class word_elements {
public:
    explicit word_elements(void *base) : base_(static_cast<char *>(base)) {}

    const void *at(position index) const { return base_ + offset(index); }
    const void *pivot() const { return &pivot_; }
    void copy_pivot(position index) { std::memcpy(&pivot_, at(index), sizeof(word)); }
    void exchange(position i, position j)
    {
        word left = 0;
        word right = 0;
        std::memcpy(&left, base_ + offset(i), sizeof(word));
        std::memcpy(&right, base_ + offset(j), sizeof(word));
        std::memcpy(base_ + offset(i), &right, sizeof(word));
        std::memcpy(base_ + offset(j), &left, sizeof(word));
    }

private:
    static std::size_t offset(position index) { return static_cast<std::size_t>(index) * sizeof(word); }

    char *base_;
    word pivot_ = 0;
};

// Elements of any size, moved byte for byte.
class byte_elements {
public:
    byte_elements(void *base, std::size_t size)
        : base_(static_cast<char *>(base)), size_(size),
          pivot_(size <= SMALL_SIZE ? small_.data() : static_cast<char *>(xalloc(size + 1)))
    {
    }
    ~byte_elements()
    {
        if (pivot_ != small_.data()) {
            std::free(pivot_);
        }
    }
    byte_elements(const byte_elements &) = delete;
    byte_elements &operator=(const byte_elements &) = delete;

    const void *at(position index) const { return element(index); }
    const void *pivot() const { return pivot_; }
    void copy_pivot(position index) { std::memcpy(pivot_, element(index), size_); }
    void exchange(position i, position j)
    {
        if (i != j) {
            std::swap_ranges(element(i), element(i) + size_, element(j));
        }
    }

private:
    static constexpr std::size_t SMALL_SIZE = 799; // a pivot up to this size stays on the stack

    char *element(position index) const { return base_ + static_cast<std::size_t>(index) * size_; }

    char *base_;
    std::size_t size_;
    alignas(std::max_align_t) std::array<char, SMALL_SIZE + 1> small_;
    char *pivot_;
};

// Splits a range around its middle element: afterwards low to `high` of the result is the left side, and `low` of the
// result to high the right one.
template <typename Elements>
range partition(Elements &elements, range current, compare_function compare)
{
    elements.copy_pivot((current.low + current.high) / 2);
    position i = current.low;
    position j = current.high;
    do {
        // The order of the arguments is fixed: the element comes first on the way up, the pivot on the way down.
        while (compare(elements.at(i), elements.pivot()) < 0) {
            ++i;
        }
        while (compare(elements.pivot(), elements.at(j)) < 0) {
            --j;
        }
        if (i <= j) {
            elements.exchange(i, j);
            ++i;
            --j;
        }
    } while (i <= j);
    return {i, j};
}

// The ranges that are still to be sorted, the present one first.
struct range_stack {
    std::array<range, MAX_WAITING> waiting;
    std::size_t depth = 0;
    range current = {0, -1};

    // Goes on with the smaller side; of two sides of equal length the left one waits.
    void take(range left, range right)
    {
        const bool left_waits = left.high - left.low >= right.high - right.low;
        const range larger = left_waits ? left : right;
        if (larger.low < larger.high) {
            waiting[depth++] = larger;
        }
        current = left_waits ? right : left;
    }
    // False when nothing is left to sort.
    bool next()
    {
        while (current.low >= current.high) {
            if (depth == 0) {
                return false;
            }
            current = waiting[--depth];
        }
        return true;
    }
};

// Numbers in a row, of which the first from a place on that is at least so large, and the last before a place that is
// at most so large, are found without a look at those between: a tree over the row knows the least and the largest of
// each stretch.
class ranked_row {
public:
    explicit ranked_row(const std::vector<std::uint32_t> &ranks)
        : leaves_(std::bit_ceil(ranks.size())), nodes_(2 * leaves_)
    {
        for (std::size_t i = 0; i < ranks.size(); ++i) {
            nodes_[leaves_ + i] = {ranks[i], ranks[i]};
        }
        for (std::size_t node = leaves_; --node > 0;) {
            update(node);
        }
    }

    std::uint32_t at(position index) const { return nodes_[leaf(index)].least; }
    void put(position index, std::uint32_t rank)
    {
        std::size_t node = leaf(index);
        nodes_[node] = {rank, rank};
        while ((node /= 2) > 0) {
            update(node);
        }
    }
    // There is one: what was looked at before, or the pivot itself, stops the search.
    position up_to(position index, std::uint32_t rank) const
    {
        std::size_t node = leaf(index);
        while (nodes_[node].largest < rank) {
            while (is_right(node)) {
                node /= 2;
            }
            ++node;
        }
        while (node < leaves_) {
            node *= 2;
            node += nodes_[node].largest < rank ? 1 : 0;
        }
        return static_cast<position>(node - leaves_);
    }
    position down_to(position index, std::uint32_t rank) const
    {
        std::size_t node = leaf(index);
        while (nodes_[node].least > rank) {
            while (!is_right(node)) {
                node /= 2;
            }
            --node;
        }
        while (node < leaves_) {
            node = node * 2 + 1;
            node -= nodes_[node].least > rank ? 1 : 0;
        }
        return static_cast<position>(node - leaves_);
    }

private:
    struct stretch {
        std::uint32_t least = std::numeric_limits<std::uint32_t>::max();
        std::uint32_t largest = 0;
    };

    static bool is_right(std::size_t node) { return node % 2 != 0; }
    std::size_t leaf(position index) const { return leaves_ + static_cast<std::size_t>(index); }
    void update(std::size_t node)
    {
        const stretch &left = nodes_[node * 2];
        const stretch &right = nodes_[node * 2 + 1];
        nodes_[node] = {std::min(left.least, right.least), std::max(left.largest, right.largest)};
    }

    std::size_t leaves_;
    std::vector<stretch> nodes_;
};

// The steps of the quicksort on a list that makes them slow. A step exchanges no more elements than its smaller side
// holds in the end: what takes the time is the walk between exchanges, which `ranked_row` does in jumps.
template <typename Elements>
class rank_sorter {
public:
    rank_sorter(Elements &elements, std::uint32_t count, compare_function compare)
        : elements_(elements), origins_(count), row_(ranks_of(elements, count, compare))
    {
        std::iota(origins_.begin(), origins_.end(), 0);
    }

    void sort(range_stack *ranges)
    {
        while (ranges->next()) {
            const range split = partition(ranges->current);
            ranges->take({ranges->current.low, split.high}, {split.low, ranges->current.high});
        }
        put_in_place();
    }

private:
    // Where each element stands among the different ones.
    static std::vector<std::uint32_t> ranks_of(const Elements &elements, std::uint32_t count, compare_function compare)
    {
        const auto compare_at = [&](std::uint32_t left, std::uint32_t right) {
            return compare(elements.at(left), elements.at(right));
        };
        std::vector<std::uint32_t> order(count);
        std::iota(order.begin(), order.end(), 0);
        std::stable_sort(order.begin(), order.end(),
                         [&](auto left, auto right) { return compare_at(left, right) < 0; });
        std::vector<std::uint32_t> ranks(count);
        for (std::uint32_t i = 1; i < count; ++i) {
            ranks[order[i]] = ranks[order[i - 1]] + (compare_at(order[i - 1], order[i]) != 0 ? 1 : 0);
        }
        return ranks;
    }

    range partition(range current)
    {
        const std::uint32_t pivot = row_.at((current.low + current.high) / 2);
        position i = current.low;
        position j = current.high;
        do {
            i = row_.up_to(i, pivot);
            j = row_.down_to(j, pivot);
            if (i <= j) {
                exchange(i, j);
                ++i;
                --j;
            }
        } while (i <= j);
        return {i, j};
    }

    void exchange(position i, position j)
    {
        const std::uint32_t left = row_.at(i);
        const std::uint32_t right = row_.at(j);
        if (left != right) {
            row_.put(i, right);
            row_.put(j, left);
        }
        std::swap(origins_[static_cast<std::size_t>(i)], origins_[static_cast<std::size_t>(j)]);
    }

    // Moves the elements as their origins say, one circle after the other.
    void put_in_place()
    {
        for (std::uint32_t start = 0; start < origins_.size(); ++start) {
            std::uint32_t at = start;
            while (origins_[at] != start) {
                const std::uint32_t from = origins_[at];
                elements_.exchange(at, from);
                origins_[at] = at;
                at = from;
            }
            origins_[at] = at;
        }
    }

    Elements &elements_;
    std::vector<std::uint32_t> origins_; // where the element at each place comes from
    ranked_row row_;
};

// So many elements may be looked at, for each element and each halving of their number, before a list counts as slow.
// Lists in any common order stay far below.
constexpr position PATIENCE = 8;

template <typename Elements>
void sort_elements(Elements &elements, std::uint32_t count, compare_function compare)
{
    range_stack ranges;
    ranges.current = {0, position{count} - 1};
    position patience = PATIENCE * count * std::bit_width(count);
    while (ranges.next()) {
        const range current = ranges.current;
        patience -= current.high - current.low;
        if (patience < 0) {
            rank_sorter<Elements>(elements, count, compare).sort(&ranges);
            return;
        }
        const range split = partition(elements, current, compare);
        ranges.take({current.low, split.high}, {split.low, current.high});
    }
}

} // namespace

void quicksort(void *base, std::uint32_t count, std::size_t size, compare_function compare)
{
    if (count <= 1) {
        return;
    }
    CHECK_STATE(base != nullptr, "vbase");
    if (size == sizeof(word)) {
        word_elements elements(base);
        sort_elements(elements, count, compare);
    } else {
        byte_elements elements(base, size);
        sort_elements(elements, count, compare);
    }
}
