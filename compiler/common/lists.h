// SPDX-License-Identifier: MIT
// Sorted lists of address ranges, and the description of memory spaces and classes behind the option `-s`. The parsed
// description is read by nothing: the option can only fail or do nothing.
#pragma once

#include <cstdint>

#include "common/base.h"

// A singly linked list through its head pointer, sorted by `lo`.
struct memory_range {
    std::uint32_t lo = 0;
    std::uint32_t hi = 0; // inclusive
    memory_range *next = nullptr;
};

struct memory_space;

struct memory_class {
    const char *cl_name = nullptr;
    std::uint32_t cl_kind = 0;
    std::uint32_t cl_size = 0;
    std::uint32_t cl_overrun = 0;
    std::uint32_t cl_value = 0;
    memory_range *cl_ranges = nullptr;
    memory_space *cl_space = nullptr;
    memory_class *cl_next = nullptr;
};

struct memory_space {
    const char *ms_name = nullptr;
    std::uint32_t ms_number = 0;
    memory_class *ms_classes = nullptr;
    memory_space *ms_next = nullptr;
};

// Adds a range, so that the list covers the union. With `join`, ranges that touch become one. Raises message 1314 for
// a high below the low.
void range_add(memory_range **mrp, std::uint32_t lo, std::uint32_t hi, bool join);
// The same, cut at multiples of `block` unless that is 0.
void range_add_blocks(memory_range **mrp, std::uint32_t lo, std::uint32_t hi, std::uint32_t block, bool join);
void range_free(memory_range **mrp);

memory_space *space_find_add(memory_space **list, const memory_space &record);
memory_class *class_find_add(memory_space *space, const char *name, std::uint32_t kind, std::uint32_t size,
                             std::uint32_t overrun, std::uint32_t value);
// Moves `text` behind a number in the linker's notation; false on success.
bool parse_number(const char **text, std::uint32_t *value);
// Raise messages 442 to 449.
void parse_class_spec(memory_class *cls, const char *text);
void parse_memory_spec(const char *text, memory_space **list);

// Flag words of psects and segments.
enum psect_flag : std::uint32_t {
    PDB_WRITE = 1,   // "w", write
    PDB_EXEC = 2,    // "x", exec
    PDB_NOSPACE = 4, // "s", noprog: no place in the program image
    PDB_FAKE = 8,    // "f", fake
};
const char *psect_flags_text(std::uint32_t flags); // cached; the letters of the set flags, lowest bit first
std::uint32_t psect_flags_parse(const char *text); // other letters are passed over
