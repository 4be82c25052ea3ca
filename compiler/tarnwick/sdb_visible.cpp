// SPDX-License-Identifier: MIT
// The names in sight of the reader. A name that is met again hides the older ones until its block is closed, so a
// look-up costs the same however large or deep the blocks are.
#include <string>

#include "common/texthash.h"
#include "compiler/tarnwick/sdb_reader.h"

void sdb_visible::open_block()
{
    starts_.push_back(static_cast<std::uint32_t>(entries_.size()));
}

void sdb_visible::close_block()
{
    while (entries_.size() > starts_.back()) {
        entry &last = entries_.back();
        if (last.older != nullptr) {
            newest_.replace(last.hash, &last, last.older);
        } else {
            newest_.remove(last.hash, &last);
        }
        entries_.pop_back();
    }
    starts_.pop_back();
}

void sdb_visible::add(sdb_node *node)
{
    const std::string_view name = node->sdb_name;
    const std::uint32_t hash = hash_text(name);
    entry *older = newest(name, hash);
    entries_.push_back({node, older, static_cast<std::uint32_t>(entries_.size()) + 1, hash});
    if (older != nullptr) {
        newest_.replace(hash, older, &entries_.back());
    } else {
        newest_.add(hash, &entries_.back());
    }
}

void sdb_visible::forget()
{
    newest_.free();
    entries_.clear();
    starts_.clear();
}

sdb_visible::entry *sdb_visible::newest(std::string_view name, std::uint32_t hash) const
{
    return newest_.find(hash, [name](const entry *other) { return name == other->node->sdb_name; });
}

sdb_node *sdb_visible::scope_lookup(const char *name) const
{
    const auto place_of = [](const entry *found) { return found != nullptr ? found->place : 0; };
    // The next older entry of a name that stands in another block.
    const auto outside = [](const entry *found, const sdb_node *block) {
        while (found != nullptr && found->node->sdb_parent == block) {
            found = found->older;
        }
        return found;
    };
    // A name with "_" in front is found in the bucket of the name without; behind a "_" that is mostly another bucket.
    const std::string with_underscore = std::string("_") + name;
    const bool same_bucket = sdb_name_bucket(with_underscore.c_str()) == sdb_name_bucket(name);
    const entry *exact = newest(name, hash_text(name));
    const entry *underscored = same_bucket ? newest(with_underscore, hash_text(with_underscore)) : nullptr;
    while (exact != nullptr || underscored != nullptr) {
        sdb_node *node = (place_of(exact) > place_of(underscored) ? exact : underscored)->node;
        if (!sdb_needs_declaration(node->sdb_sclass)) {
            return node;
        }
        const sdb_node *block = node->sdb_parent;
        if (exact != nullptr && exact->node->sdb_parent == block) {
            return exact->node;
        }
        exact = outside(exact, block);
        underscored = outside(underscored, block);
    }
    return nullptr;
}

sdb_node *sdb_visible::local_lookup(const char *name) const
{
    // The faked blocks of a block are part of it here, as they are transparent.
    const entry *found = newest(name, hash_text(name));
    return found != nullptr && found->place > starts_.back() ? found->node : nullptr;
}
