// SPDX-License-Identifier: MIT
// The inside of the map file's store, for the files that make it up. Everyone else goes through compiler/common/tmf.h.
#pragma once

#include <cstdint>

#include "common/skiplist.h"
#include "common/vector_of.h"
#include "compiler/common/tmf.h"

// The psects of one object file, by name.
struct tmf_object {
    const char *tmfob_name = nullptr;
    skiplist_of<tmf_psect *> tmfob_psects;
};

// Skip lists give the order in which everything is handed out: by the hash of the name, then by the name.
struct tmf_tables {
    skiplist_of<tmf_object *> objects;
    skiplist_of<tmf_unused *> unused;          // by class
    skiplist_of<tmf_line_group *> line_groups; // by object
    skiplist_of<tmf_symbol *> symbols;         // by label
    skiplist_of<tmf_dabs_record *> dabs;       // the labelled ones
    skiplist_of<tmf_segment *> segments;
    skiplist_of<tmf_note *> notes;
    vector_of<tmf_split *> splits;           // in the order of the file
    vector_of<tmf_dabs_record *> plain_dabs; // the unlabelled ones, likewise
    std::uint32_t psect_count = 0;
    bool splits_dirty = false; // a split was added since the links were last resolved

    // The last object that got a psect or a line: in a map file the next one mostly goes there too.
    tmf_object *last_object = nullptr;
    tmf_line_group *last_group = nullptr;
};

extern tmf_tables tmf_store;

// Forgets the index of psects by name; it is made anew when it is next needed.
void tmf_drop_psect_index();
