// SPDX-License-Identifier: MIT
// Raising source files to modules. A database has one module for each compiled file, in which marks tell where the
// source file changes; debugging information wants a module for each source file. What follows a mark moves into the
// module of that file, and modules that marked the same file share it.
#include "compiler/tarnwick/sdb_ranges.h"

#include <algorithm>
#include <array>

#include "common/fileutils.h"
#include "common/hash_of.h"
#include "common/set.h"
#include "common/stringcache.h"
#include "common/trace.h"

namespace {

// The bucket count shows: new modules take the places of old ones in the order of the buckets.
constexpr std::uint32_t NEW_MODULE_BUCKETS = 127;
constexpr std::uint64_t ASSEMBLY_INCLUDE_CLASS = 0x800000209; // file id bits of an assembler include file
constexpr std::array<const char *, 3> C_EXTENSIONS = {".c", ".h", ".i"};

int compare_words(const void *left, const void *right)
{
    const word a = *static_cast<const word *>(left);
    const word b = *static_cast<const word *>(right);
    return a < b ? -1 : b < a ? 1 : 0;
}

bool is_module(const sdb_node *node)
{
    return node->sdb_sclass == sc_module || node->sdb_sclass == sc_asmodule;
}

// Whatever is not known to be C counts as assembly.
sclass module_class(const char *filename)
{
    const std::uint64_t fid = fileid(filename);
    if (fileid_is_asm_fid(fid) || fileid_has(fid, ASSEMBLY_INCLUDE_CLASS)) {
        return sc_asmodule;
    }
    const bool is_c = std::any_of(C_EXTENSIONS.begin(), C_EXTENSIONS.end(), [filename](const char *extension) {
        return str_ends_with_nocase(filename, extension);
    });
    return is_c ? sc_module : sc_asmodule;
}

class file_raiser {
public:
    file_raiser() : new_modules_hash(hash_of<const char *, sdb_node *>::make_strings(NEW_MODULE_BUCKETS)) {}
    ~file_raiser() { new_modules_hash.free(); }
    file_raiser(const file_raiser &) = delete;
    file_raiser &operator=(const file_raiser &) = delete;

    void raise_files(const sdb_node *module);
    std::uint32_t count() const { return new_modules_hash.count(); }
    vector_of<sdb_node *> new_modules() const { return new_modules_hash.values(); }

private:
    sdb_node *module_of(const sdb_node *mark);

