// SPDX-License-Identifier: MIT
// Types: records and the tests that writers make on them, and the hash and comparison by which distinct types are
// numbered.
#include "compiler/tarnwick/type.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <unordered_set>
#include <vector>

#include "common/alert.h"
#include "common/alloc.h"
#include "common/trace.h"
#include "common/vector_of.h"
#include "compiler/tarnwick/sdb.h"

namespace {

constexpr std::uint32_t MESSAGE_BAD_HASH_CLASS = 623;
constexpr std::uint32_t MESSAGE_BAD_COMPARE_CLASS = 624;

constexpr std::uint32_t TYPE_TABLE_SIZE = 123; // buckets
constexpr std::uint32_t KIND_SHIFT = 8;        // of the kind's share in a hash
constexpr std::uint32_t QUALIFIER_HASH = 0x700;

// The element below, or null at the base. A type that was cut short has any kind of element as its base.
const type_element *below(const type_element *te)
{
    return te->te_index > 0 ? te - 1 : nullptr;
}

std::uint32_t low_half(std::uint64_t value)
{
    return static_cast<std::uint32_t>(value);
}

const type_element *top_or_null(const type_record *tp)
{
    return tp != nullptr && tp->ty_cnt > 0 ? &tp->elements[tp->ty_cnt - 1] : nullptr;
}

bool same_text(const char *left, const char *right)
{
    if (left == nullptr || right == nullptr) {
        return left == right;
    }
    return std::strcmp(left, right) == 0;
}

// The structs met on each side of one comparison. They stay for the whole of it, also when they are done with.
std::unordered_set<const sdb_node *> visited_left;
std::unordered_set<const sdb_node *> visited_right;

// Two structs that are being compared member by member.
struct struct_pair {
    const sdb_node *left;
    const sdb_node *right;
    std::uint32_t next; // member
};

// What a comparison of two chains of elements found: a difference, none, or two structs that must be looked into.
enum class chain_result : std::uint8_t { DIFFERENT, EQUAL, STRUCTS };

// Steps 1 to 3 of type equality, without the structs at the end of the chains.
chain_result compare_chains(const type_element *left, const type_element *right, struct_pair *structs)
{
    while (left != right) {
        if (left == nullptr || right == nullptr || left->te_kind != right->te_kind) {
            return chain_result::DIFFERENT;
        }
        switch (left->te_kind) {
        case ty_basic:
            return left->basic.te_class == right->basic.te_class && left->basic.te_size == right->basic.te_size
                       ? chain_result::EQUAL
                       : chain_result::DIFFERENT;
        case ty_enum:
            return left->node == right->node ? chain_result::EQUAL : chain_result::DIFFERENT;
        case ty_struct:
            if (left->node == right->node) {
                return chain_result::EQUAL;
            }
            *structs = {left->node, right->node, 0};
            return chain_result::STRUCTS;
        case ty_func:
        case ty_ptr: // neither the pointer class nor the text is compared
            break;
        case ty_array:
        case ty_qual:
            if (low_half(left->te_value) != low_half(right->te_value)) {
                return chain_result::DIFFERENT;
            }
            break;
        default:
            alert(MESSAGE_BAD_COMPARE_CLASS);
            return chain_result::DIFFERENT;
        }
        left = below(left);
        right = below(right);
    }
    return chain_result::EQUAL;
}

// Whether two different structs agree in their heads; if so their members are the next to compare.
bool open_structs(const struct_pair &pair, std::vector<struct_pair> *pairs)
{
    if (pair.left == nullptr || pair.right == nullptr) {
        return false;
    }
    const sdb_struct &left = pair.left->structure;
    const sdb_struct &right = pair.right->structure;
    if (left.st_size != right.st_size || left.st_count != right.st_count || !same_text(left.st_tag, right.st_tag)) {
        return false;
    }
    visited_left.insert(pair.left);
    visited_right.insert(pair.right);
    pairs->push_back(pair);
    return true;
}

const sdb_node *base_struct(const type_record *tp)
{
    return tp != nullptr && tp->ty_cnt > 0 && tp->elements[0].te_kind == ty_struct ? tp->elements[0].node : nullptr;
}

// Compares two members; structs that must be looked into are left in `structs`.
chain_result compare_members(const sdb_member &left, const sdb_member &right, struct_pair *structs)
{
    if (!same_text(left.sm_name, right.sm_name) || left.sm_offset != right.sm_offset || left.sm_size != right.sm_size ||
        left.sm_bitoff != right.sm_bitoff || left.sm_bitwidth != right.sm_bitwidth) {
        return chain_result::DIFFERENT;
    }
    const sdb_node *left_struct = base_struct(left.sm_type);
    const sdb_node *right_struct = base_struct(right.sm_type);
    if (left_struct != nullptr) {
        if (left_struct == right_struct) {
            return chain_result::EQUAL; // whatever stands above the struct
        }
        // A recursive struct met again is different unless both sides reach the same node: this keeps the comparison
        // finite, and so like recursive types of two modules are distinct.
        if (visited_left.contains(left_struct)) {
            return chain_result::DIFFERENT;
        }
    }
    if (right_struct != nullptr && visited_right.contains(right_struct)) {
        return chain_result::DIFFERENT;
    }
    return compare_chains(top_or_null(left.sm_type), top_or_null(right.sm_type), structs);
}

// Type equality. Structs within structs wait on a list, since their depth is the input's.
bool type_equal(const type_element *left, const type_element *right)
{
    std::vector<struct_pair> pairs;
    struct_pair found{};
    chain_result result = compare_chains(left, right, &found);
    for (;;) {
        if (result == chain_result::DIFFERENT || (result == chain_result::STRUCTS && !open_structs(found, &pairs))) {
            return false;
        }
        while (!pairs.empty() && pairs.back().next == pairs.back().left->structure.st_count) {
            pairs.pop_back();
        }
        if (pairs.empty()) {
            return true;
        }
        struct_pair &pair = pairs.back();
        const std::uint32_t member = pair.next++;
        result =
            compare_members(pair.left->structure.st_members[member], pair.right->structure.st_members[member], &found);
    }
}

} // namespace

