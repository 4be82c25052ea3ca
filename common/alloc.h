// SPDX-License-Identifier: MIT
// Allocation that cannot fail for its caller.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>

// Zero-filled memory of `size` bytes, released with `free`. Raises fatal message 296 when there is none.
void *xalloc(std::size_t size);

// `realloc` of memory from `xalloc` (null allowed); what is added is not cleared. Raises fatal message 296.
void *xrealloc(void *memory, std::size_t size);

// Zero-filled memory from large blocks that live until the process ends and are never released: for records and
// names of the model. `align` is a power of two. Raises fatal message 296.
void *xarena(std::size_t size, std::size_t align);

// Lets allocations of the C++ library fail with the same report. To be called at start-up.
void xalloc_report_all();

// A record that lives until the process ends.
template <typename T>
T *xnew()
{
    static_assert(std::is_trivially_destructible_v<T>);
    return ::new (xarena(sizeof(T), alignof(T))) T{};
}
template <typename T>
T *xnew(const T &value)
{
    static_assert(std::is_trivially_destructible_v<T>);
    return ::new (xarena(sizeof(T), alignof(T))) T(value);
}
