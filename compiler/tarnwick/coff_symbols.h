// SPDX-License-Identifier: MIT
// The symbol table and the string table of a COFF output while they are built. An entry's place in `coff_symbols` is its
// symbol index; symbols and auxiliary entries stand mixed.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "common/key_index.h"
#include "compiler/tarnwick/coff.h"

// An entry in output form.
using coff_entry = std::array<std::uint8_t, COFF_SYMBOL_SIZE>;

// What a symbol entry holds beside its name.
struct coff_symbol {
    std::uint32_t value = 0;
    std::uint32_t section = 0; // the low 16 bits are written
    std::uint32_t type = 0;
    coff_class cls = CSC_NULL;
};

// What an auxiliary entry can hold; which fields mean something depends on its symbol. The sizes and lines are written
// with their low 16 bits.
struct coff_aux {
    std::uint32_t tag = 0; // also the string table offset of a file's name
    std::uint32_t line = 0;
    std::uint32_t size = 0;
};

struct coff_tables {
    std::vector<coff_entry> coff_symbols;
    std::string coff_strings; // each string with its terminator; the table's size field in front of them is not here
    key_index<std::size_t> string_offsets; // of each string; in the file their low 32 bits

    coff_tables() = default;
    ~coff_tables() { string_offsets.free(); }
    coff_tables(const coff_tables &) = delete;
    coff_tables &operator=(const coff_tables &) = delete;
};

// Where an output's string table has this text, which it is added to unless it is there.
std::uint32_t vcoff_string_offset(coff_tables *tables, const char *text);
// The name rule: under `opt_strip_underscore` one leading "_" is cut.
void vcoff_set_name(coff_tables *tables, coff_entry *entry, const char *text);
// The length rule alone, which section names, tags and generated names follow. `field` has COFF_NAME_SIZE bytes, all 0. A
// null name is made up.
void coff_put_name(coff_tables *tables, std::uint8_t *field, const char *text);

// Entries, not yet in the table.
coff_entry coff_make_symbol(const coff_symbol &symbol);
coff_entry coff_make_aux(const coff_aux &aux);

// Each appends and gives the index of the symbol.
std::uint32_t coff_append(coff_tables *tables, const coff_entry &symbol);
std::uint32_t coff_append(coff_tables *tables, coff_entry symbol, const coff_entry &aux);
// The same for an entry whose name is no longer than the field, such as the markers'.
std::uint32_t coff_append_marker(coff_tables *tables, const char *name, const coff_symbol &symbol);
std::uint32_t coff_append_marker(coff_tables *tables, const char *name, const coff_symbol &symbol, const coff_aux &aux);

// Lets the auxiliary entry of an opening symbol point to that of the closing one.
void coff_close(coff_tables *tables, std::uint32_t opening, std::uint32_t closing);
