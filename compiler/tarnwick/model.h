// SPDX-License-Identifier: MIT
// The program model: the neutral picture of one linked program. Every reader fills it, every writer reads it. Records
// are made zero-filled and live until the process ends.
//
// Units. A psect's or segment's delta is the number of bytes in one of its address units. `pr_*`, `sg_*`, `da_*` and
// `sy_load` are bytes. `sy_value` of a symbol with a psect, `ln_addr` and `ln_end` are delta units of the psect;
// `sy_value` of a symbol without psect is as the input gave it, in bytes.
//
// File numbers and segment numbers are positions in `file_list` and `seg_list`, counted from 1; 0 means none.
#pragma once

#include <cstdint>
#include <vector>

#include "common/hash_of.h"
#include "common/set.h"
#include "common/vector_of.h"
#include "compiler/common/lists.h"

struct tarn_psect;
struct tarn_symbol;
struct tarn_line;

struct tarn_file {
    const char *fl_name = nullptr;
    tarn_symbol **fl_symbols = nullptr; // null until the symbols are distributed
    std::uint32_t fl_nsymbols = 0;
    tarn_line **fl_lines = nullptr; // null until the lines are distributed, then sorted by line number
    std::uint32_t fl_nlines = 0;
    std::uint32_t fl_index = 0;
    std::uint32_t fl_coff_index = 0; // index of the file's COFF symbol, set by that writer
};

enum symbol_flag : std::uint32_t {
    SYM_ABS = 1,   // absolute
    SYM_LOCAL = 2, // listed under a locals heading of a legacy symbol file
    SYM_DONE = 8,  // the COFF writer's mark that it must not be written
    SYM_DABS = 16, // a label of a dabs directive
};

struct tarn_symbol {
    std::uint32_t sy_file = 0;
    std::uint32_t sy_value = 0;
    std::uint32_t sy_load = 0; // load address
    std::uint32_t sy_seg = 0;
    tarn_psect *sy_psect = nullptr;
    std::uint32_t sy_flags = 0;
    std::uint32_t sy_space = 0;
    const char *sy_name = nullptr;
};

// The one value of `ln_flags`; every reader stores it and nothing tests it.
inline constexpr std::uint32_t LN_SOURCE = 2;

struct tarn_line {
    std::uint32_t ln_file = 0;
    std::uint32_t ln_addr = 0;
    std::uint32_t ln_end = 0; // last address, computed after all inputs were read
    std::uint32_t ln_seg = 0;
    std::uint32_t ln_flags = 0;
    std::uint32_t ln_line = 0;
    tarn_psect *ln_psect = nullptr;
};

struct tarn_psect_range {
    std::uint32_t pr_lo = 0;
    std::uint32_t pr_hi = 0; // inclusive; one below `pr_lo` when empty
    std::uint32_t pr_load = 0;
    const char *pr_object = nullptr;
    tarn_psect *pr_psect = nullptr;
};

struct tarn_psect {
    std::uint32_t ps_flags = 0; // PDB_*
    bool ps_use_link = false;   // ranges are placed by link address
    std::uint32_t ps_lib_reloc = 0;
    const char *ps_name = nullptr;
    std::uint32_t ps_space = 0;
    vector_of<tarn_psect_range *> ps_ranges;
    std::uint32_t ps_delta = 0;
    std::uint32_t ps_reloc = 0;    // power-of-two alignment
    tarn_psect *ps_prev = nullptr; // split chain: the parent, or the next newer child
    tarn_psect *ps_next = nullptr; // of a parent its newest child, of a child the next older one
};

struct tarn_segment_range {
    tarn_psect *sr_psect = nullptr;
    std::uint32_t sr_index = 0; // into its `ps_ranges`
};

struct tarn_segment {
    std::uint32_t sg_index = 0; // the number as stored; 0 in the $FAKE_ABS segment
    std::uint32_t sg_addr = 0;  // link address
    std::uint32_t sg_load = 0;  // load address
    std::uint32_t sg_size = 0;
    std::uint32_t sg_flags = 0; // PDB_*
    const char *sg_name = nullptr;
    std::uint32_t sg_delta = 0;
    std::uint32_t sg_space = 0;
    vector_of<tarn_segment_range *> sg_ranges;
    bool sg_noranges = false; // no psect ranges belong here
};

struct tarn_data {
    std::uint32_t da_addr = 0;
    std::uint32_t da_len = 0;
    std::uint8_t *da_bytes = nullptr;
    std::uint32_t da_seg = 0; // 0 until consolidation
};

extern vector_of<tarn_file *> file_list;
extern hash_of<const char *, tarn_file *> files_by_name; // without regard to case
extern vector_of<tarn_symbol *> symbol_list;
extern hash_of<const char *, tarn_symbol *> symbols_by_name;   // the first of a name
extern hash_of<std::uint32_t, tarn_symbol *> symbols_by_value; // the first of a value; filled when it is asked
extern vector_of<tarn_line *> line_list;
extern hash_of<const char *, tarn_psect *> psect_table;
extern hash_of<const char *, std::uint32_t> psect_flags_table; // --psect-flags
extern vector_of<tarn_segment *> seg_list;
extern vector_of<tarn_data *> data_list;
extern set *code_spaces;
extern set *data_spaces;
extern set *eeprom_spaces;

