// SPDX-License-Identifier: MIT
// The program's own quicksort. Which of two equal elements comes first is decided by the exact steps below, and sorted
// outputs depend on it.
#include "common/quicksort.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <limits>

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

template <typename Elements>
void sort_elements(Elements &elements, std::uint32_t count, compare_function compare)
{
    std::array<range, MAX_WAITING> waiting;
    std::size_t depth = 0;
    waiting[depth++] = {0, position{count} - 1};
    while (depth != 0) {
        range current = waiting[--depth];
        while (current.low < current.high) {
            const range split = partition(elements, current, compare);
            const range left = {current.low, split.high};
            const range right = {split.low, current.high};
            // Of two sides of equal length the left one waits.
            const bool left_waits = left.high - left.low >= right.high - right.low;
            const range larger = left_waits ? left : right;
            if (larger.low < larger.high) {
                waiting[depth++] = larger;
            }
            current = left_waits ? right : left;
        }
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
