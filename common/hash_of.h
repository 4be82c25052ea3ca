// SPDX-License-Identifier: MIT
// The typed view over hash tables.
#pragma once

#include <cstdint>

#include "common/hash.h"
#include "common/vector_of.h"

template <typename Key, typename Value>
class hash_of {
public:
    constexpr hash_of() = default;
    constexpr explicit hash_of(hash_table *table) : table_(table) {}

    // Keys compared as words, or as C strings, or as C strings without regard to case.
    static hash_of make(std::uint32_t size, birth_place where = birth_place::here())
    {
        return hash_of(hash_new(size, nullptr, nullptr, where));
    }
    static hash_of make_strings(std::uint32_t size, birth_place where = birth_place::here())
    {
        return hash_of(hash_new(size, hash_key_string, compare_key_string, where));
    }
    static hash_of make_nocase(std::uint32_t size, birth_place where = birth_place::here())
    {
        return hash_of(hash_new(size, hash_key_nocase, compare_key_nocase, where));
    }
    void free()
    {
        hash_free(table_);
        table_ = nullptr;
    }

    hash_table *raw() const { return table_; }
    explicit operator bool() const { return table_ != nullptr; }

    std::uint32_t count() const { return hash_count(table_); }
    bool insert(Key key, Value value, birth_place where = birth_place::here()) const
    {
        return hash_insert(table_, to_word(key), to_word(value), where) != 0;
    }
    Value remove(Key key) const { return from_word<Value>(hash_delete(table_, to_word(key))); }
    Value get(Key key) const { return from_word<Value>(hash_get(table_, to_word(key))); }
    bool contains(Key key) const { return hash_contains(table_, to_word(key)); }
    void prefetch(Key key) const { hash_prefetch(table_, to_word(key)); }
    // New vectors, which the caller frees.
    vector_of<Value> values(birth_place where = birth_place::here()) const
    {
        return vector_of<Value>(hash_values(table_, where));
    }
    vector_of<Key> keys(birth_place where = birth_place::here()) const
    {
        return vector_of<Key>(hash_keys(table_, where));
    }

private:
    hash_table *table_ = nullptr;
};
