// SPDX-License-Identifier: MIT
// An ordered dictionary of words: by 32-bit hash, then by comparison. The order of a walk is a function of the keys
// alone; the random heights never show.
#pragma once

#include <cstdint>

#include "common/base.h"
#include "common/hash.h"
#include "common/vector_of.h"

struct skiplist;

using key_printer = void (*)(word key, char *buffer, std::uint32_t size);

// A null `hash` takes the low 32 bits of the key, a null `compare` subtracts the keys in 32 bits, a null printer
// prints "%p", or "NULL".
skiplist *skiplist_new(hash_function hash = nullptr, key_compare compare = nullptr, key_printer printer = nullptr,
                       birth_place where = birth_place::here());
void skiplist_free(skiplist *list);
void skiplist_clear(skiplist *list);
// 1, or 0 when an equal key was there already.
int skiplist_insert(skiplist *list, word key, word value, birth_place where = birth_place::here());
word skiplist_delete(skiplist *list, word key);    // 0 when absent
word skiplist_get(const skiplist *list, word key); // 0 when absent
// Has the place of a key fetched from memory, for an operation that is to come.
void skiplist_prefetch(const skiplist *list, word key);
word skiplist_first(const skiplist *list); // 0 when empty
std::uint32_t skiplist_count(const skiplist *list);
vector *skiplist_values(const skiplist *list, birth_place where = birth_place::here());
vector *skiplist_keys(const skiplist *list, birth_place where = birth_place::here());
// The list must stay as it is meanwhile.
void skiplist_walk(const skiplist *list, void *context, void (*callback)(void *context, word key, word value));

void skiplist_master_list(bool enable);
void skiplist_dump_master_list();

// The typed view; keys are C strings compared exactly.
template <typename Value>
class skiplist_of {
public:
    constexpr skiplist_of() = default;
    constexpr explicit skiplist_of(skiplist *list) : list_(list) {}

    static skiplist_of make_strings(birth_place where = birth_place::here())
    {
        return skiplist_of(skiplist_new(hash_key_string, compare_key_string, nullptr, where));
    }
    void free()
    {
        skiplist_free(list_);
        list_ = nullptr;
    }
    skiplist *raw() const { return list_; }
    explicit operator bool() const { return list_ != nullptr; }
    std::uint32_t count() const { return skiplist_count(list_); }
    bool insert(const char *key, Value value, birth_place where = birth_place::here()) const
    {
        return skiplist_insert(list_, to_word(key), to_word(value), where) != 0;
    }
    Value get(const char *key) const { return from_word<Value>(skiplist_get(list_, to_word(key))); }
    void prefetch(const char *key) const { skiplist_prefetch(list_, to_word(key)); }
    Value first() const { return from_word<Value>(skiplist_first(list_)); }
    vector_of<Value> values(birth_place where = birth_place::here()) const
    {
        return vector_of<Value>(skiplist_values(list_, where));
    }
    vector_of<const char *> keys(birth_place where = birth_place::here()) const
    {
        return vector_of<const char *>(skiplist_keys(list_, where));
    }

private:
    skiplist *list_ = nullptr;
};
