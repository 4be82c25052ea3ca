// SPDX-License-Identifier: MIT
// Sets of unsigned words: values below 64 are bits of one word, all others stand in a pointer set on a skip list.
#pragma once

#include <cstdint>

#include "common/base.h"
#include "common/quicksort.h"

struct bitset;
struct ptrset;

struct set {
    bitset *bits = nullptr;
    ptrset *pointers = nullptr;
    std::uint32_t serial = 0;
};

// `compare` orders a loop over the values from 64 on; null leaves them in the skip list's order.
set *set_new(compare_function compare = nullptr);
void set_free(set *so);
void set_add(set *so, word value);
bool set_contains(const set *so, word value);
bool set_is_empty(const set *so); // a null set is empty
std::uint32_t set_size(const set *so);
word set_min(const set *so); // lowest bit, else first value of the skip list, else 0
bool set_intersects(const set *a, const set *b);

void set_iter_begin(set *so);
int set_iter_more(const set *so);
word set_next(set *so);
int set_iter_step(set *so, int more);

// One pass over a set: bits in ascending order, then the pointer set. Values added during it are not seen.
class each_in {
public:
    explicit each_in(set *so) : so_(so) { set_iter_begin(so_); }
    ~each_in() { set_iter_step(so_, 0); }
    each_in(const each_in &) = delete;
    each_in &operator=(const each_in &) = delete;

    struct end_mark {};
    class cursor {
    public:
        explicit cursor(set *so) : so_(so) { ++*this; }
        word operator*() const { return element_; }
        cursor &operator++()
        {
            more_ = set_iter_more(so_) != 0;
            if (more_) {
                element_ = set_next(so_);
            }
            return *this;
        }
        bool operator!=(end_mark) const { return more_; }

    private:
        set *so_;
        word element_ = 0;
        bool more_ = false;
    };
    cursor begin() { return cursor(so_); }
    end_mark end() { return {}; }

private:
    set *so_;
};

// A set of numbers: `n` is stored as `n` + 1, so the highest word cannot be held.
struct numset;
numset *numset_new();
void numset_add(numset *so, word n);
void numset_remove(numset *so, word n);
bool numset_contains(const numset *so, word n); // false for the highest word
