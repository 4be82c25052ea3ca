// SPDX-License-Identifier: MIT
// Sets and number sets: a bit word for small values, a pointer set for all others.
#include "common/set.h"

#include <bit>
#include <limits>

#include "common/alloc.h"
#include "common/check.h"
#include "common/freecache.h"
#include "common/skiplist.h"
#include "common/vector_of.h"

namespace {

struct bit_iterator {
    bit_iterator *below = nullptr;
    std::uint32_t position = 0; // the next bit to look at
};

struct pointer_iterator {
    pointer_iterator *below = nullptr;
    vector *values = nullptr; // as they were when the iteration began
};

// The free cache of a record, made at its first use.
template <typename Record>
freecache *cache_of()
{
    static freecache *const cache = freecache_new(sizeof(Record), FREECACHE_LIMIT);
    return cache;
}

template <typename Record>
Record *take()
{
    return place_record<Record>(freecache_get(cache_of<Record>()));
}

template <typename Record>
void give_back(Record *record)
{
    freecache_put(cache_of<Record>(), record);
}

template <typename Iterator>
void pop_iterator(Iterator *&stack)
{
    freecache *free_iterators = cache_of<Iterator>();
    CHECK_STATE(free_iterators != nullptr, "free_iterators != NULL");
    Iterator *top = stack;
    stack = top->below;
    freecache_put(free_iterators, top);
}

std::uint32_t next_serial = 0; // of all records that have one

} // namespace

struct bitset {
    std::uint64_t bits = 0;
    std::uint32_t serial = next_serial++;
    bit_iterator *iterator = nullptr;
};

struct ptrset {
    skiplist *table = nullptr; // key and value are both the pointer; made at the first insertion
    pointer_iterator *iterator = nullptr;
    std::uint32_t serial = next_serial++;
    compare_function compare = nullptr;
};

struct numset {
    ptrset numbers; // each plus 1
};

namespace {

constexpr std::uint32_t BITSET_SIZE = std::numeric_limits<std::uint64_t>::digits;

bool bitset_canContain(word mp)
{
    return mp < BITSET_SIZE;
}

std::uint64_t bit_of(word mp)
{
    CHECK_STATE(bitset_canContain(mp), "bitset_canContain(mp)");
    return std::uint64_t{1} << mp;
}

std::uint64_t bits_of(const bitset *sp)
{
    CHECK_STATE(sp != nullptr, "sp != NULL");
    return sp->bits;
}

void bitset_add(bitset *sp, word mp)
{
    CHECK_STATE(sp != nullptr, "sp != NULL");
    sp->bits |= bit_of(mp);
}

void bitset_free(bitset *sp)
{
    CHECK_STATE(sp != nullptr, "sp != NULL");
    while (sp->iterator != nullptr) {
        pop_iterator(sp->iterator);
    }
    give_back(sp);
}

void bitset_iter_begin(bitset *sp)
{
    CHECK_STATE(sp != nullptr, "sp != NULL");
    auto *top = take<bit_iterator>();
    top->below = sp->iterator;
    sp->iterator = top;
}

// Moves to the next set bit, or to the end; whether there is one.
bool bitset_iter_more(const bitset *sp)
{
    if (sp == nullptr) {
        return false;
    }
    CHECK_STATE(sp->iterator != nullptr, "sp->iterator != NULL");
    std::uint32_t &position = sp->iterator->position;
    const std::uint64_t rest = position < BITSET_SIZE ? sp->bits >> position : 0;
    position = rest != 0 ? position + static_cast<std::uint32_t>(std::countr_zero(rest)) : BITSET_SIZE;
    return rest != 0;
}

// The next set bit; `BITSET_SIZE` past the end, and for a null bitset.
word bitset_next(const bitset *sp)
{
    return bitset_iter_more(sp) ? sp->iterator->position++ : BITSET_SIZE;
}

void bitset_iter_end(bitset *sp)
{
    CHECK_STATE(sp != nullptr, "sp != NULL");
    CHECK_STATE(sp->iterator != nullptr, "sp->iterator != NULL");
    pop_iterator(sp->iterator);
}

bool ptrset_contains(const ptrset *sp, word pointer)
{
    CHECK_STATE(sp != nullptr, "sp != NULL");
    return sp->table != nullptr && skiplist_get(sp->table, pointer) != 0;
}

void ptrset_add(ptrset *sp, word pointer)
{
    CHECK_STATE(sp != nullptr, "sp != NULL");
    if (sp->table == nullptr) {
        sp->table = skiplist_new();
    }
    skiplist_insert(sp->table, pointer, pointer);
}

std::uint32_t ptrset_size(const ptrset *sp)
{
    CHECK_STATE(sp != nullptr, "sp != NULL");
    return sp->table != nullptr ? skiplist_count(sp->table) : 0;
}

bool ptrset_intersects(const ptrset *sp1, const ptrset *sp2)
{
    CHECK_STATE(sp1 != nullptr, "sp1 != NULL");
    CHECK_STATE(sp2 != nullptr, "sp2 != NULL");
    if (sp1->table == nullptr || sp2->table == nullptr) {
        return false;
    }
    vector_of<word> values(skiplist_values(sp2->table));
    bool shared = false;
    for (const word value : each(values)) {
        if (ptrset_contains(sp1, value)) {
            shared = true;
            break;
        }
    }
    values.free();
    return shared;
}

// An empty set that never held anything pushes nothing.
void ptrset_iter_begin(ptrset *sp)
{
    CHECK_STATE(sp != nullptr, "sp != NULL");
    if (sp->table == nullptr) {
        return;
    }
    auto *top = take<pointer_iterator>();
    top->values = skiplist_values(sp->table);
    if (sp->compare != nullptr) {
        vector_sort(top->values, sp->compare);
    }
    vector_iter_begin(top->values);
    top->below = sp->iterator;
    sp->iterator = top;
}

// The vector that the present loop walks; null when there is nothing to walk.
vector *ptrset_iterated(const ptrset *sp)
{
    CHECK_STATE(sp != nullptr, "sp != NULL");
    // A first pointer that is added to a set inside a loop over it ends up here.
    CHECK_STATE(sp->table == nullptr || sp->iterator != nullptr, "sp->table == NULL || sp->iterator != NULL");
    return sp->iterator != nullptr ? sp->iterator->values : nullptr;
}

void ptrset_iter_end(ptrset *sp)
{
    CHECK_STATE(sp->iterator != nullptr, "sp->iterator!= NULL");
    vector_free(sp->iterator->values);
    pop_iterator(sp->iterator);
}

void ptrset_free(ptrset *sp)
{
    CHECK_STATE(sp != nullptr, "sp != NULL");
    while (sp->iterator != nullptr) {
        ptrset_iter_end(sp);
    }
    skiplist_free(sp->table);
    give_back(sp);
}

} // namespace