type_record *type_new(std::uint32_t room)
{
    const std::size_t slots = std::max<std::uint32_t>(room, 1);
    void *memory = xarena(sizeof(type_record) + (slots - 1) * sizeof(type_element), alignof(type_record));
    auto *tp = place_record<type_record>(memory);
    tp->ty_alloc = static_cast<std::uint32_t>(slots);
    return tp;
}

type_record *type_append(type_record *tp, const type_element &te)
{
    if (tp->ty_cnt == tp->ty_alloc) {
        // By half once the record is large, so that a long type costs no more than its length.
        type_record *larger = type_new(tp->ty_alloc + std::max(TYPE_ROOM, tp->ty_alloc / 2));
        std::copy_n(tp->elements, tp->ty_cnt, larger->elements);
        larger->ty_cnt = tp->ty_cnt;
        tp = larger;
    }
    auto *place = place_record(&tp->elements[tp->ty_cnt], te);
    place->te_index = tp->ty_cnt++;
    return tp;
}

const type_element *type_top(const type_record *tp)
{
    const type_element *top = top_or_null(tp);
    if (top == nullptr) [[unlikely]] {
        DB_ASSERT(tp != nullptr, "tp != NULL");
        DB_ASSERT(tp == nullptr || tp->ty_cnt != 0, "tp->ty_cnt != 0");
    }
    return top;
}

type_element *type_top(type_record *tp)
{
    return const_cast<type_element *>(type_top(static_cast<const type_record *>(tp)));
}

const type_element *type_below([[maybe_unused]] const type_record *tp, const type_element *te)
{
    return below(te);
}

bool isfunc(const type_record *tp)
{
    const type_element *te = top_or_null(tp);
    while (te != nullptr && te->te_kind == ty_qual) {
        te = below(te);
    }
    return te != nullptr && te->te_kind == ty_func;
}

bool type_has_qualifier(const type_record *tp, std::uint64_t mask)
{
    const type_element *te = top_or_null(tp);
    return te != nullptr && te->te_kind == ty_qual && (te->mask & mask) != 0;
}

bool isBitType(const type_element *te)
{
    return te != nullptr && te->te_kind == ty_basic && te->basic.te_class == TE_BIT && te->basic.te_size == 0;
}

bool isBoolType(const type_element *te)
{
    return te != nullptr && te->te_kind == ty_basic && te->basic.te_class == TE_BIT && te->basic.te_size != 0;
}

hash_table *type_table_new()
{
    return hash_new(TYPE_TABLE_SIZE, type_hash, type_compare);
}

void type_table_add(hash_table *table, type_element *te, std::uint32_t index)
{
    auto *cell = static_cast<std::uint32_t *>(xalloc(sizeof(std::uint32_t)));
    *cell = index;
    if (hash_insert(table, to_word(te), to_word(cell)) == 0) {
        std::free(cell); // an equal type keeps its number
    }
}

std::uint32_t *type_table_get(hash_table *table, const type_element *te)
{
    return from_word<std::uint32_t *>(hash_get(table, to_word(te)));
}

void type_table_free(hash_table *table)
{
    hash_walk(table, nullptr, [](void *, word, word cell) -> word {
        std::free(from_word<void *>(cell));
        return 0;
    });
    hash_clear(table);
    hash_free(table);
}

std::uint32_t type_hash(word key)
{
    std::uint32_t sum = 0;
    for (const auto *te = from_word<const type_element *>(key); te != nullptr; te = below(te)) {
        switch (te->te_kind) {
        case ty_func:
        case ty_ptr:
        case ty_array:
            sum += te->te_kind << KIND_SHIFT;
            break;
        case ty_qual:
            sum += low_half(te->mask) + QUALIFIER_HASH;
            break;
        case ty_enum:
        case ty_struct:
            return sum + (te->te_kind << KIND_SHIFT);
        case ty_basic:
            return sum + te->basic.te_class + te->basic.te_size;
        default:
            alert(MESSAGE_BAD_HASH_CLASS);
            return sum;
        }
    }
    return sum;
}

int type_compare(word left, word right)
{
    visited_left.clear();
    visited_right.clear();
    return type_equal(from_word<const type_element *>(left), from_word<const type_element *>(right)) ? 0 : 1;
}
