// SPDX-License-Identifier: MIT
// Chained hash tables with a fixed number of buckets. A table never rehashes; the order of its walk is bucket by
// bucket, each chain in order of insertion, and shows in outputs. Programs use the typed view of common/hash_of.h.
#pragma once

#include <cstdint>

#include "common/base.h"
#include "common/vector.h"

using hash_function = std::uint32_t (*)(word key);
using key_compare = int (*)(word left, word right); // 0 when equal

// Keys that a table knows by their functions.
enum class key_kind : std::uint8_t {
    ANY,
    TEXT,            // C strings
    TEXT_NOCASE,     // C strings without regard to case
    TEXT_CASE_BLIND, // the comparison ignores case, the hash does not
};

struct hash_entry {
    word value = 0;
    word key = 0;
    hash_entry *next = nullptr;
    hash_entry *previous = nullptr;
    std::uint32_t hash = 0; // that equal keys share, compared before the keys are; the index has its own
};

struct hash_index;  // finds entries of a table with long chains
struct hash_master; // birth place and high-water marks, for the master list

struct hash_table {
    std::uint32_t size = 0; // buckets
    std::uint32_t count = 0;
    hash_function hash = nullptr;
    key_compare compare = nullptr;
    hash_entry **buckets = nullptr;
    hash_master *master = nullptr;
    hash_index *index = nullptr;
    key_kind keys = key_kind::ANY;
};

// A null `hash` takes the key's low 32 bits; a null `compare` means equal words. A key must equal itself, and keys that
// compare equal must have equal hashes. One pair is exempt: under `hash_key_string` with `compare_key_nocase` two
// spellings that differ in case are one key where they fall into one bucket, and two where they do not.
hash_table *hash_new(std::uint32_t size, hash_function hash = nullptr, key_compare compare = nullptr,
                     birth_place where = birth_place::here());
void hash_free(hash_table *table);
void hash_clear(hash_table *table);
// 1, or 0 when an equal key was there already: the first value stays.
int hash_insert(hash_table *table, word key, word value, birth_place where = birth_place::here());
word hash_delete(hash_table *table, word key);         // the value; 0 when absent
word hash_get(const hash_table *table, word key);      // 0 when absent
bool hash_contains(const hash_table *table, word key); // tells a stored 0 from an absent key
// Has the place of a key fetched from memory, for an operation that is to come.
void hash_prefetch(const hash_table *table, word key);
std::uint32_t hash_count(const hash_table *table);
vector *hash_values(const hash_table *table, birth_place where = birth_place::here());
vector *hash_keys(const hash_table *table, birth_place where = birth_place::here());
// Stops at the first non-zero result and returns it.
word hash_walk(const hash_table *table, void *context, word (*callback)(void *context, word key, word value));

// 5381, times 33 plus each byte as a signed character.
std::uint32_t hash_string(const char *text);
std::uint32_t hash_string_nocase(const char *text);
// The same, as functions of a key; and the comparisons that go with them.
std::uint32_t hash_key_string(word key);
std::uint32_t hash_key_nocase(word key);
int compare_key_string(word left, word right);
int compare_key_nocase(word left, word right);

// Whether a table is on the master list, which shows how it was filled.
bool hash_is_listed(const hash_table *table);
void hash_master_list(bool enable);
void hash_dump_master_list();
