// SPDX-License-Identifier: MIT
// A tally table counts how often keys occur and keeps a short list of the most frequent.
#pragma once

#include <cstdint>

#include "common/hash.h"

struct tally_entry {
    word key = 0;
    std::uint32_t count = 0;
    bool on_top_list = false;
};

struct tally_table {
    hash_table *table = nullptr; // key to entry
    std::uint32_t top_list_size = 0;
    vector *top_list = nullptr; // entries, most frequent first
    compare_function compare = nullptr;
};

// `tie_break` orders entries of equal count; as in any sort of a vector it gets the addresses of two pointers to
// entries. Null leaves them. Keys are the same only when they are the same word.
tally_table *tally_new(std::uint32_t size, std::uint32_t top_list_size, hash_function hash, compare_function tie_break);
// The key's count after this call.
std::uint32_t tally_add(tally_table *table, word key);
