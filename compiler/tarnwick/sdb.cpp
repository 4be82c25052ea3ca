// SPDX-License-Identifier: MIT
// The tree of the symbol database: making nodes, entering them, finding them.
#include "compiler/tarnwick/sdb.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "common/alloc.h"
#include "common/key_index.h"
#include "common/stringcache.h"
#include "common/texthash.h"
#include "common/trace.h"
#include "compiler/tarnwick/sdb_reader.h"

sdb_node *sdb_global = nullptr;
sdb_node *sdb_current = nullptr;

namespace {

constexpr std::uint32_t HASH_FACTOR = 4;
constexpr std::uint32_t SPACE_SHIFT = 32;      // of the space in a symbol's value
constexpr std::uint64_t REENTRANT_MASK = 0x40; // the qualifier of letter "R"

// Rises with every change of the tree; the index of names is as old as `index_version`.
std::uint64_t tree_version = 1;
std::uint64_t index_version = 0;

key_index<sdb_node *> name_index; // the first node of each name

std::uint32_t next_location_id = 0;

bool has_name(const sdb_node *node, const char *name)
{
    return node->sdb_name != nullptr && std::strcmp(node->sdb_name, name) == 0;
}

void append_to_chain(sdb_block *bl, sdb_node *node)
{
    const std::uint32_t bucket = sdb_name_bucket(node->sdb_name);
    sdb_node *&head = bl->bl_hash[bucket];
    sdb_node *&tail = bl->bl_hash[SDB_HASH_SIZE + bucket];
    node->sdb_chain = nullptr;
    if (head == nullptr) {
        head = node;
    } else {
        tail->sdb_chain = node;
    }
    tail = node;
}

void hash_members(sdb_block *bl)
{
    bl->bl_hash = static_cast<sdb_node **>(xarena(2 * SDB_HASH_SIZE * sizeof(sdb_node *), alignof(sdb_node *)));
    for (std::uint32_t i = 0; i < bl->bl_count; ++i) {
        if ((bl->bl_members[i]->sdb_flags & SDB_HASHED) != 0) {
            append_to_chain(bl, bl->bl_members[i]);
        }
    }
}

// The last node of a block's bucket whose name is `name`, or `with_underscore` when that is given.
sdb_node *last_in_bucket(sdb_block &block, const char *name, const char *with_underscore)
{
    if (block.bl_hash == nullptr) {
        hash_members(&block);
    }
    sdb_node *found = nullptr;
    for (sdb_node *node = block.bl_hash[sdb_name_bucket(name)]; node != nullptr; node = node->sdb_chain) {
        if (has_name(node, name) || (with_underscore != nullptr && has_name(node, with_underscore))) {
            found = node;
        }
    }
    return found;
}

// The last member before `count` of exactly this name. A file's name is no name of the program.
sdb_node *last_declared(const sdb_node *node, const char *name, std::uint32_t count)
{
    const sdb_block &block = node->block;
    // In a module all members count, whatever comes behind the place of the look-up.
    std::uint32_t index = node->sdb_sclass == sc_module ? block.bl_count : std::min(count, block.bl_count);
    while (index-- > 0) {
        sdb_node *member = block.bl_members[index];
        if (!sdb_is_scope(member->sdb_sclass) && has_name(member, name)) {
            return member;
        }
    }
    return nullptr;
}

sdb_node *find_named(const char *name, std::uint32_t hash)
{
    return name_index.find(hash,
                           [name](const sdb_node *node) { return node->sdb_name == name || has_name(node, name); });
}

void build_name_index()
{
    name_index.free();
    sdb_walk walk(sdb_global);
    while (sdb_node *node = walk.next()) {
        if (node->sdb_name != nullptr) {
            const std::uint32_t hash = hash_text(node->sdb_name);
            if (find_named(node->sdb_name, hash) == nullptr) {
                name_index.add(hash, node);
            }
        }
    }
    index_version = tree_version;
}

} // namespace

sdb_node *sdb_new_node(sclass cls, const char *name)
{
    auto *node = xnew<sdb_node>();
    node->sdb_sclass = cls;
    node->sdb_name = name;
    if (sdb_is_variable(cls)) {
        node->var = sdb_var{};
    } else if (cls == sc_struct) {
        node->structure = sdb_struct{};
    } else if (cls == sc_enum) {
        node->enumeration = sdb_enum{};
    }
    return node;
}