extern bool psect_flags_given;
extern std::uint32_t fake_abs_segment; // number of the $FAKE_ABS segment, or 0
extern std::uint32_t start_address;    // carried because images hold one; no output depends on it

// Makes all tables, empty.
void model_create();

// Adding.
std::uint32_t tarn_add_file(const char *name); // the file's number
tarn_symbol *tarn_add_symbol(const tarn_symbol &record);
// Has the places of a symbol's name fetched from memory, for one that is about to be added.
void tarn_prefetch_symbol(const char *name);
tarn_line *tarn_add_line(const tarn_line &record);
// An image of at most `size` bytes is about to come. The bytes of its blocks then lie behind each other in memory, which
// spares consolidation to move them.
void tarn_expect_data(std::size_t size);
tarn_data *tarn_add_data(std::uint32_t address, std::uint32_t length, const std::uint8_t *bytes, std::uint32_t segment);
tarn_psect *tarn_add_psect(const char *name, std::uint32_t space, std::uint32_t delta);
// `range` is in delta units, its high bound exclusive.
tarn_psect_range *tarn_add_psect_range(tarn_psect *pp, const tarn_psect_range &range);
void tarn_add_segment(const tarn_segment &record); // looks for psect ranges
// A second segment of a name is dropped. A segment whose ranges differ in flags becomes several.
void add_seg_internal(const tarn_segment &record, bool look);
void add_seg_range(tarn_segment *seg, tarn_psect *pp);

// Finding; null or 0 when there is none.
tarn_psect *tarn_find_psect(const char *name);
tarn_symbol *tarn_find_symbol(const char *name);       // the first of that name
tarn_symbol *tarn_find_symbol_at(std::uint32_t value); // the first of that value
// To be called before the order of `symbol_list` changes: the first of a value is the one that was added first.
void tarn_settle_symbol_values();
tarn_segment *tarn_find_segment(const char *name);
tarn_file *tarn_find_file(const char *name);
tarn_symbol *tarn_file_symbol(const char *file, const char *name);
bool tarn_symbol_addr(const char *name, std::uint64_t *pair); // segment number high, value low
tarn_psect_range *tarn_psect_range_at(tarn_psect *pp, std::uint32_t address, bool near);
const char *tarn_unique_seg_name(const char *name);
// The segment that holds an address in units now, given the segment number it had.
std::uint32_t tarn_segment_of(std::uint32_t address, std::uint32_t segment, std::uint32_t delta);
// The name itself the first time, then the name with a counter from 1.
const char *tarn_name_counter(hash_of<const char *, std::uint32_t> counters, const char *name);

bool tarn_is_code_space(std::uint32_t space);
bool tarn_is_data_space(std::uint32_t space);
bool tarn_is_eeprom_space(std::uint32_t space);
bool tarn_seg_is_code(const tarn_segment *seg);
bool tarn_seg_is_eeprom(const tarn_segment *seg);
bool tarn_segno_is_code(std::uint32_t number);
bool tarn_segno_is_data(std::uint32_t number);

// The first range of a psect, made on demand; in bytes.
void tarn_psect_set_lo(tarn_psect *pp, std::uint32_t value);
void tarn_psect_set_hi(tarn_psect *pp, std::uint32_t value);
void tarn_psect_set_load(tarn_psect *pp, std::uint32_t value);

// Code ranges in the units of line addresses, both ends inclusive.
struct address_range {
    std::uint32_t low = 0;
    std::uint32_t high = 0;
};
// Line number to address: 1 an exact line, -1 a later one, 0 not found. `ranges` may be null; then any address counts.
int tarn_line_addr(const char *name, std::uint32_t line, std::uint32_t *out, const address_range *ranges,
                   std::uint32_t range_count);
int tarn_line_addr_any(const char *name, std::uint32_t line, std::uint32_t *out, const address_range *ranges,
                       std::uint32_t range_count);
// The same for callers with many lines to look up in one list of ranges, in time that is logarithmic in their number.
// The ranges are in ascending order, and none overlaps another. An empty list is no list: any address counts.
int tarn_line_addr_any(const char *name, std::uint32_t line, std::uint32_t *out,
                       const std::vector<address_range> &ordered);

// Segment searches that the map import and consolidation make once per symbol, line or block. Both give what a walk of
// `seg_list` gives, and are rebuilt when the list has changed.
//
// The position + 1 of the last segment of `seg_list`, the $FAKE_ABS one left out, whose space is `space` and whose span
// from `sg_load` over `sg_size` bytes holds `load`; 0 when there is none.
std::uint32_t tarn_youngest_segment_at(std::uint32_t space, std::uint32_t load);
// To be called after a change of a segment's number, addresses, size or place outside of the adding operations. Names
// come into the list at its end only, though a segment may then be moved to an earlier place.
void tarn_segments_changed();
// To be called after a change of a psect's space, ranges or `ps_use_link` outside of the operations above.
void tarn_psects_changed();