    hash_of<const char *, sdb_node *> new_modules_hash; // file name to module
};

// The module of the file that a mark names, null when it names none.
sdb_node *file_raiser::module_of(const sdb_node *mark)
{
    const char *filename = mark->sdb_name;
    DB_ASSERT(filename != nullptr, "filename != NULL");
    DB_ASSERT(new_modules_hash, "new_modules_hash != NULL");
    if (filename == nullptr) {
        return nullptr;
    }
    sdb_node *mp = new_modules_hash.get(filename);
    if (mp == nullptr) {
        mp = sdb_new_node(module_class(filename), filename);
        new_modules_hash.insert(filename, mp);
    }
    DB_ASSERT(is_module(mp), "mp->sdb_sclass == sc_asmodule || mp->sdb_sclass == sc_module");
    return mp;
}

// The line that a member stretches its module to; false for what has no place in a module.
bool line_of(const sdb_node *x, std::uint32_t *line)
{
    switch (x->sdb_sclass) {
    case sc_func:
        *line = x->block.bl_last;
        return true;
    case sc_extern:
    case sc_static:
    case sc_typedef:
    case sc_struct:
    case sc_enum:
    case sc_filename:
        *line = x->sdb_line;
        return true;
    default:
        return false;
    }
}

// Only marks set the first line, so that a file included twice counts from its earliest mark.
void stretch(sdb_block *target, std::uint32_t line, bool is_mark)
{
    if (is_mark && (target->bl_first == 0 || line < target->bl_first)) {
        target->bl_first = line;
    }
    if (target->bl_last == 0 || line > target->bl_last) {
        target->bl_last = line;
    }
}

void move_to(sdb_node *target, sdb_node *x)
{
    x->sdb_parent = target;
    sdb_current = target;
    x->sdb_index = target->block.bl_count;
    sdb_add_member(target, x);
    if (x->sdb_sclass != sc_func) {
        sdb_add_to_hash(target, x);
    }
}

void file_raiser::raise_files(const sdb_node *module)
{
    sdb_node *target = nullptr;
    for (std::uint32_t i = 0; i < module->block.bl_count; ++i) {
        sdb_node *x = module->block.bl_members[i];
        if (x->sdb_sclass == sc_filename) {
            sdb_node *mp = module_of(x);
            if (mp == nullptr) {
                continue;
            }
            target = mp;
            TRACEF(TRACE_ON, "Raisng sc_filename: %s:%u to module (%p): lines %u-%u locals %u", x->sdb_name,
                   x->sdb_line, static_cast<void *>(target), target->block.bl_first, target->block.bl_last,
                   target->block.bl_count);
        }
        if (target == nullptr) {
            continue; // what stands before the first mark belongs to no source file and is lost with the old module
        }
        std::uint32_t line = 0;
        const bool has_place = line_of(x, &line);
        DB_ASSERT(has_place, "0");
        if (!has_place) {
            continue; // likewise what is no declaration, a faked block among them
        }
        stretch(&target->block, line, x->sdb_sclass == sc_filename);
        move_to(target, x);
    }
}

const char *class_word(const sdb_node *module)
{
    return module->sdb_sclass == sc_module ? "module" : "asmodule";
}

void raise_members(file_raiser *raiser, set *old_mod_idxs)
{
    const sdb_block &global = sdb_global->block;
    for (std::uint32_t i = 0; i < global.bl_count; ++i) {
        const sdb_node *module = global.bl_members[i];
        if (is_module(module)) {
            TRACEF(TRACE_ON, "current module (%p): %s (%s) @ index %u", static_cast<const void *>(module),
                   module->sdb_name, class_word(module), i);
            set_add(old_mod_idxs, i);
            raiser->raise_files(module);
        }
    }
}

void put_at(sdb_node *module, std::uint32_t index)
{
    module->sdb_index = index;
    module->sdb_parent = sdb_global;
    sdb_global->block.bl_members[index] = module;
}

// Takes null slots out of the list.
void close_gaps()
{
    sdb_block &global = sdb_global->block;
    sdb_node **end = std::remove(global.bl_members, global.bl_members + global.bl_count, nullptr);
    global.bl_count = static_cast<std::uint32_t>(end - global.bl_members);
}

// The old modules stay as they are, with nothing that leads to them.
void replace_modules(vector_of<sdb_node *> new_modules, set *old_mod_idxs)
{
    std::uint32_t next = 0;
    for (const word slot : each_in(old_mod_idxs)) {
        const auto index = static_cast<std::uint32_t>(slot);
        sdb_node *&old = sdb_global->block.bl_members[index];
        if (next == new_modules.count()) {
            old = nullptr; // no new module is left for it
            continue;
        }
        sdb_node *module = new_modules.get(next++);
        TRACEF(TRACE_ON, "replace %s (%p) with %s (%p) at index %u", old->sdb_name, static_cast<void *>(old),
               module->sdb_name, static_cast<void *>(module), index);
        put_at(module, index);
    }
    close_gaps();
    sdb_current = sdb_global;
    for (; next < new_modules.count(); ++next) {
        sdb_node *module = new_modules.get(next);
        TRACEF(TRACE_ON, "add new module: %s (%p)", module->sdb_name, static_cast<void *>(module));
        sdb_add_member(sdb_global, module);
        put_at(module, sdb_global->block.bl_count - 1);
    }
    sdb_tree_changed();
}

} // namespace

void sdb_raise_all_files()
{
    if (sdb_global == nullptr) {
        return;
    }
    set *old_mod_idxs = set_new(compare_words);
    file_raiser raiser;
    raise_members(&raiser, old_mod_idxs);
    DB_ASSERT(raiser.count() >= set_size(old_mod_idxs), "hash_count(new_modules_hash) >= set_size(old_mod_idxs)");
    vector_of<sdb_node *> new_modules = raiser.new_modules();
    replace_modules(new_modules, old_mod_idxs);
    new_modules.free();
    set_free(old_mod_idxs);
}