bool sdb_is_scope(sclass cls)
{
    switch (cls) {
    case sc_module:
    case sc_block:
    case sc_func:
    case sc_filename:
    case sc_asmodule:
        return true;
    default:
        return false;
    }
}

bool sdb_is_variable(sclass cls)
{
    switch (cls) {
    case sc_extern:
    case sc_global:
    case sc_static:
    case sc_auto:
    case sc_param:
    case sc_typedef:
    case sc_reg:
        return true;
    default:
        return false;
    }
}

bool sdb_needs_declaration(sclass cls)
{
    return cls == sc_auto || cls == sc_param || cls == sc_reg;
}

void sdb_add_member(sdb_node *block, sdb_node *node)
{
    sdb_block &bl = block->block;
    if (bl.bl_count == bl.bl_alloc) {
        // By half once the list is long, so that a large block costs no more than its length.
        bl.bl_alloc += std::max(SDB_MEMBER_STEP, bl.bl_alloc / 2);
        bl.bl_members = static_cast<sdb_node **>(xrealloc(bl.bl_members, bl.bl_alloc * sizeof(sdb_node *)));
    }
    bl.bl_members[bl.bl_count++] = node;
    sdb_tree_changed();
}

void sdb_add_to_hash(sdb_node *block, sdb_node *node)
{
    node->sdb_flags |= SDB_HASHED;
    if (block->block.bl_hash != nullptr) {
        append_to_chain(&block->block, node);
    }
}

std::uint32_t sdb_name_bucket(const char *name)
{
    if (name == nullptr) {
        return 0;
    }
    if (name[0] == '_' && name[1] != '\0') {
        ++name;
    }
    std::uint32_t hash = 0;
    for (std::size_t at = std::strlen(name); at-- > 0;) {
        hash = static_cast<std::uint32_t>(static_cast<signed char>(name[at])) + hash * HASH_FACTOR;
    }
    return hash % SDB_HASH_SIZE;
}

void sdb_tree_changed()
{
    ++tree_version;
}

std::uint32_t sdb_next_location_id()
{
    return next_location_id++;
}

void sdb_reset()
{
    machine_reset();
    sdb_reader_reset();
    sdb_global = nullptr;
    sdb_current = nullptr;
    next_location_id = 0;
    sdb_tree_changed();
}

sdb_node *sdb_add_filename(sdb_node *block, const char *name, std::uint32_t line)
{
    sdb_node *node = sdb_new_node(sc_filename, str_cache(name));
    node->sdb_line = line;
    node->sdb_index = block->block.bl_count;
    sdb_add_member(block, node); // the parent stays unset
    return node;
}

sdb_walk::sdb_walk(const sdb_node *root)
{
    if (root != nullptr) {
        places_.push_back({&root->block, 0});
    }
}

sdb_node *sdb_walk::next()
{
    while (!places_.empty()) {
        place &at = places_.back();
        if (at.next == at.block->bl_count) {
            places_.pop_back();
            continue;
        }
        sdb_node *node = at.block->bl_members[at.next++];
        if (sdb_is_scope(node->sdb_sclass)) {
            places_.push_back({&node->block, 0});
        }
        return node;
    }
    return nullptr;
}

sdb_node *sdb_find(const char *name)
{
    sdb_walk walk(sdb_global);
    while (sdb_node *node = walk.next()) {
        if (has_name(node, name)) {
            return node;
        }
    }
    return nullptr;
}

// Each step fetches from memory what the next one looks at.
std::vector<sdb_node *> sdb_find_all(const std::vector<const char *> &names)
{
    if (index_version != tree_version) {
        build_name_index();
    }
    std::vector<std::uint32_t> hashes(names.size());
    std::vector<sdb_node *> found(names.size());
    for (const char *name : names) {
        __builtin_prefetch(name);
    }
    for (std::size_t i = 0; i < names.size(); ++i) {
        hashes[i] = hash_text(names[i]);
        name_index.prefetch(hashes[i]);
    }
    for (std::size_t i = 0; i < names.size(); ++i) {
        found[i] = name_index.find(hashes[i], [](const sdb_node *) { return true; }); // mostly the one
        __builtin_prefetch(found[i]);
    }
    for (const sdb_node *candidate : found) {
        if (candidate != nullptr) {
            __builtin_prefetch(candidate->sdb_name);
        }
    }
    for (std::size_t i = 0; i < names.size(); ++i) {
        found[i] = find_named(names[i], hashes[i]);
    }
    return found;
}

