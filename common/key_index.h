// SPDX-License-Identifier: MIT
// An index from hashes to records, for a container whose own order is specified: an open table that grows, with the hash
// beside what leads to a record, so that a search hardly ever touches a record in vain. Its own order never shows.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/alloc.h"

// A record is known by a pointer, or by a number other than 0. All zero bytes are an empty index. It is a plain record: its
// owner frees it.
template <typename Record>
class key_index {
public:
    // The record of this hash for which `is_wanted(record)` holds; null or 0 when there is none.
    template <typename Match>
    Record find(std::uint32_t hash, Match is_wanted) const
    {
        if (count_ == 0) {
            return NONE;
        }
        for (std::size_t place = first_place(hash);; place = next_place(place)) {
            const slot &there = slots_[place];
            if (there.record == NONE || (there.hash == hash && is_wanted(there.record))) {
                return there.record;
            }
        }
    }
    // Enters a record that is not there yet.
    void add(std::uint32_t hash, Record record)
    {
        reserve(count_ + 1);
        put(hash, record);
        ++count_;
    }
    // Takes out a record that is there.
    void remove(std::uint32_t hash, Record record)
    {
        std::size_t gap = place_of(hash, record);
        // What stands behind the gap moves up, unless it would then stand in front of its first place.
        for (std::size_t place = next_place(gap); slots_[place].record != NONE; place = next_place(place)) {
            if (distance(first_place(slots_[place].hash), place) >= distance(gap, place)) {
                slots_[gap] = slots_[place];
                gap = place;
            }
        }
        slots_[gap] = {};
        --count_;
    }
    // Puts a record of the same hash in the place of one that is there.
    void replace(std::uint32_t hash, Record record, Record other) { slots_[place_of(hash, record)].record = other; }
    // Makes room for so many records.
    void reserve(std::size_t count)
    {
        if (count * FULL_OF > slot_count() * FULL) {
            resize(count);
        }
    }
    // Has the place of a hash fetched from memory, for a search that is to come.
    void prefetch(std::uint32_t hash) const
    {
        if (count_ != 0) {
            __builtin_prefetch(&slots_[first_place(hash)]);
        }
    }
    std::size_t count() const { return count_; }
    void free()
    {
        xgrow_free(slots_, size_of_slots());
        *this = {};
    }

private:
    static constexpr Record NONE{};

    struct slot {
        Record record = NONE; // in a free slot
        std::uint32_t hash = 0;
    };

    // At most two of three slots are taken.
    static constexpr std::size_t FULL = 2;
    static constexpr std::size_t FULL_OF = 3;
    static constexpr int LEAST_BITS = 4;
    // Spreads hashes over the slots: those of addresses and of small numbers differ in few bits.
    static constexpr std::uint64_t SPREAD = 0x9E3779B97F4A7C15;
    static constexpr int SPREAD_BITS = 64;

    std::size_t slot_count() const { return bits_ != 0 ? std::size_t{1} << bits_ : 0; }
    std::size_t size_of_slots() const { return slot_count() * sizeof(slot); }
    std::size_t first_place(std::uint32_t hash) const { return hash * SPREAD >> (SPREAD_BITS - bits_); }
    std::size_t next_place(std::size_t place) const { return (place + 1) & (slot_count() - 1); }
    std::size_t distance(std::size_t from, std::size_t to) const { return (to - from) & (slot_count() - 1); }
    std::size_t place_of(std::uint32_t hash, Record record) const
    {
        std::size_t place = first_place(hash);
        while (slots_[place].record != record) {
            place = next_place(place);
        }
        return place;
    }
    void put(std::uint32_t hash, Record record)
    {
        std::size_t place = first_place(hash);
        while (slots_[place].record != NONE) {
            place = next_place(place);
        }
        slots_[place] = {record, hash};
    }
    void resize(std::size_t count)
    {
        slot *const old = slots_;
        const std::size_t old_count = slot_count();
        const std::size_t old_size = size_of_slots();
        bits_ = bits_ != 0 ? bits_ : LEAST_BITS;
        while (count * FULL_OF > slot_count() * FULL) {
            ++bits_;
        }
        slots_ = static_cast<slot *>(xgrow(nullptr, 0, size_of_slots()));
        for (std::size_t i = 0; i < old_count; ++i) {
            if (old[i].record != NONE) {
                put(old[i].hash, old[i].record);
            }
        }
        xgrow_free(old, old_size);
    }

    slot *slots_ = nullptr;
    std::size_t count_ = 0;
    int bits_ = 0; // there are 2 to this power of slots; 0 for none
};
