// SPDX-License-Identifier: MIT
// The walk over the symbol database: a module's members in order, functions and blocks bracketed by their markers.
#include "compiler/tarnwick/coff_walk.h"

#include <algorithm>
#include <string>

#include "compiler/tarnwick/coff_file.h"
#include "compiler/tarnwick/encdec.h"
#include "compiler/tarnwick/model.h"

namespace {

constexpr std::size_t END_NAME_MAX = 127; // characters of the name of a function's end that are looked up
constexpr std::uint32_t SPACE_SHIFT = 32; // in what `sdb_symbol_value` gives

// A variable's location; false when it has none.
bool find_location(const sdb_node *node, coff_location *location)
{
    std::uint64_t value = 0;
    if (!sdb_symbol_value(node, &value)) {
        return false;
    }
    *location = {static_cast<std::uint32_t>(value), static_cast<std::uint32_t>(value >> SPACE_SHIFT)};
    return true;
}

// Whether the base of a type is a bit, whatever stands above it: a function that returns a bit counts as one.
bool is_bit(const type_record *tp)
{
    return tp != nullptr && tp->ty_cnt != 0 && isBitType(&tp->elements[0]);
}

// The entry of a function in the table of calls, or null.
const tarn_symbol *find_entry_symbol(coff_walk *walk, const sdb_node *block, sdb_node *function)
{
    if (coff.rom_width != COFF_TABLE_CALL_WIDTH || !isfunc(function->var.va_type)) {
        return nullptr;
    }
    const std::string name = std::string("entry_") + walk->bits->name_of(function);
    if (function->sdb_sclass == sc_static && block->sdb_name != nullptr) {
        return tarn_file_symbol(block->sdb_name, name.c_str());
    }
    return tarn_find_symbol(name.c_str());
}

coff_class variable_class(const sdb_node *node)
{
    if (node->sdb_sclass == sc_static) {
        return CSC_STATIC;
    }
    return node->var.va_size != 0 || isfunc(node->var.va_type) ? CSC_EXTERNAL : CSC_EXTERNAL_DEFINITION;
}

// --- single entries -----------------------------------------------------------------------------------------------------

// A variable's entry, its type converted and its tags written. The name comes into the string table ahead of theirs.
struct variable_entry {
    coff_entry symbol;
    coff_type type;

