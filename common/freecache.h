// SPDX-License-Identifier: MIT
// A free cache keeps released objects of one size for reuse.
#pragma once

#include <cstddef>
#include <cstdint>

// What every client in this program keeps at the most.
inline constexpr std::uint32_t FREECACHE_LIMIT = 8192;

struct freecache {
    std::size_t obj_size = 0;
    std::uint32_t count = 0; // free objects held
    std::uint32_t max_objs = 0;
    void *head = nullptr; // free objects, linked through their first word
};

freecache *freecache_new(std::size_t obj_size, std::uint32_t max_objs);
// A zero-filled object; null for a null cache.
void *freecache_get(freecache *cache);
// Gives an object back; the new number of free objects, or 0 when the cache was full and the object was freed.
std::uint32_t freecache_put(freecache *cache, void *object);
