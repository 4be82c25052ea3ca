// SPDX-License-Identifier: MIT
// C types in a COFF output: the type word with its auxiliary entry, and the tags of structs and unions.
#pragma once

#include <cstdint>
#include <vector>

#include "common/hash.h"
#include "compiler/tarnwick/coff_symbols.h"
#include "compiler/tarnwick/sdb.h"
#include "compiler/tarnwick/type.h"

// A type as an entry holds it.
struct coff_type {
    std::uint32_t word = 0;
    bool has_aux = false;
    coff_entry aux{};
    sdb_node *waits_for = nullptr; // the struct whose tag the auxiliary entry has to name and cannot yet
};

// The tags of one output. An equal type of another node has no tag of its own.
struct coff_tags {
    explicit coff_tags(coff_tables *out);
    ~coff_tags();
    coff_tags(const coff_tags &) = delete;
    coff_tags &operator=(const coff_tags &) = delete;

    coff_tables *tables;
    hash_table *type_table;               // struct elements to the indices of their tags
    std::vector<sdb_node *> pending_tags; // structs with entries that wait for their tags
};

// Puts a derivation around a type word: those already there move inward.
std::uint32_t coff_derive(std::uint32_t type, coff_derivation derivation);
// The word of a type, which may be null, without writing anything.
coff_type vcoff_type_word(const coff_tags &tags, const type_record *tp);
// Writes the tag of the struct at the base of a type, and of those that its members bring, unless they are there.
void vcoff_emit_tag(coff_tags *tags, type_record *tp);
// Both, with all tags resolved that had to wait.
coff_type vcoff_type(coff_tags *tags, type_record *tp);
// The type of a variable. Two base types stand for floating point, and the size of the variable tells which it is.
coff_type coff_variable_type(coff_tags *tags, const sdb_var &variable);
