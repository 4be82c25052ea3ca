// SPDX-License-Identifier: MIT
// What the reader of symbol databases shares among its rooms: the tokens of a file, the state that runs on from file to
// file, the names in sight, and the readers of the single records.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string_view>
#include <vector>

#include "common/key_index.h"
#include "compiler/tarnwick/sdb.h"

// A preorder walk of all nodes below a scope, in member order. Members must not be added meanwhile.
class sdb_walk {
public:
    explicit sdb_walk(const sdb_node *root);
    sdb_node *next(); // null at the end

private:
    struct place {
        const sdb_block *block;
        std::uint32_t next;
    };
    std::vector<place> places_;
};

// Whether a name of this class counts from its declaration on only.
bool sdb_needs_declaration(sclass cls);

// A run of characters that are no space. Past the end of the file there are only empty tokens that are not present.
struct sdb_token {
    std::string_view text; // into the file, up to its first NUL
    bool present = false;
    bool ends_line = false; // a newline or carriage return ended it
    std::uint32_t line = 0; // of the first character, both counted from 1
    std::uint32_t column = 0;

    // NUL at the end of the text, as in a C string.
    char at(std::size_t index) const { return index < text.size() ? text[index] : '\0'; }
    char last() const { return text.empty() ? '\0' : text.back(); }
    bool is(std::string_view other) const { return present && text == other; }
};

class sdb_tokens {
public:
    explicit sdb_tokens(std::string_view file) : file_(file), has_nul_(file.find('\0') != std::string_view::npos) {}
    sdb_token next();
    // What stands on the line behind the last token and the blanks that follow it.
    std::string_view rest_of_line();

private:
    void step();
    std::string_view text_since(std::size_t begin) const;

    std::string_view file_;
    bool has_nul_;
    std::size_t at_ = 0;
    std::uint32_t line_ = 1;
    std::size_t line_start_ = 0;
};

// A database that is being read.
struct sdb_input {
    const char *path = nullptr; // of the database, absolute
    sdb_tokens tokens;
    // Elements that references to typedefs may still copy. A file whose types would outgrow it is refused.
    std::uint64_t type_budget = 0;
};

// The names that are in sight at the place being read, innermost last: what the look-ups of sdb.h find by climbing the
// tree, in one step. It covers the blocks that are open; above them the tree is climbed.
class sdb_visible {
public:
    void open_block();
    void close_block();
    void add(sdb_node *node);
    bool is_empty() const { return starts_.empty(); }
    void forget();
    // As `sdb_scope_lookup` in the current block from the end of its members, up to the outermost open block.
    sdb_node *scope_lookup(const char *name) const;
    // As `sdb_lookup_local`.
    sdb_node *local_lookup(const char *name) const;

private:
    struct entry {
        sdb_node *node;
        entry *older;        // of the same name, or null
        std::uint32_t place; // from 1
        std::uint32_t hash;  // of the name
    };
    entry *newest(std::string_view name, std::uint32_t hash) const;

    std::deque<entry> entries_;
    std::vector<std::uint32_t> starts_; // of each open block, in `entries_`
    key_index<entry *> newest_;         // of each name
};

// What runs on from record to record and from file to file.
struct sdb_state {
    std::uint32_t line = 0;             // current source line; 0 before the first line record of a run
    const char *file = nullptr;         // current source file, absolute
    sdb_node *lastfun = nullptr;        // the last function declared, until its size is known
    std::uint32_t inline_offset = 0;    // of the function being read
    sdb_input *input = nullptr;         // null while no database is being read
    const sdb_node *module = nullptr;   // the block of that database
    const sdb_node *function = nullptr; // the sc_func block that the current block lies in
    sdb_visible visible;
    bool plain_lookups = false; // climb the tree for every name: the reference for the names in sight
};
extern sdb_state sdb_reading;
void sdb_reader_reset();

// A copy of a token that lives as long as the tree.
const char *sdb_keep(std::string_view text);
// Enters a node in the current block with its parent and place; `sdb_enter_named` adds it to the hash as well. Only
// variables, structs and enums are hashed: the names of files and modules are never found as types.
void sdb_enter(sdb_node *node);
void sdb_enter_named(sdb_node *node);
// The look-ups at the place being read.
sdb_node *sdb_lookup_here(const char *name);
sdb_node *sdb_lookup_local_here(const char *name);

type_record *sdb_parse_type(std::string_view text);

// What a variable record gave.
struct sdb_variable_result {
    sdb_node *variable = nullptr;    // new or merged; null when the record was dropped
    sdb_node *faked_block = nullptr; // made for a redefinition
};
// The records, read from behind their first token.
sdb_variable_result sdb_read_variable(sdb_input &in);
void sdb_read_struct(sdb_input &in, bool is_union);
void sdb_read_enum(sdb_input &in);
void sdb_read_define(sdb_input &in);
void sdb_read_almanac(sdb_input &in);
// The number of an almanac word; false when the table ("m" or "r") lacks it.
bool sdb_almanac_number(char table, const char *word_text, std::int32_t *number);
void sdb_records_reset();
// A dimension token in front of a member's or variable's name: with an "a" behind the number the type becomes an array.
std::int32_t sdb_apply_dimension(const sdb_token &token, type_record **type);
void sdb_report_missing(const sdb_input &in, const sdb_token &token, char character);
