// SPDX-License-Identifier: MIT
// Keys in the order in which they came, and the question where a key stands. A unit may have as many types as its
// database has bytes to name them, so a key costs few more bytes than it has.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "common/base.h"

class dwarf_key_list {
public:
    // The position of the first key that is equal, NO_INDEX when there is none.
    std::uint32_t find(std::uint64_t key) const;
    // Also behind an equal one.
    void append(std::uint64_t key);
    // The position of the first key that is equal, which is appended when there is none.
    std::uint32_t position_of(std::uint64_t key);
    // Costs nothing for each key, so that small lists behind a large one are as cheap as in front of it.
    void clear();

private:
    std::size_t slot_of(std::uint64_t key) const;
    void grow();

    std::vector<std::uint64_t> keys_;
    std::vector<std::uint32_t>
        slots_; // position + 1 of each different key, 0 in free ones; their number a power of two
    std::uint32_t slots_used_ = 0;
};
