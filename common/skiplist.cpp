// SPDX-License-Identifier: MIT
// Skip lists. The heights of nodes are random, the order of a walk is not. A long list of texts is searched through an index,
// and its nodes are put in order all at once when a walk asks for it; they are linked when one is to be taken out.
#include "common/skiplist.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <numeric>
#include <vector>

#include "common/alloc.h"
#include "common/check.h"
#include "common/key_index.h"
#include "common/texthash.h"
#include "common/trace.h"

namespace {

constexpr std::uint32_t MAX_LEVELS = 16;
// Nodes from which a list of texts has an index.
constexpr std::uint32_t INDEX_FROM = 64;
// How many nodes before its turn a node is fetched from memory.
constexpr std::size_t FETCHED_AHEAD = 8;
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

struct hashed_node {
    std::uint32_t hash;
    skip_node *node;
};

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

// In place of the links of a long list of texts.
struct skiplist_index {
    key_index<skip_node *> by_text;
    std::vector<hashed_node> nodes;
    bool in_order = false; // of `nodes`
};

// For each level the last node in front of a place.
using update_list = std::array<skip_node *, MAX_LEVELS>;

} // namespace

struct skiplist {
    skip_node *head = nullptr; // no key, all links; its order is the height of the list
    update_list update{};
    std::uint32_t count = 0;
    hash_function hash = nullptr;
    key_compare compare = nullptr;
    skiplist_master *debug = nullptr;
    skiplist_index *index = nullptr;
    bool stays_linked = false; // no index any more
};

namespace {

std::uint32_t next_number = 0;
skip_node *free_nodes[MAX_LEVELS + 1] = {}; // of all lists, by order
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
    void *memory = free_nodes[order];
    if (memory != nullptr) {
        free_nodes[order] = link(free_nodes[order], 0);
    } else {
        memory = xarena(sizeof(skip_node) + order * sizeof(skip_node *), alignof(skip_node));
    }
    auto *node = place_record<skip_node>(memory);
    std::fill_n(&link(node, 0), order, nullptr);
    node->order = order;
    return node;
}

void give_back(skip_node *node, std::uint32_t order)
{
    link(node, 0) = free_nodes[order];
    free_nodes[order] = node;
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

// Puts a node behind the nodes that the search for its place found.
void link_node(const skiplist *list, skip_node *node)
{
    for (std::uint32_t level = node->order; level-- > 0;) {
        skip_node *op = list->update[level];
        CHECK_STATE(op != nullptr, "op");
        link(node, level) = link(op, level);
        link(op, level) = node;
    }
}

// Sorts by hash: from the lowest digit to the highest, each pass keeping the order of the one before.
void sort_by_hash(std::vector<hashed_node> *nodes)
{
    constexpr int DIGIT_BITS = 11;
    constexpr std::uint32_t DIGITS = 1 << DIGIT_BITS;
    std::vector<hashed_node> sorted(nodes->size());
    for (int shift = 0; shift < std::numeric_limits<std::uint32_t>::digits; shift += DIGIT_BITS) {
        const auto digit_of = [shift](const hashed_node &entry) { return entry.hash >> shift & (DIGITS - 1); };
        std::array<std::size_t, DIGITS + 1> starts{};
        for (const hashed_node &entry : *nodes) {
            ++starts[digit_of(entry) + 1];
        }
        std::partial_sum(starts.begin(), starts.end(), starts.begin());
        for (const hashed_node &entry : *nodes) {
            sorted[starts[digit_of(entry)]++] = entry;
        }
        nodes->swap(sorted);
    }
}

// The nodes of a list with an index, in order.
const std::vector<hashed_node> &nodes_in_order(skiplist_index *index)
{
    std::vector<hashed_node> &nodes = index->nodes;
    if (!index->in_order) {
        sort_by_hash(&nodes);
        for (auto run = nodes.begin(); run != nodes.end();) {
            const auto end =
                std::find_if(run, nodes.end(), [run](const hashed_node &n) { return n.hash != run->hash; });
            if (end - run > 1) {
                // No two keys are equal, so any sort will do.
                std::sort(run, end, [](const hashed_node &left, const hashed_node &right) {
                    return compare_key_string(left.node->key, right.node->key) < 0;
                });
            }
            run = end;
        }
        index->in_order = true;
    }
    return nodes;
}

// Calls `visit` for each node, in order.
template <typename Visit>
void visit_nodes(const skiplist *list, Visit visit)
{
    if (list->index == nullptr) {
        for (skip_node *node = link(list->head, 0); node != nullptr; node = link(node, 0)) {
            visit(node);
        }
        return;
    }
    const std::vector<hashed_node> &nodes = nodes_in_order(list->index);
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        __builtin_prefetch(nodes[std::min(i + FETCHED_AHEAD, nodes.size() - 1)].node);
        visit(nodes[i].node);
    }
}

