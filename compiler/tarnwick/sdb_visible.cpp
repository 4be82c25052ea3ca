// SPDX-License-Identifier: MIT
// The names in sight of the reader. A name that is met again hides the older ones until its block is closed, so a
// look-up costs the same however large or deep the blocks are.
#include <algorithm>
#include <string>

#include "compiler/tarnwick/sdb_reader.h"

void sdb_visible::open_block()
{
    starts_.push_back(static_cast<std::uint32_t>(entries_.size()));
}

void sdb_visible::close_block()
{
    while (entries_.size() > starts_.back()) {
        const entry &last = entries_.back();
        if (last.older != 0) {
            newest_[last.node->sdb_name] = last.older;
        } else {
            newest_.erase(last.node->sdb_name);
        }
        entries_.pop_back();
    }
    starts_.pop_back();
}

void sdb_visible::add(sdb_node *node)
{
    std::uint32_t &newest = newest_[node->sdb_name];
    entries_.push_back({node, newest});
    newest = static_cast<std::uint32_t>(entries_.size());
}

std::uint32_t sdb_visible::top(std::string_view name) const
{
    const auto found = newest_.find(name);
    return found != newest_.end() ? found->second : 0;
}

// The next older name that stands in another block.
std::uint32_t sdb_visible::skip_block(std::uint32_t place, const sdb_node *block) const
{
    while (place != 0 && entries_[place - 1].node->sdb_parent == block) {
        place = entries_[place - 1].older;
    }
    return place;
}

sdb_node *sdb_visible::scope_lookup(const char *name) const
{
    // A name with "_" in front is found in the bucket of the name without; behind a "_" that is mostly another bucket.
    const std::string with_underscore = std::string("_") + name;
    const bool same_bucket = sdb_name_bucket(with_underscore.c_str()) == sdb_name_bucket(name);
    std::uint32_t exact = top(name);
    std::uint32_t underscored = same_bucket ? top(with_underscore) : 0;
    while (exact != 0 || underscored != 0) {
        sdb_node *node = entries_[std::max(exact, underscored) - 1].node;
        if (!sdb_needs_declaration(node->sdb_sclass)) {
            return node;
        }
        const sdb_node *block = node->sdb_parent;
        if (exact != 0 && entries_[exact - 1].node->sdb_parent == block) {
            return entries_[exact - 1].node;
        }
        exact = skip_block(exact, block);
        underscored = skip_block(underscored, block);
    }
    return nullptr;
}

sdb_node *sdb_visible::local_lookup(const char *name) const
{
    // The faked blocks of a block are part of it here, as they are transparent.
    const std::uint32_t place = top(name);
    return place > starts_.back() ? entries_[place - 1].node : nullptr;
}
