// SPDX-License-Identifier: MIT
// Hash tables: chains in order of insertion, an index beside them where they get long, and the master list.
#include "common/hash.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "common/alloc.h"
#include "common/ascii.h"
#include "common/key_index.h"
#include "common/stringcache.h"
#include "common/texthash.h"
#include "common/trace.h"
#include "common/vector_of.h"

// A table's entry in the master list. It outlives its table.
struct hash_master {
    hash_table *owner = nullptr;
    bool alive = false;
    bool voidcmp = false;  // made without a comparison function
    bool voidhash = false; // made without a hash function
    birth_place born;
    std::uint32_t capacity = 0;
    std::uint32_t max_usage = 0; // highest count
    std::uint32_t max_util = 0;  // highest number of non-empty buckets
    std::uint32_t util = 0;      // present number of non-empty buckets
    std::uint32_t clashes = 0;   // chain links walked by insertions
};

// Beside the buckets: the entries by a hash of their own, and the end of each bucket's chain.
struct hash_index {
    key_index<hash_entry *> entries;
    hash_entry **bucket_tails = nullptr;
};

namespace {

// Entries per bucket from which a table has an index.
constexpr std::uint64_t INDEX_FROM = 4;
constexpr std::uint32_t HASH_SEED = 5381;
constexpr std::uint32_t HASH_FACTOR = 33;

hash_entry *free_entries = nullptr; // of all tables
bool master_list_on = false;
vector_of<hash_master *> master_list;

void check_alive(const hash_table *table)
{
    CHECK_STATE(table->master == nullptr || table->master->alive, "is_alive(h)");
}

hash_entry *take_entry()
{
    hash_entry *entry = free_entries;
    if (entry == nullptr) {
        return xnew<hash_entry>();
    }
    free_entries = entry->next;
    *entry = {};
    return entry;
}

void give_back(hash_entry *entry)
{
    entry->next = free_entries;
    free_entries = entry;
}

key_kind kind_of_keys(hash_function hash, key_compare compare)
{
    if (compare == compare_key_nocase) {
        return hash == hash_key_string   ? key_kind::TEXT_CASE_BLIND
               : hash == hash_key_nocase ? key_kind::TEXT_NOCASE
                                         : key_kind::ANY;
    }
    return hash == hash_key_string && compare == compare_key_string ? key_kind::TEXT : key_kind::ANY;
}

bool is_key(const hash_table *table, const hash_entry *entry, word key)
{
    return entry->key == key || (table->compare != nullptr && table->compare(key, entry->key) == 0);
}

// Equal for equal keys. Better than the hash that orders them: names whose specified hashes are all equal are easily made.
std::uint32_t text_hash(const hash_table *table, word key)
{
    const char *text = from_word<const char *>(key);
    return table->keys == key_kind::TEXT ? hash_text(text) : hash_text(in_lower_case(text));
}

// Where a key belongs.
struct place {
    std::uint32_t bucket;
    std::uint32_t hash; // equal for equal keys of one bucket; of the index once there is one
};

place place_of(const hash_table *table, word key)
{
    const std::uint32_t hash = table->hash != nullptr ? table->hash(key) : static_cast<std::uint32_t>(key);
    const std::uint32_t bucket = hash % table->size;
    if (table->keys == key_kind::TEXT_CASE_BLIND) {
        // Adding the bucket keeps spellings of one word apart that the case-sensitive hash puts into different buckets.
        return {bucket, text_hash(table, key) + bucket};
    }
    const bool by_text = table->index != nullptr && table->keys != key_kind::ANY;
    return {bucket, by_text ? text_hash(table, key) : hash};
}

// The hash of `place_of`, without the way over the bucket where that is possible.
std::uint32_t search_hash(const hash_table *table, word key)
{
    const bool by_text =
        table->index != nullptr && (table->keys == key_kind::TEXT || table->keys == key_kind::TEXT_NOCASE);
    return by_text ? text_hash(table, key) : place_of(table, key).hash;
}

hash_entry *find_in_index(const hash_table *table, word key, std::uint32_t hash)
{
    return table->index->entries.find(hash, [=](const hash_entry *entry) { return is_key(table, entry, key); });
}

// The entry with an equal key, or null.
hash_entry *find_entry(const hash_table *table, word key, place there)
{
    if (table->index != nullptr) {
        return find_in_index(table, key, there.hash);
    }
    hash_entry *entry = table->buckets[there.bucket];
    while (entry != nullptr && (entry->hash != there.hash || !is_key(table, entry, key))) {
        entry = entry->next;
    }
    return entry;
}

hash_entry *find_entry(const hash_table *table, word key)
{
    return table->index != nullptr ? find_in_index(table, key, search_hash(table, key))
                                   : find_entry(table, key, place_of(table, key));
}

void index_add(const hash_table *table, hash_entry *entry, std::uint32_t bucket)
{
    table->index->entries.add(entry->hash, entry);
    table->index->bucket_tails[bucket] = entry;
}

void index_remove(const hash_table *table, hash_entry *entry, std::uint32_t bucket)
{
    table->index->entries.remove(entry->hash, entry);
    if (table->index->bucket_tails[bucket] == entry) {
        table->index->bucket_tails[bucket] = entry->previous;
    }
}

void index_free(hash_table *table)
{
    if (table->index != nullptr) {
        table->index->entries.free();
        std::free(table->index->bucket_tails);
        std::free(table->index);
        table->index = nullptr;
    }
}

void index_build(hash_table *table)
{
    table->index = place_record<hash_index>(xalloc(sizeof(hash_index)));
    table->index->entries.reserve(table->count);
    table->index->bucket_tails = static_cast<hash_entry **>(xalloc(std::size_t{table->size} * sizeof(hash_entry *)));
    for (std::uint32_t bucket = 0; bucket < table->size; ++bucket) {
        for (hash_entry *entry = table->buckets[bucket]; entry != nullptr; entry = entry->next) {
            entry->hash = search_hash(table, entry->key);
            index_add(table, entry, bucket);
        }
    }
}

// Puts a counted entry at the end of its chain; the number of links walked to get there.
std::uint32_t append_entry(hash_table *table, hash_entry *entry, std::uint32_t bucket)
{
    hash_entry *last = table->buckets[bucket];
    std::uint32_t walked = 0;
    if (table->index != nullptr) {
        last = table->index->bucket_tails[bucket];
    } else if (last != nullptr) {
        walked = 1;
        for (; last->next != nullptr; last = last->next) {
            ++walked;
        }
    }
    entry->previous = last;
    (last == nullptr ? table->buckets[bucket] : last->next) = entry;

    if (table->index != nullptr) {
        index_add(table, entry, bucket);
    } else if (table->master == nullptr && table->count > INDEX_FROM * table->size) {
        // A table on the master list counts the links that insertions walk, so it has no index.
        index_build(table);
    }
    return walked;
}

void account_insertion(const hash_table *table, const hash_entry *entry, std::uint32_t walked, birth_place where)
{
    hash_master *master = table->master;
    if (walked > 0) {
        tracef(where.file, where.line, "HASH @ %s:%d (%u/%u) clashed %d times inserting (%p,%p)", master->born.file,
               master->born.line, table->count, table->size, static_cast<int>(walked), from_word<void *>(entry->key),
               from_word<void *>(entry->value));
        master->clashes += walked;
    } else {
        ++master->util;
        master->max_util = std::max(master->max_util, master->util);
    }
    master->max_usage = std::max(master->max_usage, table->count);
}

vector_of<word> collect(const hash_table *table, word hash_entry::*field, birth_place where)
{
    const auto list = vector_of<word>::make(VECTOR_INITIAL_SIZE, where);
    for (std::uint32_t bucket = 0; bucket < table->size; ++bucket) {
        for (const hash_entry *entry = table->buckets[bucket]; entry != nullptr; entry = entry->next) {
            list.push(entry->*field);
        }
    }
    return list;
}

} // namespace

