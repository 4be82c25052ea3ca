// SPDX-License-Identifier: MIT
// The typed view over vectors, and the one loop of the program:
//
//     for (segment *seg : each(seg_list)) { ... }
//
// The view has no state but the vector; copies of it are the same collection. A null view is an empty collection to
// `count` and `each`.
#pragma once

#include <cstdint>
#include <type_traits>

#include "common/vector.h"

template <typename T>
inline word to_word(T value)
{
    static_assert(sizeof(T) <= sizeof(word));
    if constexpr (std::is_pointer_v<T>) {
        return reinterpret_cast<word>(value);
    } else {
        return static_cast<word>(value);
    }
}

template <typename T>
inline T from_word(word w)
{
    if constexpr (std::is_pointer_v<T>) {
        return reinterpret_cast<T>(w); // NOLINT(performance-no-int-to-ptr)
    } else {
        return static_cast<T>(w);
    }
}

template <typename T>
class vector_of {
public:
    constexpr vector_of() = default;
    constexpr explicit vector_of(vector *v) : v_(v) {}

    static vector_of make(std::uint32_t initial_size = VECTOR_INITIAL_SIZE, birth_place where = birth_place::here())
    {
        return vector_of(vector_new_sized(initial_size, where));
    }
    static vector_of make_lasting(std::uint32_t initial_size, birth_place where = birth_place::here())
    {
        return vector_of(vector_new_lasting(initial_size, where));
    }
    vector_of copy(birth_place where = birth_place::here()) const { return vector_of(vector_copy(v_, where)); }
    // Frees the vector; the elements stay with their owner.
    void free()
    {
        vector_free(v_);
        v_ = nullptr;
    }

    vector *raw() const { return v_; }
    explicit operator bool() const { return v_ != nullptr; }

    std::uint32_t count() const { return vector_count(v_); }
    bool empty() const { return count() == 0; }
    T get(std::uint32_t index) const { return from_word<T>(vector_get(v_, index)); }
    T last() const { return from_word<T>(vector_last(v_)); }
    T pop() const { return from_word<T>(vector_pop(v_)); }
    std::uint32_t push(T value) const { return vector_push(v_, to_word(value)); }
    std::uint32_t add_unique(T value) const { return vector_add_unique(v_, to_word(value)); }
    std::uint32_t insert(T value, std::uint32_t index) const { return vector_insert(v_, to_word(value), index); }
    void set(T value, std::uint32_t index) const { vector_set(v_, to_word(value), index); }
    int remove(std::uint32_t index) const { return vector_delete(v_, index); }
    std::uint32_t find(T value) const { return vector_find(v_, to_word(value)); }
    void clear() const { vector_clear(v_); }
    void append(vector_of other) const { vector_append(v_, other.v_); }

    // Sorts with the program's own quicksort; `Compare` is an `int (T, T)`.
    template <auto Compare>
    void sort() const
    {
        vector_sort(v_, [](const void *left, const void *right) -> int {
            return Compare(from_word<T>(*static_cast<const word *>(left)),
                           from_word<T>(*static_cast<const word *>(right)));
        });
    }

private:
    vector *v_ = nullptr;
};

// One pass over a vector. It opens an iterator and closes it on every way out of the loop.
template <typename T>
class each {
public:
    explicit each(vector_of<T> list) : v_(list.raw()) { vector_iter_begin(v_); }
    ~each()
    {
        if (v_ != nullptr) {
            vector_iter_step(v_, 0);
        }
    }
    each(const each &) = delete;
    each &operator=(const each &) = delete;

    struct end_mark {};
    class cursor {
    public:
        explicit cursor(vector *v) : v_(v) { ++*this; }
        T operator*() const { return from_word<T>(element_); }
        cursor &operator++()
        {
            more_ = vector_iter_more(v_) != 0;
            if (more_) {
                element_ = vector_next(v_);
            }
            return *this;
        }
        bool operator!=(end_mark) const { return more_; }

    private:
        vector *v_;
        word element_ = 0;
        bool more_ = false;
    };

    cursor begin() { return cursor(v_); }
    end_mark end() { return {}; }

private:
    vector *v_;
};
