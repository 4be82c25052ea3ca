// SPDX-License-Identifier: MIT
// The program's universal ordered collection: a growable array of words with its own stack of iterators, so that loops
// nest and survive insertions and deletions. Programs use it through the typed view of common/vector_of.h.
#pragma once

#include <cstdint>

#include "common/base.h"
#include "common/check.h"
#include "common/quicksort.h"

struct vector_iterator {
    vector_iterator *below = nullptr;
    std::uint32_t position = 0; // index of the element that is delivered next
};

struct vector_master; // birth place and high-water marks, for the master list

struct vector {
    std::uint32_t count = 0;
    std::uint32_t capacity = 0; // words allocated; 0 until the first store
    std::uint32_t initial_size = 0;
    vector_iterator *iterator = nullptr; // top of the iterator stack
    word *data = nullptr;
    std::uint32_t serial = 0;
    bool lasting = false; // the record and its first words are not freed
    vector_master *master = nullptr;
};

inline constexpr std::uint32_t VECTOR_INITIAL_SIZE = 10;

vector *vector_new(birth_place where = birth_place::here());
// `initial_size` is the capacity of the first allocation and must not be 0.
vector *vector_new_sized(std::uint32_t initial_size, birth_place where = birth_place::here());
// The same for a vector of a record that lives until the process ends: it and its first words stand beside that record.
vector *vector_new_lasting(std::uint32_t initial_size, birth_place where = birth_place::here());
// A copy without iterators; null gives null.
vector *vector_copy(const vector *p, birth_place where = birth_place::here());
void vector_free(vector *p);

// Each returns the index of the element.
inline std::uint32_t vector_push(vector *p, word w);
std::uint32_t vector_add_unique(vector *p, word w);
std::uint32_t vector_insert(vector *p, word w, std::uint32_t index); // the index is clamped to the count
void vector_set(vector *p, word w, std::uint32_t index);

inline word vector_get(const vector *p, std::uint32_t index); // 0 at or past the end
inline word vector_last(const vector *p);                     // 0 when empty
word vector_pop(vector *p);                                   // 0 when empty
int vector_delete(vector *p, std::uint32_t index);            // 1, or 0 at or past the end
std::uint32_t vector_find(const vector *p, word w);           // NO_INDEX when absent
void vector_clear(vector *p);                                 // capacity and iterators stay
inline std::uint32_t vector_count(const vector *p);           // null gives 0
std::uint32_t vector_append(vector *p, const vector *n);      // count of `n`
void vector_sort(vector *p, compare_function compare);        // compares pointers to words

// The iteration protocol; `each` of common/vector_of.h is its one user. A null vector makes no pass.
void vector_iter_begin(vector *p);
inline int vector_iter_more(const vector *p);
inline word vector_next(vector *p);
inline word vector_current(const vector *p);
word vector_first(vector *p);
inline int vector_iter_step(vector *p, int more);

// The debugging list of all vectors made while it is on.
void vector_master_list(bool enable);
void vector_dump_master_list();

// The bodies of the hot operations, and the parts of them that are not.

std::uint32_t vector_push_slow(vector *p, word w); // grows, or keeps a master record
void vector_iter_end(vector *p);                   // pops the top iterator

inline std::uint32_t vector_push(vector *p, word w)
{
    CHECK_STATE(p != nullptr, "p != NULL");
    if (p->count >= p->capacity || p->master != nullptr) [[unlikely]] {
        return vector_push_slow(p, w);
    }
    p->data[p->count] = w;
    return p->count++;
}

inline word vector_get(const vector *p, std::uint32_t index)
{
    CHECK_STATE(p != nullptr, "p != NULL");
    if (index >= p->count) {
        return 0;
    }
    CHECK_STATE(p->data != nullptr, "p->data != NULL");
    return p->data[index];
}

inline word vector_last(const vector *p)
{
    CHECK_STATE(p != nullptr, "p != NULL");
    // An empty vector asks for the element at NO_INDEX, which no vector has.
    return vector_get(p, p->count - 1);
}

inline std::uint32_t vector_count(const vector *p)
{
    return p != nullptr ? p->count : 0;
}

inline int vector_iter_more(const vector *p)
{
    if (p == nullptr) {
        return 0;
    }
    CHECK_STATE(p->iterator != nullptr, "p->iterator != NULL");
    return p->iterator->position < p->count ? 1 : 0;
}

inline word vector_current(const vector *p)
{
    if (p == nullptr) {
        return 0;
    }
    CHECK_STATE(p->iterator != nullptr, "p->iterator != NULL");
    return vector_get(p, p->iterator->position);
}

inline word vector_next(vector *p)
{
    if (vector_iter_more(p) == 0) {
        return 0;
    }
    CHECK_STATE(p->data != nullptr, "p->data != NULL");
    return p->data[p->iterator->position++];
}

inline int vector_iter_step(vector *p, int more)
{
    if (p == nullptr) {
        CHECK_STATE(more == 0, "more == 0");
        return 0;
    }
    if (more == 0) {
        vector_iter_end(p);
    }
    return more;
}
