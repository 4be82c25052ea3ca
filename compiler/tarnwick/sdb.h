// SPDX-License-Identifier: MIT
// The symbol database: the tree of what the compiler knew of its modules. Records and look-ups; the reader of the files
// is sdb_read.cpp. Nodes live until the process ends.
#pragma once

#include <cstdint>
#include <vector>

#include "common/vector_of.h"
#include "compiler/tarnwick/machine.h"
#include "compiler/tarnwick/type.h"

enum sclass : std::uint32_t {
    sc_null = 0,
    sc_extern = 1,
    sc_global = 2, // not made by the reader
    sc_static = 3,
    sc_auto = 4,
    sc_param = 5,
    sc_typedef = 6, // or predefined basic type
    sc_module = 7,
    sc_line = 8, // not made by the reader
    sc_block = 9,
    sc_func = 10,
    sc_reg = 11,
    sc_struct = 12, // or union
    sc_enum = 13,
    sc_filename = 14, // a change of source file inside a block
    sc_asmodule = 15, // a module with no usable database
};

enum location_kind : std::uint32_t {
    LO_REGISTER = 0,
    LO_ADDRESS = 1,
    LO_OFFSET = 2, // on the stack
    LO_NAME = 3,   // a name not resolved
};

struct sdb_location {
    const char *lo_file = nullptr;
    std::uint32_t lo_line = 0;
    std::uint32_t lo_low = 0; // address range, inclusive; 0 until ranges are calculated
    std::uint32_t lo_end = 0; // line at which the next location took over
    std::uint32_t lo_high = 0;
    std::uint32_t lo_kind = 0;
    std::uint32_t lo_id = 0; // serial number
    const char *lo_name = nullptr;
    std::uint32_t lo_value = 0; // register index, stack offset or address
    std::uint32_t lo_space = 0;
};

struct sdb_range {
    std::uint32_t low = 0;
    std::uint32_t high = 0; // inclusive
    sdb_range *next = nullptr;
};

struct sdb_var {
    std::uint32_t va_size = 0;
    std::int32_t va_dim = 0;
    const char *va_asmname = nullptr; // of a function-scope static
    const char *va_alias = nullptr;   // the name that debugging information gives
    type_record *va_type = nullptr;
    vector_of<sdb_location *> va_locations; // null until the first one
    std::uint32_t va_inline = 0;
    std::uint32_t va_coff_index = 0; // the COFF writer's: symbol index, 0 for none
};

inline constexpr std::uint32_t SDB_FRAME_NUMBERS = 4;
inline constexpr std::uint32_t SDB_HASH_SIZE = 47;
inline constexpr std::uint32_t SDB_MEMBER_STEP = 10;

struct sdb_block {
    std::uint32_t bl_first = 0; // source lines
    std::uint32_t bl_last = 0;
    const char *bl_file = nullptr;
    std::uint32_t bl_alloc = 0;
    std::uint32_t bl_count = 0;
    std::uint32_t bl_frame[SDB_FRAME_NUMBERS] = {}; // the first is the frame size
    sdb_node **bl_members = nullptr;
    sdb_node **bl_hash = nullptr; // SDB_HASH_SIZE chains, then as many tails; null until a look-up climbs here
    sdb_node *bl_func = nullptr;  // of sc_func: the variable node of the function
    std::uint32_t bl_inline = 0;
    std::uint32_t bl_nranges = 0;
    sdb_range *bl_ranges = nullptr;
};

struct sdb_member {
    const char *sm_name = nullptr; // null when anonymous
    type_record *sm_type = nullptr;
    std::int32_t sm_offset = 0;
    std::int32_t sm_size = 0;
    std::int32_t sm_bitoff = 0; // both 0 for a plain member
    std::int32_t sm_bitwidth = 0;
};

struct sdb_struct {
    bool st_union = false;
    std::uint32_t st_size = 0;
    const char *st_tag = nullptr; // null for none
    std::uint32_t st_count = 0;
    sdb_member *st_members = nullptr;
    std::uint32_t st_coff_index = 0;     // the COFF writer's: symbol index of the tag
    vector_of<std::uint32_t> st_waiting; // the COFF writer's: indices of the auxiliary entries that wait for the tag
};

