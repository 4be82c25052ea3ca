// SPDX-License-Identifier: MIT
// Skip lists. The heights of nodes are random, the order of a walk is not.
#include "common/skiplist.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>

#include "common/alloc.h"
#include "common/check.h"
#include "common/trace.h"

namespace {

constexpr std::uint32_t MAX_LEVELS = 16;
constexpr int LEVEL_BITS = 3; // both low bits of a draw clear: one chance in four for each further level

// A node is followed in memory by its `order` forward links.
struct skip_node {
    word value = 0;
    word key = 0;
    std::uint32_t hash = 0;
    std::uint32_t order = 0;
    std::uint32_t number = 0; // serial
};
static_assert(sizeof(skip_node) % alignof(skip_node *) == 0);

// A list's entry in the master list. It outlives its list.
struct skiplist_master {
    skiplist *owner = nullptr;
    bool alive = false;
    bool voidcmp = false;  // made without a comparison function
    bool voidhash = false; // made without a hash function
    birth_place born;
    std::uint32_t max_usage = 0; // highest count
    std::uint32_t clashes = 0;   // insertions beside a node of equal hash
    std::uint32_t inserts = 0;
    std::uint32_t max_chain = 0; // a column of the report; nothing raises it
    key_printer key_tostring = nullptr;
};

} // namespace

struct skiplist {
    skip_node *head = nullptr; // no key, all links; its order is the height of the list
    std::array<skip_node *, MAX_LEVELS> update{};
    std::uint32_t count = 0;
    hash_function hash = nullptr;
    key_compare compare = nullptr;
    skiplist_master *debug = nullptr;
};