sdb_node *sdb_scope_lookup(const char *name, sdb_node *block, std::uint32_t count)
{
    const std::string underscored = std::string("_") + name;
    for (; block != nullptr; count = block->sdb_index, block = block->sdb_parent) {
        sdb_node *node = last_in_bucket(block->block, name, underscored.c_str());
        if (node == nullptr) {
            continue;
        }
        if (!sdb_needs_declaration(node->sdb_sclass)) {
            return node;
        }
        // A local counts from its declaration on.
        sdb_node *declared = last_declared(block, name, count);
        if (declared != nullptr) {
            return declared;
        }
    }
    return nullptr;
}

sdb_node *sdb_lookup_local(const char *name)
{
    // Faked blocks are transparent, real ones are not.
    for (sdb_node *block = sdb_current; block != nullptr; block = block->sdb_parent) {
        sdb_node *node = last_in_bucket(block->block, name, nullptr);
        if (node != nullptr || (block->sdb_flags & SDB_FAKED) == 0) {
            return node;
        }
    }
    return nullptr;
}

bool sdb_is_reentrant(const sdb_node *function)
{
    DB_ASSERT(function != nullptr, "pp != NULL");
    if (function == nullptr || !sdb_is_variable(function->sdb_sclass) || !isfunc(function->var.va_type)) {
        return false;
    }
    const type_record *tp = function->var.va_type;
    std::uint64_t mask = 0;
    // Past the function itself: the qualifiers of what it returns count as well, down to the first pointer.
    for (const type_element *te = type_top(tp); te != nullptr && te->te_kind != ty_ptr; te = type_below(tp, te)) {
        if (te->te_kind == ty_qual) {
            mask |= te->mask;
        }
    }
    return (mask & REENTRANT_MASK) != 0;
}

bool sdb_symbol_value(const sdb_node *node, std::uint64_t *result)
{
    if (node == nullptr || node->sdb_sclass == sc_global || !sdb_is_variable(node->sdb_sclass)) {
        return false;
    }
    for (const sdb_location *location : each(node->var.va_locations)) {
        if (location->lo_kind != LO_REGISTER) {
            *result = (static_cast<std::uint64_t>(location->lo_space) << SPACE_SHIFT) | location->lo_value;
            return true;
        }
    }
    return false;
}

std::uint32_t sdb_function_location(const sdb_node *function_block)
{
    DB_ASSERT(function_block->sdb_sclass == sc_func, "sp->sdb_sclass == sc_func");
    const auto locations = function_block->block.bl_func->var.va_locations;
    DB_ASSERT(locations.count() != 0, "vec_size(sp->sdb_block.bl_func->sdb_var.va_locations) != 0");
    return locations.empty() ? 0 : locations.get(0)->lo_value;
}

location_text sdb_location_text(const sdb_location *location)
{
    location_text out{};
    const auto value = static_cast<std::int32_t>(location->lo_value);
    if (location->lo_name != nullptr && *location->lo_name != '\0') {
        std::snprintf(out.text, sizeof(out.text), " %s", location->lo_name);
        return out;
    }
    switch (location->lo_kind) {
    case LO_REGISTER:
        std::snprintf(out.text, sizeof(out.text), " R%d", value);
        break;
    case LO_ADDRESS:
        std::snprintf(out.text, sizeof(out.text), " %X[%d]", location->lo_value,
                      static_cast<std::int32_t>(location->lo_space));
        break;
    case LO_OFFSET:
        std::snprintf(out.text, sizeof(out.text), " %d", value);
        break;
    default:
        std::snprintf(out.text, sizeof(out.text), " unkown"); // the word is spelled so
        break;
    }
    return out;
}
