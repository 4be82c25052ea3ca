// SPDX-License-Identifier: MIT
// Machine descriptions: the facts in which the two target chip families differ. One of them is the current machine
// for the whole run, chosen when the first symbol database is read.
#pragma once

#include <cstdint>
#include <span>

#include "common/vector_of.h"
#include "compiler/tarnwick/type.h"

struct sdb_node;
struct sdb_location;

struct machine_register {
    const char *name;
    std::uint8_t size;
    std::uint8_t components[4]; // rows counted from 1; 0 for none
};

struct machine_basic {
    const char *key;
    std::uint8_t size;
    type_class cls;
};

struct machine_qualifier {
    const char *keyword;
    char letter; // '0' for none
    std::uint32_t mask;
};

// Where in the tree a location is looked at.
struct sdb_context {
    sdb_node *block = nullptr;
    std::uint32_t count = 0;
    // The sc_func block that `block` lies in, or null when in none, where the caller knows it; else it is looked for.
    bool function_known = false;
    const sdb_node *function = nullptr;
};

struct machine_description {
    const char *name;
    std::span<const machine_register> mc_registers;
    std::span<const char *const> mc_words;
    bool (*mc_matches)(const char *processor);
    std::span<const machine_basic> mc_basics;
    bool (*mc_check_location)(sdb_node *variable, sdb_location *location, const sdb_context *context);
    std::uint32_t (*mc_type_size)(const type_record *tp, const type_element *te);
    std::span<const machine_qualifier> mc_qualifiers;
    std::uint32_t mc_min_insn; // address units
    std::uint32_t mc_max_insn;
    std::uint32_t mc_rom_mask;
    std::uint32_t mc_volatile_mask;
};

extern const machine_description machkorh;
extern const machine_description machkor;

// The current machine; null before one was chosen.
extern const machine_description *machine;

// Chooses the machine by the processor's name or a database's prefix words and makes `sdb_global`. Raises messages 668
// and 669 and returns false when none can be chosen.
bool machine_init(vector_of<const char *> prefixes);
bool machine_set_flag(const char *word_text); // false when the machine has no such word
bool machine_has_flag(const char *word_text);
std::int32_t machine_register_index(const char *name); // -1 when there is none
// Forgets the choice and the words: a run starts like this.
void machine_reset();
// The mask of a qualifier letter, 0 when there is none.
std::uint32_t machine_qualifier_mask(char letter);