    std::uint32_t append(coff_tables *tables) const
    {
        return type.has_aux ? coff_append(tables, symbol, type.aux) : coff_append(tables, symbol);
    }
    // Whether it is an array of no size.
    bool is_empty_array() const
    {
        return (type.word & COFF_DERIVATION_MASK) == COFF_ARRAY && get16(type.aux.data() + CAX_SIZE) == 0;
    }
};

variable_entry make_variable(coff_walk *walk, const sdb_node *node, coff_location location, coff_class cls)
{
    const std::uint32_t section = vcoff_section_of(*walk->sections, location);
    variable_entry entry = {coff_make_symbol({.value = location.address, .section = section, .cls = cls}), {}};
    vcoff_set_name(walk->tables, &entry.symbol, node->sdb_name);
    entry.type = coff_variable_type(walk->tags, node->var);
    put32(entry.symbol.data() + CSY_TYPE, entry.type.word);
    return entry;
}

// The label pass leaves out what has an entry here.
void mark_symbol_done(const sdb_node *node)
{
    if (tarn_symbol *sp = tarn_find_symbol(node->sdb_name)) {
        sp->sy_flags |= SYM_DONE;
    }
}

// Autos and parameters have static addresses on these chips, and so the class of a static.
void vcoff_local(coff_walk *walk, const sdb_node *node)
{
    coff_location location;
    if (find_location(node, &location)) {
        const coff_class cls = node->sdb_sclass == sc_reg ? CSC_REGISTER : CSC_STATIC;
        make_variable(walk, node, location, cls).append(walk->tables);
    }
}

void add_variable(coff_walk *walk, const sdb_node *block, sdb_node *node)
{
    coff_location location;
    if (!find_location(node, &location)) {
        return;
    }
    if (const tarn_symbol *entry = find_entry_symbol(walk, block, node)) {
        location.address = entry->sy_value;
    }
    if (is_bit(node->var.va_type)) {
        walk->bits->vcoff_bit_add(node, location.address);
        return;
    }
    node->var.va_coff_index = make_variable(walk, node, location, variable_class(node)).append(walk->tables);
    mark_symbol_done(node);
}

// A function's own entry, which it gets a second time here: as a member it had one already, and the later index stays.
void add_function(coff_walk *walk, sdb_node *function)
{
    coff_location location;
    if (!find_location(function, &location)) {
        return;
    }
    if (is_bit(function->var.va_type)) {
        walk->bits->vcoff_bit_add(function, location.address);
        return;
    }
    const variable_entry entry = make_variable(walk, function, location, variable_class(function));
    if (!entry.is_empty_array()) { // an array of no size has left its strings and tags all the same
        function->var.va_coff_index = entry.append(walk->tables);
    }
    mark_symbol_done(function);
}

// A file without symbols leaves no entry behind. Its record keeps the index, which is now that of something else.
void close_file(coff_walk *walk)
{
    std::vector<coff_entry> &symbols = walk->tables->coff_symbols;
    if (symbols.size() >= 2 && symbols[symbols.size() - 2][CSY_CLASS] == CSC_FILE) {
        symbols.resize(symbols.size() - 2);
    } else {
        coff_append_eof(walk->tables);
    }
}

void change_file(coff_walk *walk, const sdb_node *node)
{
    if (walk->current_file != nullptr) {
        close_file(walk);
    }
    walk->current_file = node->sdb_name;
    vcoff_add_file(walk->tables, node->sdb_name);
}

// --- scopes -------------------------------------------------------------------------------------------------------------

// A scope whose members are being written. The body of a function is one with both pairs of markers.
struct open_scope {
    const sdb_node *block = nullptr;
    std::uint32_t next = 0;       // member
    bool is_module = false;       // has no markers
    bool is_function = false;     // has .bf and .ef around .bb and .eb
    coff_location location{};     // of the function; 0 outside of one
    std::uint32_t section = 0;    // of the function
    std::uint32_t opening_bf = 0; // indices of the markers
    std::uint32_t opening_bb = 0;
};

// The address that a function's block goes by.
coff_location function_location(const sdb_node *block)
{
    const vector_of<sdb_location *> locations = block->block.bl_func->var.va_locations;
    return {sdb_function_location(block), locations.empty() ? 0 : locations.get(0)->lo_space};
}

// Adds a marker of the scope's function at an address of it.
std::uint32_t append_marker(coff_walk *walk, const open_scope &scope, const char *name, coff_class cls,
                            std::uint32_t value, std::uint32_t line)
{
    return coff_append_marker(walk->tables, name, {.value = value, .section = scope.section, .cls = cls},
                              {.line = line});
}

// Blocks are marked with the address of their function, not with their own.
void open_block(coff_walk *walk, open_scope *scope)
{
    scope->opening_bb =
        append_marker(walk, *scope, ".bb", CSC_BLOCK, scope->location.address, scope->block->block.bl_first);
}

void close_block(coff_walk *walk, const open_scope &scope)
{
    const std::uint32_t closing =
        append_marker(walk, scope, ".eb", CSC_BLOCK, scope.location.address, scope.block->block.bl_last);
    coff_close(walk->tables, scope.opening_bb, closing);
}

open_scope open_function(coff_walk *walk, const sdb_node *outer, sdb_node *block)
{
    sdb_node *function = block->block.bl_func;
    add_function(walk, function);

    // An entry in the table of calls replaces the address in the database itself, for all that follows.
    const vector_of<sdb_location *> locations = function->var.va_locations;
    const tarn_symbol *entry = find_entry_symbol(walk, outer, function);
    if (entry != nullptr && !locations.empty()) {
        locations.get(0)->lo_value = entry->sy_value;
    }

    open_scope scope = {.block = block, .is_function = true, .location = function_location(block)};
    scope.section = vcoff_section_of(*walk->sections, scope.location);
    walk->coff_functions.push_back({block, scope.section});
    scope.opening_bf = append_marker(walk, scope, ".bf", CSC_FUNCTION, scope.location.address, block->block.bl_first);
    for (std::uint32_t i = 0; i < block->block.bl_count; ++i) {
        if (block->block.bl_members[i]->sdb_sclass == sc_param) {
            vcoff_local(walk, block->block.bl_members[i]);
        }
    }
    open_block(walk, &scope);
    return scope;
}

void close_function(coff_walk *walk, const open_scope &scope)
{
    std::string name = std::string("__end_of") + walk->bits->name_of(scope.block->block.bl_func);
    name.resize(std::min(name.size(), END_NAME_MAX));
    const tarn_symbol *end = tarn_find_symbol(name.c_str());
    const std::uint32_t value = end != nullptr ? end->sy_value - 1 : scope.location.address;
    const std::uint32_t closing = append_marker(walk, scope, ".ef", CSC_FUNCTION, value, scope.block->block.bl_last);
    coff_close(walk->tables, scope.opening_bf, closing);
}

void close_scope(coff_walk *walk, const open_scope &scope)
{
    if (!scope.is_module) {
        close_block(walk, scope);
    }
    if (scope.is_function) {
        close_function(walk, scope);
    }
}

void open_inner_block(coff_walk *walk, std::vector<open_scope> *scopes, const sdb_node *block)
{
    open_scope scope = {.block = block, .location = scopes->back().location, .section = scopes->back().section};
    open_block(walk, &scope);
    scopes->push_back(scope);
}

void visit_member(coff_walk *walk, std::vector<open_scope> *scopes, sdb_node *member)
{
    const sdb_node *block = scopes->back().block;
    switch (member->sdb_sclass) {
    case sc_auto:
    case sc_reg:
        vcoff_local(walk, member);
        break;
    case sc_block:
        open_inner_block(walk, scopes, member);
        break;
    case sc_func:
        scopes->push_back(open_function(walk, block, member));
        break;
    case sc_filename:
        change_file(walk, member);
        break;
    case sc_extern:
    case sc_static:
        add_variable(walk, block, member);
        break;
    default:
        break;
    }
}

} // namespace

void vcoff_walk_block(coff_walk *walk, sdb_node *module)
{
    // Blocks lie in each other as deep as the input has it.
    std::vector<open_scope> scopes;
    scopes.push_back({.block = module, .is_module = true});
    while (!scopes.empty()) {
        open_scope &scope = scopes.back();
        const sdb_block &block = scope.block->block;
        if (scope.next < block.bl_count) {
            visit_member(walk, &scopes, block.bl_members[scope.next++]);
        } else {
            const open_scope closed = scope;
            scopes.pop_back();
            close_scope(walk, closed);
        }
    }
}

void vcoff_add_file(coff_tables *tables, const char *name)
{
    std::string path = name;
    std::replace(path.begin(), path.end(), '/', '\\');
    const std::uint32_t offset = vcoff_string_offset(tables, path.c_str());
    const std::uint32_t index = coff_append_marker(tables, ".file", {.cls = CSC_FILE}, {.tag = offset});
    if (tarn_file *file = tarn_find_file(name)) {
        file->fl_coff_index = index;
    }
}

void coff_append_eof(coff_tables *tables)
{
    coff_append_marker(tables, ".eof", {.cls = CSC_END_OF_FILE});
}
