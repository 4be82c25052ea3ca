// SPDX-License-Identifier: MIT
// C types of the symbol database: a flat record of elements, read from the last (outermost) down to element 0 (base).
#pragma once

#include <cstdint>

#include "common/hash.h"

struct sdb_node;

enum type_kind : std::uint32_t {
    ty_basic = 1,
    ty_func = 2,
    ty_ptr = 3,
    ty_enum = 4,
    ty_struct = 5,
    ty_array = 6,
    ty_qual = 7,
};

enum type_class : std::uint32_t {
    TE_VOID = 0,
    TE_SIGNED = 1,
    TE_UNSIGNED = 2,
    TE_FLOAT = 3,
    TE_BIT = 4, // with size 0 a bit, with a size a boolean
};

struct type_basic_value {
    std::uint32_t te_class;
    std::uint8_t te_size;   // bytes
    std::uint8_t te_bitpos; // bit number within its byte, of a bit variable with a known address
};

struct type_element {
    std::uint32_t te_kind = 0;
    std::uint32_t te_index = 0;    // place in its record, set by `type_append`; nothing lies below element 0
    const char *te_name = nullptr; // the text from which the element was built
    union {
        std::uint64_t te_value = 0;
        type_basic_value basic;  // ty_basic
        std::int64_t ptr_class;  // ty_ptr; 0 for a plain pointer
        sdb_node *node;          // ty_enum, ty_struct
        std::uint64_t dimension; // ty_array
        std::uint64_t mask;      // ty_qual
    };
};

struct type_record {
    std::uint32_t ty_cnt = 0;
    std::uint32_t ty_alloc = 0;
    type_element elements[1]; // `ty_alloc` of them
};

// Elements of room in a new record, and by which a full one grows at least.
inline constexpr std::uint32_t TYPE_ROOM = 3;

// An empty record with room for `room` elements.
type_record *type_new(std::uint32_t room = TYPE_ROOM);
// Appends an outermost element; the record may move, so keep the result.
type_record *type_append(type_record *tp, const type_element &te);

type_element *type_top(type_record *tp);
const type_element *type_top(const type_record *tp);
// The element below, or null at the base.
const type_element *type_below(const type_record *tp, const type_element *te);
bool isfunc(const type_record *tp); // null gives false
bool type_has_qualifier(const type_record *tp, std::uint64_t mask);
bool isBitType(const type_element *te);
bool isBoolType(const type_element *te);

// Tables that number distinct types. They are keyed by an element, which stands for it and what lies below.
hash_table *type_table_new();
void type_table_add(hash_table *table, type_element *te, std::uint32_t index);
std::uint32_t *type_table_get(hash_table *table, const type_element *te); // null when absent
void type_table_free(hash_table *table);

std::uint32_t type_hash(word key);       // fatal message 623 for an unknown kind
int type_compare(word left, word right); // 0 when equal; fatal message 624 for an unknown kind