namespace {

std::uint32_t next_number = 0;
bool master_list_on = false;
vector_of<skiplist_master *> master_list;

bool isalive(const skiplist *list)
{
    return list->debug->alive;
}

void check_list(const skiplist *list)
{
    CHECK_STATE(list->debug == nullptr || isalive(list), "h->debug == NULL || isalive(h)");
}

skip_node *&link(skip_node *node, std::uint32_t level)
{
    return reinterpret_cast<skip_node **>(node + 1)[level];
}

skip_node *new_node(std::uint32_t order)
{
    auto *node = static_cast<skip_node *>(xalloc(sizeof(skip_node) + order * sizeof(skip_node *)));
    node->order = order;
    return node;
}

std::uint32_t hash_low_bits(word key)
{
    return static_cast<std::uint32_t>(key);
}

// The keys count as 32 bits, so words that differ only above them are one key.
int compare_low_bits(word left, word right)
{
    return static_cast<int>(static_cast<std::uint32_t>(left) - static_cast<std::uint32_t>(right));
}

void print_pointer(word key, char *buffer, std::uint32_t size)
{
    if (key == 0) {
        std::snprintf(buffer, size, "NULL");
    } else {
        std::snprintf(buffer, size, "%p", from_word<void *>(key));
    }
}

// The node with the key, or null. A look-up passes no `update` and ends at the first level that meets the key; the
// others get there, for each level, the last node in front of the key's place.
skip_node *search(const skiplist *list, word key, std::uint32_t hash, skip_node **update)
{
    skip_node *found = nullptr;
    skip_node *node = list->head;
    for (std::uint32_t level = list->head->order; level-- > 0;) {
        for (skip_node *next = link(node, level); next != nullptr && next->hash <= hash; next = link(node, level)) {
            if (next->hash == hash) {
                const int order = list->compare(key, next->key);
                found = order == 0 ? next : nullptr;
                if (found != nullptr && update == nullptr) {
                    return found;
                }
                if (order <= 0) {
                    break;
                }
            }
            node = next;
        }
        if (update != nullptr) {
            update[level] = node;
        }
    }
    return found;
}

skip_node *search_for_update(skiplist *list, word key, std::uint32_t hash)
{
    list->update.fill(nullptr);
    return search(list, key, hash, list->update.data());
}

int draw()
{
    static bool seeded = false;
    if (!seeded) {
        seeded = true;
        std::srand(0);
        std::rand(); // the first value is thrown away
    }
    return std::rand();
}

// At most one level above the present height of the list.
std::uint32_t choose_order(std::uint32_t height)
{
    std::uint32_t order = 1;
    while ((draw() & LEVEL_BITS) == 0 && order <= height && order < MAX_LEVELS) {
        ++order;
    }
    return order;
}

void free_nodes(skiplist *list)
{
    for (skip_node *node = link(list->head, 0); node != nullptr;) {
        skip_node *next = link(node, 0);
        std::free(node);
        node = next;
    }
}

constexpr std::size_t KEY_TEXT_SIZE = 256;

void key_text(const skiplist *list, const skip_node *node, std::array<char, KEY_TEXT_SIZE> &text)
{
    const key_printer key_tostring = list->debug->key_tostring;
    CHECK_STATE(key_tostring != nullptr, "key_tostring != NULL");
    text[0] = '\0';
    key_tostring(node->key, text.data(), KEY_TEXT_SIZE);
}

void print_node(const skiplist *list, skip_node *node)
{
    std::array<char, KEY_TEXT_SIZE> text;
    if (node == list->head) {
        trace_raw("HEAD(%4d)", static_cast<int>(node->order));
    } else {
        key_text(list, node, text);
        trace_raw("KEY: %s", text.data());
        trace_raw("    number: %u", node->number);
        trace_raw("    hash:   %X", node->hash);
        trace_raw("    order:  %u", node->order);
    }
    for (std::uint32_t level = 0; level < node->order; ++level) {
        const skip_node *next = link(node, level);
        if (next != nullptr) {
            key_text(list, next, text);
        }
        trace_raw("        %u) %s", level, next != nullptr ? text.data() : "Nil");
    }
}

// On each level the hashes must not fall. They do when a hash function does not keep to its answers.
void check_order(const skiplist *list)
{
    for (std::uint32_t level = 0; level < list->head->order; ++level) {
        std::uint32_t highest = 0;
        for (skip_node *node = link(list->head, level); node != nullptr; node = link(node, level)) {
            if (node->hash < highest) {
                trace_raw("SKIPLIST Node out-of-order: @ %s:%d", list->debug->born.file, list->debug->born.line);
                print_node(list, node);
                trace_raw_text("List AFTER:");
                for (skip_node *each_node = list->head; each_node != nullptr; each_node = link(each_node, 0)) {
                    print_node(list, each_node);
                }
            }
            CHECK_STATE(node->hash >= highest, "node->hash >= highest");
            highest = node->hash;
        }
    }
}

// Before the lowest link is made: a neighbour of equal hash is a clash.
void account_clash(const skiplist *list, const skip_node *node, birth_place where)
{
    const skip_node *before = list->update[0];
    const skip_node *behind = link(list->update[0], 0);
    const bool clashes =
        (before != list->head && before->hash == node->hash) || (behind != nullptr && behind->hash == node->hash);
    if (clashes) {
        skiplist_master *master = list->debug;
        ++master->clashes;
        tracef(where.file, where.line, "SKIPLIST @ %s:%d (#%u) clashed %d times inserting", master->born.file,
               master->born.line, node->number, static_cast<int>(master->clashes));
    }
}

void account_insertion(const skiplist *list)
{
    skiplist_master *master = list->debug;
    ++master->inserts;
    master->max_usage = std::max(master->max_usage, list->count);
    check_order(list);
}

} // namespace

skiplist *skiplist_new(hash_function hash, key_compare compare, key_printer printer, birth_place where)
{
    auto *list = place_record<skiplist>(xalloc(sizeof(skiplist)));
    list->head = new_node(MAX_LEVELS);
    list->head->order = 1;
    list->hash = hash != nullptr ? hash : hash_low_bits;
    list->compare = compare != nullptr ? compare : compare_low_bits;
    if (master_list_on) {
        if (!master_list) {
            master_list = vector_of<skiplist_master *>::make();
        }
        list->debug = xnew(skiplist_master{.owner = list,
                                           .alive = true,
                                           .voidcmp = compare == nullptr,
                                           .voidhash = hash == nullptr,
                                           .born = where,
                                           .key_tostring = printer != nullptr ? printer : print_pointer});
        master_list.push(list->debug);
    }
    return list;
}

