// SPDX-License-Identifier: MIT
// Lists of keys: an open table of positions beside the keys.
#include "compiler/tarnwick/dwarf_keys.h"

#include <algorithm>
#include <utility>

namespace {

constexpr std::size_t FIRST_SLOTS = 16;
constexpr std::uint32_t FREE_SLOT = 0;

// Spreads keys over slots: those of addresses and of numbers in a row differ in few bits.
std::uint64_t mix(std::uint64_t key)
{
    constexpr std::uint64_t FACTOR = 0x9E3779B97F4A7C15;
    constexpr int UPPER_HALF = 32;
    key *= FACTOR;
    return key ^ (key >> UPPER_HALF);
}

} // namespace

// The slot of an equal key, or the free one where the key belongs. There are slots, and some of them are free.
std::size_t dwarf_key_list::slot_of(std::uint64_t key) const
{
    const std::size_t mask = slots_.size() - 1;
    std::size_t slot = mix(key) & mask;
    while (slots_[slot] != FREE_SLOT && keys_[slots_[slot] - 1] != key) {
        slot = (slot + 1) & mask;
    }
    return slot;
}

void dwarf_key_list::grow()
{
    const std::vector<std::uint32_t> old = std::move(slots_);
    slots_.assign(std::max(FIRST_SLOTS, old.size() * 2), FREE_SLOT);
    for (const std::uint32_t entry : old) {
        if (entry != FREE_SLOT) {
            slots_[slot_of(keys_[entry - 1])] = entry;
        }
    }
}

std::uint32_t dwarf_key_list::find(std::uint64_t key) const
{
    return slots_.empty() ? NO_INDEX : slots_[slot_of(key)] - 1; // a free slot gives NO_INDEX
}

void dwarf_key_list::append(std::uint64_t key)
{
    if ((slots_used_ + 1) * std::uint64_t{4} > slots_.size() * std::uint64_t{3}) {
        grow();
    }
    keys_.push_back(key);
    std::uint32_t &slot = slots_[slot_of(key)];
    if (slot == FREE_SLOT) {
        slot = static_cast<std::uint32_t>(keys_.size());
        ++slots_used_;
    }
}

std::uint32_t dwarf_key_list::position_of(std::uint64_t key)
{
    const std::uint32_t known = find(key);
    if (known != NO_INDEX) {
        return known;
    }
    append(key);
    return static_cast<std::uint32_t>(keys_.size() - 1);
}

void dwarf_key_list::clear()
{
    keys_.clear();
    slots_.clear();
    slots_used_ = 0;
}
