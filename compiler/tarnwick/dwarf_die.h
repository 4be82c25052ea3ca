// SPDX-License-Identifier: MIT
// The joint between types and the walk over the symbol database: what is known of a type in the present compile unit, and
// the making of a unit from a module.
#pragma once

#include <cstdint>

#include "compiler/tarnwick/dwarf_info.h"
#include "compiler/tarnwick/sdb.h"
#include "compiler/tarnwick/type.h"

// Warning: a variable or member whose type has no entry is left out.
inline constexpr std::uint32_t MESSAGE_NO_TYPE_FOUND = 1293;

// A known type. Global types live for the whole run, the others for one compile unit.
struct dtype {
    const char *dt_id = nullptr;            // cached; ids are compared by identity
    const type_record *dt_record = nullptr; // the record that holds the element
    const type_element *dt_type = nullptr;  // the element that this stands for, with what lies below
    std::uint32_t dt_ref = 0;               // offset of its entry; 0 while there is none
    std::uint32_t dt_index = 0;             // place in its list
    bool dt_global = false;                 // which list that is
    bool dt_referenced = false;             // the present unit needs it
};

// Types were noted without being written.
extern bool has_delayed_types;

// Forgets all types: a run starts like this.
void dtype_reset();
// Forgets the unit's types, and that the global ones were written.
void dtype_start_unit();
// To the list of global types, or to the unit's; null when that is full. The first type of an id counts, and a global
// one before the unit's.
dtype *dtype_add(const char *id, const type_record *record, const type_element *type, bool is_global);
// The outermost element that says something: a qualifier without a letter adds nothing to a type. Null when there is
// none. A null record is a failed assertion.
const type_element *outermost_element(const type_record *record);
const type_element *element_below(const type_element *type);
// The type of an element and what lies below it. Writes its entry when `can_create_types`, and otherwise notes it for
// later. Null when the type cannot be referred to. Raises message 1293 for members.
dtype *do_type(const type_record *record, const type_element *type, bool can_create_types, compile_unit_handle cu);
// Writes the first type that waits, of the global types or of the unit's; false when none does.
bool create_delayed_types(bool global, compile_unit_handle cu);

// File number of the current source file of the walk, for declarations; 0 when there is none.
std::uint32_t die_current_file_number();

// One compile unit from a module of the database: its entries, and then its lines. Raises message 1293 for variables.
int die_compile_unit(sdb_node *module, std::uint8_t address_size);