void skiplist_free(skiplist *list)
{
    if (list == nullptr) {
        return;
    }
    if (list->debug != nullptr) {
        CHECK_STATE(isalive(list), "isalive(h)");
        list->debug->alive = false;
    }
    free_nodes(list);
    std::free(list->head);
    std::free(list);
}

void skiplist_clear(skiplist *list)
{
    check_list(list);
    free_nodes(list);
    link(list->head, 0) = nullptr;
    list->head->order = 1;
    list->count = 0;
}

int skiplist_insert(skiplist *list, word key, word value, birth_place where)
{
    check_list(list);
    const std::uint32_t hash = list->hash(key);
    if (search_for_update(list, key, hash) != nullptr) {
        return 0;
    }
    const std::uint32_t order = choose_order(list->head->order);
    if (order > list->head->order) {
        list->head->order = order;
        link(list->head, order - 1) = nullptr;
        list->update[order - 1] = list->head;
    }
    skip_node *node = new_node(order);
    node->value = value;
    node->key = key;
    node->number = next_number++;
    // Under the master list the hash is asked for again, so that the check of the order sees a function that wavers.
    node->hash = list->debug != nullptr ? list->hash(key) : hash;
    for (std::uint32_t level = order; level-- > 0;) {
        skip_node *op = list->update[level];
        CHECK_STATE(op != nullptr, "op");
        if (level == 0 && list->debug != nullptr) {
            account_clash(list, node, where);
        }
        link(node, level) = link(op, level);
        link(op, level) = node;
    }
    ++list->count;
    if (list->debug != nullptr) {
        account_insertion(list);
    }
    return 1;
}

word skiplist_delete(skiplist *list, word key)
{
    check_list(list);
    skip_node *node = search_for_update(list, key, list->hash(key));
    if (node == nullptr) {
        return 0;
    }
    // The height of the list stays, also when its tallest node goes.
    for (std::uint32_t level = 0; level < node->order; ++level) {
        if (skip_node *op = list->update[level]; op != nullptr && link(op, level) == node) {
            link(op, level) = link(node, level);
        }
    }
    --list->count;
    const word value = node->value;
    std::free(node);
    return value;
}

word skiplist_get(const skiplist *list, word key)
{
    check_list(list);
    const skip_node *node = search(list, key, list->hash(key), nullptr);
    return node != nullptr ? node->value : 0;
}

word skiplist_first(const skiplist *list)
{
    const skip_node *node = link(list->head, 0);
    return node != nullptr ? node->value : 0;
}

std::uint32_t skiplist_count(const skiplist *list)
{
    return list->count;
}

vector *skiplist_values(const skiplist *list, birth_place where)
{
    vector *values = vector_new(where);
    for (skip_node *node = link(list->head, 0); node != nullptr; node = link(node, 0)) {
        vector_push(values, node->value);
    }
    return values;
}

vector *skiplist_keys(const skiplist *list, birth_place where)
{
    vector *keys = vector_new(where);
    for (skip_node *node = link(list->head, 0); node != nullptr; node = link(node, 0)) {
        vector_push(keys, node->key);
    }
    return keys;
}

void skiplist_walk(const skiplist *list, void *context, void (*callback)(void *context, word key, word value))
{
    for (skip_node *node = link(list->head, 0); node != nullptr; node = link(node, 0)) {
        callback(context, node->key, node->value);
    }
}

void skiplist_master_list(bool enable)
{
    master_list_on = enable;
}

namespace {

// Most clashes first; of equals the later record, as in the list of hash tables.
int compare_masters(skiplist_master *left, skiplist_master *right)
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

void skiplist_dump_master_list()
{
    trace_raw_text("# Skiplist Master List:");
    if (master_list.empty()) {
        trace_raw_text("# None.");
        return;
    }
    master_list.sort<compare_masters>();
    trace_raw_text("# ptr    file:line    max_usage    clashes/inserts    max_chain    voidcmp    voidhash    alive");
    for (const skiplist_master *master : each(master_list)) {
        trace_raw("# %p    %s:%d    %u    %u/%u    %u    %c    %c    %c", static_cast<void *>(master->owner),
                  master->born.file, master->born.line, master->max_usage, master->clashes, master->inserts,
                  master->max_chain, yes_or_no(master->voidcmp), yes_or_no(master->voidhash), yes_or_no(master->alive));
    }
}