hash_table *hash_new(std::uint32_t size, hash_function hash, key_compare compare, birth_place where)
{
    CHECK_STATE(size != 0, "size != 0");
    auto *table = static_cast<hash_table *>(xalloc(sizeof(hash_table)));
    table->size = size;
    table->hash = hash;
    table->compare = compare;
    table->buckets = static_cast<hash_entry **>(xalloc(std::size_t{size} * sizeof(hash_entry *)));
    table->keys = kind_of_keys(hash, compare);
    if (master_list_on) {
        if (!master_list) {
            master_list = vector_of<hash_master *>::make();
        }
        table->master = xnew(hash_master{.owner = table,
                                         .alive = true,
                                         .voidcmp = compare == nullptr,
                                         .voidhash = hash == nullptr,
                                         .born = where,
                                         .capacity = size});
        master_list.push(table->master);
    }
    return table;
}

void hash_free(hash_table *table)
{
    if (table == nullptr) {
        return;
    }
    check_alive(table);
    hash_clear(table);
    if (table->master != nullptr) {
        table->master->alive = false;
    }
    std::free(table->buckets);
    std::free(table);
}

void hash_clear(hash_table *table)
{
    for (std::uint32_t bucket = 0; bucket < table->size; ++bucket) {
        while (table->buckets[bucket] != nullptr) {
            hash_entry *entry = table->buckets[bucket];
            table->buckets[bucket] = entry->next;
            give_back(entry);
        }
    }
    index_free(table);
    table->count = 0;
    if (table->master != nullptr) {
        table->master->util = 0;
    }
}

