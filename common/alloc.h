// SPDX-License-Identifier: MIT
// Allocation that cannot fail for its caller.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>

#include "common/sanitized.h"

// Raises fatal message 296: there is no memory, or something wants more than anything of its kind may have.
[[noreturn]] void out_of_memory();

// Zero-filled memory of `size` bytes, released with `free`. Raises fatal message 296 when there is none.
void *xalloc(std::size_t size);

// `realloc` of memory from `xalloc` (null allowed); what is added is not cleared. Raises fatal message 296.
void *xrealloc(void *memory, std::size_t size);

// Zero-filled memory for what may grow large: `size` bytes, which begin with the `old_size` bytes of `memory` and are no fewer
// (null and 0 at first). Large memory moves without being copied. Raises fatal message 296. `xgrow_free` releases it.
void *xgrow(void *memory, std::size_t old_size, std::size_t size);
void xgrow_free(void *memory, std::size_t size);

// Zero-filled memory from large blocks that live until the process ends and are never released: for records and
// names of the model. `align` is a power of two. Raises fatal message 296.
inline void *xarena(std::size_t size, std::size_t align);

// Whether requests share blocks. Under the address sanitizer every request stands alone, so that it sees an overrun.
inline constexpr bool ARENA_SHARES_BLOCKS = !IS_SANITIZED;

// What is left of the block that small requests share, and the way to more.
extern char *arena_free;
extern char *arena_end;
void *xarena_slow(std::size_t size, std::size_t align);

inline std::size_t arena_padding(const char *address, std::size_t align)
{
    return (0 - reinterpret_cast<std::uintptr_t>(address)) & (align - 1);
}

// NOLINTNEXTLINE(misc-no-recursion): the slow way comes back with a block that has room
inline void *xarena(std::size_t size, std::size_t align)
{
    const std::size_t padding = arena_padding(arena_free, align);
    const auto left = static_cast<std::size_t>(arena_end - arena_free);
    if (padding >= left || size >= left - padding) [[unlikely]] { // an empty block gives nothing, not even no bytes
        return xarena_slow(size, align);
    }
    char *memory = arena_free + padding;
    arena_free = memory + size;
    return memory;
}

// Lets allocations of the C++ library fail with the same report. To be called at start-up.
void xalloc_report_all();

// A record in memory that came from elsewhere.
template <typename T>
T *place_record(void *memory, const T &value = {})
{
    return ::new (memory) T(value);
}

// A record that lives until the process ends.
template <typename T>
T *xnew()
{
    static_assert(std::is_trivially_destructible_v<T>);
    return place_record<T>(xarena(sizeof(T), alignof(T)));
}
template <typename T>
T *xnew(const T &value)
{
    static_assert(std::is_trivially_destructible_v<T>);
    return place_record<T>(xarena(sizeof(T), alignof(T)), value);
}