struct sdb_enumerator {
    const char *name = nullptr;
    std::int32_t value = 0;
};

struct sdb_enum {
    std::uint32_t en_size = 0;
    const char *en_tag = nullptr;
    std::uint16_t en_count = 0;
    sdb_enumerator *en_members = nullptr;
};

// Bits of `sdb_flags`.
inline constexpr std::uint32_t SDB_FAKED = 1;  // a faked block
inline constexpr std::uint32_t SDB_HASHED = 2; // found by name in its block

struct sdb_node {
    const char *sdb_name = nullptr;
    sdb_node *sdb_chain = nullptr; // next in the same hash bucket of the enclosing block
    std::uint32_t sdb_flags = 0;
    std::uint32_t sdb_line = 0;
    sclass sdb_sclass = sc_null;
    std::uint32_t sdb_index = 0; // in the parent's member list when it was added
    sdb_node *sdb_parent = nullptr;
    union {
        sdb_block block; // which one holds is told by `sdb_sclass`
        sdb_var var;
        sdb_struct structure;
        sdb_enum enumeration;
    };

    sdb_node() : block{} {}
};

extern sdb_node *sdb_global;  // predefined types and all modules; null before the first database
extern sdb_node *sdb_current; // the block that takes new members

// A node of a class, with its variant at its defaults.
sdb_node *sdb_new_node(sclass cls, const char *name);
bool sdb_is_scope(sclass cls); // has members
bool sdb_is_variable(sclass cls);
// Appends to the member list (parent and index are the caller's), and at the tail of the name's hash bucket; a block that was
// never searched has no buckets yet, and takes them from its members at its first search.
void sdb_add_member(sdb_node *block, sdb_node *node);
void sdb_add_to_hash(sdb_node *block, sdb_node *node);
std::uint32_t sdb_name_bucket(const char *name);
// To be called after a change of names or places in the tree other than by `sdb_add_member`.
void sdb_tree_changed();
// Serial numbers of location records, from 0.
std::uint32_t sdb_next_location_id();
// Forgets the machine and all databases: a run starts like this.
void sdb_reset();

// Reads the database of a module, beside `path` with the extension "sdb", and adds it to `sdb_global`; a module without
// usable database is an sc_asmodule. A path read before gives its node again. Ends the run when no machine could be
// chosen. Raises messages 294, 627 to 631, 637, 1292 and 1303 to 1306.
sdb_node *sdb_read(const char *path);
// Appends a source file mark to a module.
sdb_node *sdb_add_filename(sdb_node *block, const char *name, std::uint32_t line);

// The first node of this name in a depth-first walk of the tree in member order; null when there is none.
sdb_node *sdb_find(const char *name);
// `sdb_find` for each of some hundred names, none null, once the tree is complete: the same answers from an index, made
// anew when the tree has grown. The searches overlap, so that they wait less for the memory.
std::vector<sdb_node *> sdb_find_all(const std::vector<const char *> &names);
// A name as code at a place in the tree sees it.
sdb_node *sdb_scope_lookup(const char *name, sdb_node *block, std::uint32_t count);
sdb_node *sdb_lookup_local(const char *name);

bool sdb_is_reentrant(const sdb_node *function);
// Value (low half) and space (high half) of the first location that is no register; false when there is none.
bool sdb_symbol_value(const sdb_node *node, std::uint64_t *result);
std::uint32_t sdb_function_location(const sdb_node *function_block);
std::int32_t sdb_get_frameptr();

// The text of a location for reports, with a leading blank; at most 63 characters.
struct location_text {
    char text[64];
};
location_text sdb_location_text(const sdb_location *location);
// The type record of a type string, or null.
type_record *sdb_parse_type(const char *text);

// Prints the tree on the standard error stream; nothing when none was loaded.
void sdb_dump();
