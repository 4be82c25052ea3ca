// SPDX-License-Identifier: MIT
// Tally tables: how often keys occur, and which occur most.
#include "common/tally.h"

#include "common/alloc.h"
#include "common/check.h"
#include "common/vector_of.h"

namespace {

compare_function tie_break_in_use = nullptr; // of the sort that runs

int compare_entries(const void *left, const void *right)
{
    const tally_entry *first = *static_cast<const tally_entry *const *>(left);
    const tally_entry *second = *static_cast<const tally_entry *const *>(right);
    if (first->count != second->count) {
        return first->count > second->count ? -1 : 1;
    }
    return tie_break_in_use != nullptr ? tie_break_in_use(left, right) : 0;
}

void sort_top_list(const tally_table *table)
{
    tie_break_in_use = table->compare;
    vector_sort(table->top_list, compare_entries);
}

// The key's entry, with this occurrence counted.
tally_entry *count_key(const tally_table *table, word key)
{
    auto *te = from_word<tally_entry *>(hash_get(table->table, key));
    if (te != nullptr) {
        ++te->count;
        CHECK_STATE(te->count != 0, "te->count != 0");
        return te;
    }
    te = xnew(tally_entry{.key = key, .count = 1});
    CHECK_STATE(te != nullptr, "te");
    hash_insert(table->table, key, to_word(te));
    return te;
}

} // namespace

tally_table *tally_new(std::uint32_t size, std::uint32_t top_list_size, hash_function hash, compare_function tie_break)
{
    CHECK_STATE(size != 0, "size");
    CHECK_STATE(top_list_size != 0, "top_list_size");
    auto *tab = xnew(tally_table{
        .table = hash_new(size, hash), .top_list_size = top_list_size, .top_list = vector_new(), .compare = tie_break});
    CHECK_STATE(tab != nullptr, "tab != NULL");
    CHECK_STATE(tab->table != nullptr, "tab->table");
    return tab;
}

std::uint32_t tally_add(tally_table *tab, word key)
{
    CHECK_STATE(tab != nullptr, "tab != NULL");
    CHECK_STATE(tab->table != nullptr, "tab->table");
    tally_entry *te = count_key(tab, key);
    const std::uint32_t listed = vector_count(tab->top_list);
    if (te->on_top_list) {
        sort_top_list(tab);
    } else if (listed < tab->top_list_size) {
        vector_push(tab->top_list, to_word(te));
        te->on_top_list = true;
        sort_top_list(tab);
    } else if (auto *last = from_word<tally_entry *>(vector_last(tab->top_list)); last->count < te->count) {
        // It takes the last place without a sort, wherever its count would put it.
        vector_set(tab->top_list, to_word(te), listed - 1);
        last->on_top_list = false;
        te->on_top_list = true;
    }
    return te->count;
}
