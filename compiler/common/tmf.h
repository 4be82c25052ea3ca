// SPDX-License-Identifier: MIT
// The store of the linker's map file: its records, the operations that add and query them, and the parser that fills
// it. Figures are as the file gives them: in delta units unless a field says bytes. All texts are cached strings.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string_view>
#include <vector>

#include "common/base.h"
#include "common/vector_of.h"

struct tmf_psect {
    const char *tmfps_obj = nullptr;
    const char *tmfps_name = nullptr;
    const char *tmfps_class = nullptr;
    std::uint32_t tmfps_space = 0;
    std::uint32_t tmfps_link = 0;
    std::uint32_t tmfps_load = 0;
    std::uint32_t tmfps_length = 0;
    std::uint32_t tmfps_delta = 0; // bytes in an address unit
    std::uint32_t tmfps_reloc = 0; // alignment
    struct {
        tmf_psect *next = nullptr;   // next child of the chain
        tmf_psect *parent = nullptr; // the side it was cut from
    } tmfps_split;                   // null until splits are resolved
};

struct tmf_range {
    std::uint32_t low = 0;
    std::uint32_t high = 0;
};

struct tmf_unused {
    const char *tmfun_class = nullptr;
    std::uint32_t tmfun_delta = 0;
    vector_of<tmf_range *> tmfun_ranges;
};

struct tmf_line {
    const char *tmfln_obj = nullptr;
    const char *tmfln_file = nullptr;
    std::uint32_t tmfln_line = 0;
    std::uint32_t tmfln_addr = 0;
    const char *tmfln_psect = nullptr;
    const char *tmfln_class = nullptr;
};

struct tmf_line_group {
    const char *tmflg_obj = nullptr;
    vector_of<tmf_line *> tmflg_lines;
    bool tmflg_sorted = false;
};

struct tmf_symbol {
    const char *tmfsy_name = nullptr;
    std::uint32_t tmfsy_value = 0;
    std::int32_t tmfsy_loadadj = 0; // added to the value it gives the load address
    const char *tmfsy_class = nullptr;
    std::uint32_t tmfsy_space = 0;
    const char *tmfsy_psect = nullptr;
    const char *tmfsy_file = nullptr;
};

struct tmf_split {
    const char *tmfsp_parent = nullptr;
    const char *tmfsp_child = nullptr;
    bool tmfsp_done = false;
};

struct tmf_dabs_record {
    const char *tmfda_name = nullptr; // "-" when unlabelled
    std::uint32_t tmfda_space = 0;
    std::uint32_t tmfda_addr = 0; // bytes
    std::uint32_t tmfda_size = 0; // bytes
};

struct tmf_segment {
    const char *tmfsg_name = nullptr;
    std::uint32_t tmfsg_space = 0;
    std::uint32_t tmfsg_link = 0;
    std::uint32_t tmfsg_file = 0; // bytes
    std::uint32_t tmfsg_size = 0;
    std::uint32_t tmfsg_delta = 0;
};

struct tmf_note {
    const char *tmfnp_name = nullptr;
    std::uint32_t tmfnp_length = 0; // bytes held
    std::uint8_t *tmfnp_data = nullptr;
};

extern bool tmf_initialised; // the store is valid
extern std::FILE *tmf_fp;    // the open map file, null outside of a read

// True when the first significant line begins with "%TMF".
bool tmf_isTMF(std::FILE *stream);
// Reads a map file into a new store and closes the stream; false when a section is missing. Raises message 1437 for
// each bad field and goes on.
bool tmf_read(std::FILE *stream, const char *path);

// Empties the store and makes it valid, as the first step of a read does.
void tmf_store_create();

// Adding. Each raises message 1437 where its record is not valid; null when the record was not stored.
tmf_psect *tmf_add_psect(const tmf_psect &record);
tmf_unused *tmf_add_unused(const char *name, std::uint32_t delta, std::uint32_t low, std::uint32_t high);
tmf_line *tmf_add_line(const tmf_line &record); // silent
tmf_symbol *tmf_add_symbol(const tmf_symbol &record);
// Has the place of a symbol fetched from memory, for one that is about to be added.
void tmf_prefetch_symbol(const char *name);
void tmf_add_split(const char *parent, const char *child);
void tmf_add_dabs(const tmf_dabs_record &record);
tmf_segment *tmf_add_segment(const tmf_segment &record);
void tmf_append_note(const char *name, std::uint32_t length, const std::uint8_t *bytes);

// Queries; new vectors, which the caller frees, empty while the store is not valid.
vector_of<tmf_psect *> tmf_psects();     // object by object
vector_of<tmf_segment *> tmf_segments(); // in list order, not that of the file
vector_of<tmf_symbol *> tmf_symbols();   // likewise
vector_of<tmf_note *> tmf_notes();       // likewise
vector_of<const char *> tmf_line_objects();
vector_of<tmf_line *> tmf_lines_of(const char *object); // sorted once
vector_of<tmf_split *> tmf_splits();                    // in the order of the file
vector_of<tmf_dabs_record *> tmf_dabs();                // unlabelled ones first
tmf_symbol *tmf_find_symbol(const char *label);
tmf_dabs_record *tmf_find_dabs(const char *label);
tmf_psect *tmf_symbol_psect(const tmf_symbol *symbol);
// The address ranges of the function with this entry label, in delta units, both ends inclusive.
std::vector<tmf_range> tmf_entry_ranges(const char *label);

void tmf_error(const char *format, ...) PRINTF_LIKE(1, 2);