int hash_insert(hash_table *table, word key, word value, birth_place where)
{
    check_alive(table);
    const place there = place_of(table, key);
    if (find_entry(table, key, there) != nullptr) {
        return 0;
    }
    hash_entry *entry = take_entry();
    entry->value = value;
    entry->key = key;
    entry->hash = there.hash;
    ++table->count;
    const std::uint32_t walked = append_entry(table, entry, there.bucket);
    if (table->master != nullptr) {
        account_insertion(table, entry, walked, where);
    }
    return 1;
}

word hash_delete(hash_table *table, word key)
{
    check_alive(table);
    const place there = place_of(table, key);
    hash_entry *entry = find_entry(table, key, there);
    if (entry == nullptr) {
        return 0;
    }
    if (table->index != nullptr) {
        index_remove(table, entry, there.bucket);
    }
    hash_entry *&head = table->buckets[there.bucket];
    (entry->previous == nullptr ? head : entry->previous->next) = entry->next;
    if (entry->next != nullptr) {
        entry->next->previous = entry->previous;
    }
    --table->count;
    if (table->master != nullptr && head == nullptr) {
        --table->master->util;
    }
    const word value = entry->value;
    give_back(entry);
    return value;
}

word hash_get(const hash_table *table, word key)
{
    const hash_entry *entry = find_entry(table, key);
    return entry != nullptr ? entry->value : 0;
}

bool hash_contains(const hash_table *table, word key)
{
    return find_entry(table, key) != nullptr;
}

void hash_prefetch(const hash_table *table, word key)
{
    if (table->index != nullptr) {
        table->index->entries.prefetch(search_hash(table, key));
    }
}

std::uint32_t hash_count(const hash_table *table)
{
    return table->count;
}

vector *hash_values(const hash_table *table, birth_place where)
{
    return collect(table, &hash_entry::value, where).raw();
}

vector *hash_keys(const hash_table *table, birth_place where)
{
    return collect(table, &hash_entry::key, where).raw();
}

word hash_walk(const hash_table *table, void *context, word (*callback)(void *context, word key, word value))
{
    for (std::uint32_t bucket = 0; bucket < table->size; ++bucket) {
        const hash_entry *entry = table->buckets[bucket];
        while (entry != nullptr) {
            // The callback may delete the entry that it is called for.
            const hash_entry *next = entry->next;
            if (const word result = callback(context, entry->key, entry->value); result != 0) {
                return result;
            }
            entry = next;
        }
    }
    return 0;
}

std::uint32_t hash_string(const char *text)
{
    std::uint32_t hash = HASH_SEED;
    for (; *text != '\0'; ++text) {
        // Bytes are read as signed characters: the order of walks over names with such bytes rests on it.
        hash = hash * HASH_FACTOR + static_cast<std::uint32_t>(static_cast<signed char>(*text));
    }
    return hash;
}

std::uint32_t hash_string_nocase(const char *text)
{
    std::uint32_t hash = HASH_SEED;
    for (; *text != '\0'; ++text) {
        hash = hash * HASH_FACTOR + static_cast<std::uint32_t>(static_cast<signed char>(to_lower(*text)));
    }
    return hash;
}

std::uint32_t hash_key_string(word key)
{
    return hash_string(from_word<const char *>(key));
}

std::uint32_t hash_key_nocase(word key)
{
    return hash_string_nocase(from_word<const char *>(key));
}

int compare_key_string(word left, word right)
{
    return std::strcmp(from_word<const char *>(left), from_word<const char *>(right));
}

int compare_key_nocase(word left, word right)
{
    return str_compare_nocase(from_word<const char *>(left), from_word<const char *>(right));
}

bool hash_is_listed(const hash_table *table)
{
    return table->master != nullptr;
}

void hash_master_list(bool enable)
{
    master_list_on = enable;
}

namespace {

// Most clashes first; of equals the later record.
int compare_masters(hash_master *left, hash_master *right)
{
    if (left->clashes != right->clashes) {
        return left->clashes > right->clashes ? -1 : 1;
    }
    return left == right ? 0 : to_word(left) > to_word(right) ? -1 : 1;
}

char yes_or_no(bool flag)
{
    return flag ? 'Y' : 'n';
}

} // namespace

void hash_dump_master_list()
{
    if (!master_list) {
        return;
    }
    master_list.sort<compare_masters>();
    trace_raw_text("# Hash Table Master List:");
    trace_raw_text("# ptr    file:line    max_util/capacity    max_usage/capacity    clashes    voidcmp    voidhash    "
                   "alive");
    if (master_list.empty()) {
        trace_raw_text("# No hash tables were used");
    }
    for (const hash_master *master : each(master_list)) {
        trace_raw("# %p    %s:%d    %u/%u    %u/%u    %u    %c    %c    %c", static_cast<void *>(master->owner),
                  master->born.file, master->born.line, master->max_util, master->capacity, master->max_usage,
                  master->capacity, master->clashes, yes_or_no(master->voidcmp), yes_or_no(master->voidhash),
                  yes_or_no(master->alive));
    }
}