set *set_new(compare_function compare)
{
    set *so = take<set>();
    so->bits = take<bitset>();
    so->pointers = take<ptrset>();
    so->pointers->compare = compare;
    so->serial = next_serial++;
    return so;
}

void set_free(set *so)
{
    if (so == nullptr) {
        return;
    }
    bitset_free(so->bits);
    ptrset_free(so->pointers);
    give_back(so);
}

void set_add(set *so, word value)
{
    CHECK_STATE(so != nullptr, "so != NULL");
    if (bitset_canContain(value)) {
        bitset_add(so->bits, value);
    } else {
        ptrset_add(so->pointers, value);
    }
}

bool set_contains(const set *so, word value)
{
    CHECK_STATE(so != nullptr, "so != NULL");
    if (bitset_canContain(value)) {
        return (bits_of(so->bits) & bit_of(value)) != 0;
    }
    return ptrset_contains(so->pointers, value);
}

bool set_is_empty(const set *so)
{
    return so == nullptr || set_size(so) == 0;
}

std::uint32_t set_size(const set *so)
{
    CHECK_STATE(so != nullptr, "so != NULL");
    return static_cast<std::uint32_t>(std::popcount(bits_of(so->bits))) + ptrset_size(so->pointers);
}

word set_min(const set *so)
{
    CHECK_STATE(so != nullptr, "so != NULL");
    if (const std::uint64_t bits = bits_of(so->bits); bits != 0) {
        return static_cast<word>(std::countr_zero(bits));
    }
    CHECK_STATE(so->pointers != nullptr, "sp != NULL");
    return so->pointers->table != nullptr ? skiplist_first(so->pointers->table) : 0;
}

bool set_intersects(const set *a, const set *b)
{
    CHECK_STATE(a != nullptr, "sp1 != NULL");
    CHECK_STATE(b != nullptr, "sp2 != NULL");
    return (bits_of(a->bits) & bits_of(b->bits)) != 0 || ptrset_intersects(a->pointers, b->pointers);
}

void set_iter_begin(set *so)
{
    if (so != nullptr) {
        bitset_iter_begin(so->bits);
        ptrset_iter_begin(so->pointers);
    }
}

int set_iter_more(const set *so)
{
    if (so == nullptr) {
        return 0;
    }
    return bitset_iter_more(so->bits) ? 1 : vector_iter_more(ptrset_iterated(so->pointers));
}

word set_next(set *so)
{
    if (so == nullptr) {
        return 0;
    }
    return bitset_iter_more(so->bits) ? bitset_next(so->bits) : vector_next(ptrset_iterated(so->pointers));
}

int set_iter_step(set *so, int more)
{
    if (so == nullptr) {
        CHECK_STATE(more == 0, "more == 0");
        return 0;
    }
    if (more == 0) {
        bitset_iter_end(so->bits);
        CHECK_STATE(so->pointers != nullptr, "sp != NULL");
        if (so->pointers->table != nullptr) {
            ptrset_iter_end(so->pointers);
        }
    }
    return more;
}

numset *numset_new()
{
    return take<numset>();
}

namespace {

bool numset_canContain(word n)
{
    return n != std::numeric_limits<word>::max();
}

} // namespace

void numset_add(numset *so, word n)
{
    CHECK_STATE(so != nullptr, "so != NULL");
    CHECK_STATE(numset_canContain(n), "numset_canContain(n)");
    ptrset_add(&so->numbers, n + 1);
}

void numset_remove(numset *so, word n)
{
    CHECK_STATE(so != nullptr, "so != NULL");
    CHECK_STATE(numset_canContain(n), "numset_canContain(n)");
    if (so->numbers.table != nullptr) {
        skiplist_delete(so->numbers.table, n + 1);
    }
}

bool numset_contains(const numset *so, word n)
{
    CHECK_STATE(so != nullptr, "so != NULL");
    return numset_canContain(n) && ptrset_contains(&so->numbers, n + 1);
}
