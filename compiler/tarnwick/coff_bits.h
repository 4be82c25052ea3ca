// SPDX-License-Identifier: MIT
// Bit variables in a COFF output: those of one data word become the members of a made-up struct, and one variable of that
// struct stands for the word.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>

#include "compiler/tarnwick/coff_symbols.h"
#include "compiler/tarnwick/sdb.h"

class coff_bits {
public:
    // Notes a bit variable. The first at an address stays, and its node bears the joined names of all of them: the
    // database is changed for good.
    void vcoff_bit_add(sdb_node *node, std::uint32_t address);
    // A node's name as joined so far.
    const char *name_of(sdb_node *node);
    // Writes the groups behind the last note.
    void write_groups(coff_tables *tables);

private:
    std::map<std::uint32_t, sdb_node *> bit_table_; // by bit address
    // Joined names that the nodes do not bear yet, last character first: names are put in front, and there can be many.
    // Looked up only: its order does not show.
    std::unordered_map<const sdb_node *, std::string> joined_;
};