std::uint32_t index_hash(word key)
{
    return hash_text(from_word<const char *>(key));
}

skip_node *find_in_index(const skiplist_index *index, word key, std::uint32_t hash)
{
    return index->by_text.find(
        hash, [key](const skip_node *node) { return node->key == key || compare_key_string(node->key, key) == 0; });
}

void add_to_index(skiplist_index *index, skip_node *node, std::uint32_t hash)
{
    index->by_text.add(hash, node);
    index->nodes.push_back({node->hash, node});
    index->in_order = false;
}

// Under the master list each insertion looks at its neighbours, so those lists are linked.
bool wants_index(const skiplist *list)
{
    return list->count >= INDEX_FROM && !list->stays_linked && list->debug == nullptr &&
           list->hash == hash_key_string && list->compare == compare_key_string;
}

void start_index(skiplist *list)
{
    auto *index = new skiplist_index;
    visit_nodes(list, [index](skip_node *node) { add_to_index(index, node, index_hash(node->key)); });
    list->index = index;
}

void drop_index(skiplist *list)
{
    if (list->index != nullptr) {
        list->index->by_text.free();
        delete list->index;
        list->index = nullptr;
    }
}

// Back to links, for good.
void leave_index(skiplist *list)
{
    if (list->index == nullptr) {
        return;
    }
    list->stays_linked = true;
    update_list last;
    last.fill(list->head);
    for (const hashed_node &entry : nodes_in_order(list->index)) {
        for (std::uint32_t level = 0; level < entry.node->order; ++level) {
            link(last[level], level) = entry.node;
            last[level] = entry.node;
        }
    }
    drop_index(list);
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

void give_back_nodes(skiplist *list)
{
    if (list->index != nullptr) {
        for (const hashed_node &entry : list->index->nodes) {
            give_back(entry.node, entry.node->order);
        }
        drop_index(list);
        return;
    }
    for (skip_node *node = link(list->head, 0); node != nullptr;) {
        skip_node *next = link(node, 0);
        give_back(node, node->order);
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
    give_back_nodes(list);
    give_back(list->head, MAX_LEVELS);
    std::free(list);
}

void skiplist_clear(skiplist *list)
{
    check_list(list);
    give_back_nodes(list);
    link(list->head, 0) = nullptr;
    list->head->order = 1;
    list->count = 0;
    list->stays_linked = false;
}

int skiplist_insert(skiplist *list, word key, word value, birth_place where)
{
    check_list(list);
    if (list->index == nullptr && wants_index(list)) {
        start_index(list);
    }
    const std::uint32_t hash = list->hash(key);
    const std::uint32_t place = list->index != nullptr ? index_hash(key) : 0;
    const skip_node *there =
        list->index != nullptr ? find_in_index(list->index, key, place) : search_for_update(list, key, hash);
    if (there != nullptr) {
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
    ++list->count;
    if (list->index != nullptr) {
        add_to_index(list->index, node, place);
        return 1;
    }
    if (list->debug != nullptr) {
        account_clash(list, node, where);
    }
    link_node(list, node);
    if (list->debug != nullptr) {
        account_insertion(list);
    }
    return 1;
}

word skiplist_delete(skiplist *list, word key)
{
    check_list(list);
    leave_index(list);
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
    give_back(node, node->order);
    return value;
}

word skiplist_get(const skiplist *list, word key)
{
    check_list(list);
    const skip_node *node = list->index != nullptr ? find_in_index(list->index, key, index_hash(key))
                                                   : search(list, key, list->hash(key), nullptr);
    return node != nullptr ? node->value : 0;
}

void skiplist_prefetch(const skiplist *list, word key)
{
    if (list->index != nullptr) {
        list->index->by_text.prefetch(index_hash(key));
    }
}

word skiplist_first(const skiplist *list)
{
    const skip_node *node = list->index != nullptr ? nodes_in_order(list->index).front().node : link(list->head, 0);
    return node != nullptr ? node->value : 0;
}

std::uint32_t skiplist_count(const skiplist *list)
{
    return list->count;
}

vector *skiplist_values(const skiplist *list, birth_place where)
{
    vector *values = vector_new(where);
    visit_nodes(list, [values](const skip_node *node) { vector_push(values, node->value); });
    return values;
}

vector *skiplist_keys(const skiplist *list, birth_place where)
{
    vector *keys = vector_new(where);
    visit_nodes(list, [keys](const skip_node *node) { vector_push(keys, node->key); });
    return keys;
}

void skiplist_walk(const skiplist *list, void *context, void (*callback)(void *context, word key, word value))
{
    visit_nodes(list, [=](const skip_node *node) { callback(context, node->key, node->value); });
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
