// SPDX-License-Identifier: MIT
// Conversion of types, and the entries of struct tags.
#include "compiler/tarnwick/coff_types.h"

#include <array>

#include "compiler/tarnwick/coff.h"
#include "compiler/tarnwick/encdec.h"

namespace {

constexpr std::uint32_t TYPE_TABLE_SIZE = 123;
constexpr std::uint32_t HASH_FACTOR = 33;

// --- tags by type -------------------------------------------------------------------------------------------------------

// Of a struct element: what equal structs agree in at the least. The hash of types puts all structs into one chain.
std::uint32_t struct_hash(word key)
{
    const sdb_struct &structure = from_word<const type_element *>(key)->node->structure;
    std::uint32_t hash = structure.st_tag != nullptr ? hash_string(structure.st_tag) : 0;
    hash = hash * HASH_FACTOR + structure.st_size;
    hash = hash * HASH_FACTOR + structure.st_count;
    if (structure.st_count != 0 && structure.st_members[0].sm_name != nullptr) {
        hash = hash * HASH_FACTOR + hash_string(structure.st_members[0].sm_name);
    }
    return hash;
}

bool is_derivation(const type_element &te)
{
    return te.te_kind == ty_func || te.te_kind == ty_ptr || te.te_kind == ty_array || te.te_kind == ty_qual;
}

// The index of the element that ends a type, looked for from the top down; NO_INDEX for a type that was cut short.
std::uint32_t base_index(const type_record *tp)
{
    std::uint32_t index = tp->ty_cnt;
    while (index > 0 && is_derivation(tp->elements[index - 1])) {
        --index;
    }
    return index - 1;
}

// --- the type word ------------------------------------------------------------------------------------------------------

// Base types by class and by size in bytes. Types of 8 bytes share those of 4.
constexpr std::uint32_t SIZE_MAX_INTEGER = 8;
using base_by_size = std::array<coff_base, SIZE_MAX_INTEGER + 1>;
constexpr base_by_size SIGNED_TYPES = {CBT_NULL, CBT_CHAR, CBT_INT,  CBT_SLONG, CBT_LONG,
                                       CBT_NULL, CBT_NULL, CBT_NULL, CBT_LONG};
constexpr base_by_size UNSIGNED_TYPES = {CBT_NULL, CBT_UCHAR, CBT_UINT, CBT_USLONG, CBT_ULONG,
                                         CBT_NULL, CBT_NULL,  CBT_NULL, CBT_ULONG};

coff_base integer_type(const base_by_size &types, std::uint32_t size)
{
    return size < types.size() ? types[size] : CBT_NULL;
}

coff_base basic_type(const type_element &te)
{
    switch (te.basic.te_class) {
    case TE_VOID:
        return CBT_VOID;
    case TE_SIGNED:
        return integer_type(SIGNED_TYPES, te.basic.te_size);
    case TE_UNSIGNED:
        return integer_type(UNSIGNED_TYPES, te.basic.te_size);
    case TE_FLOAT:
        return te.basic.te_size == coff_base_types[CBT_FLOAT].size ? CBT_FLOAT : CBT_DOUBLE;
    case TE_BIT:
        return isBoolType(&te) ? CBT_UCHAR : CBT_NULL;
    default:
        return CBT_NULL;
    }
}

coff_type struct_type(const coff_tags &tags, const type_element &te)
{
    const std::uint32_t *tag = type_table_get(tags.type_table, &te);
    coff_type type;
    type.word = CBT_STRUCT; // a union, too
    type.has_aux = true;
    type.aux = coff_make_aux({.tag = tag != nullptr ? *tag : 0, .size = te.node->structure.st_size});
    type.waits_for = tag == nullptr ? te.node : nullptr;
    return type;
}

coff_type base_type(const coff_tags &tags, const type_element &te)
{
    coff_type type;
    switch (te.te_kind) {
    case ty_struct:
        return struct_type(tags, te);
    case ty_enum:
        type.word = CBT_CHAR; // whatever the enum's size
        return type;
    case ty_basic:
        type.word = basic_type(te);
        return type;
    default:
        return type;
    }
}

// The size of an array's element. Of a struct it is what the auxiliary entry holds already, so that an array of arrays of
// structs counts its inner dimensions twice, and an array of pointers to a struct has elements of the struct's size.
std::uint32_t element_size(const coff_type &element)
{
    const std::uint32_t base = element.word & COFF_BASE_MASK;
    if (base == CBT_STRUCT || base == CBT_UNION || base == CBT_ENUM) {
        return get16(element.aux.data() + CAX_SIZE);
    }
    return (element.word & COFF_DERIVATION_MASK) == COFF_POINTER ? COFF_POINTER_SIZE : coff_base_types[base].size;
}

// Moves the dimensions one place inward for a new outermost one; their product, of those before the first 0. With four
// dimensions the innermost is lost.
std::uint32_t shift_dimensions(std::uint8_t *dimensions)
{
    constexpr std::uint32_t WIDTH = 2;
    constexpr std::uint32_t MOVABLE = COFF_DIMENSIONS - 1;
    std::uint32_t product = 1;
    std::uint32_t count = 0;
    for (; count < MOVABLE && get16(dimensions + count * WIDTH) != 0; ++count) {
        product *= get16(dimensions + count * WIDTH);
    }
    for (; count > 0; --count) {
        put16(dimensions + count * WIDTH, get16(dimensions + (count - 1) * WIDTH));
    }
    return product;
}

void derive_array(coff_type *type, std::uint64_t te_value)
{
    const auto dimension = static_cast<std::uint16_t>(te_value);
    const std::uint32_t element = element_size(*type);
    std::uint8_t *aux = type->aux.data(); // all 0 when there was none
    const std::uint32_t multiplier = shift_dimensions(aux + CAX_DIMENSIONS);
    put16(aux + CAX_DIMENSIONS, dimension);
    put16(aux + CAX_SIZE, static_cast<std::uint16_t>(dimension * multiplier * element));
    type->has_aux = true;
    type->word = coff_derive(type->word, COFF_ARRAY);
}

// --- tags ---------------------------------------------------------------------------------------------------------------

void append_bit_field(coff_tables *tables, const sdb_member &member)
{
    constexpr std::int32_t BITS = 8;
    const std::int64_t place = std::int64_t{member.sm_bitoff} + std::int64_t{member.sm_offset} * BITS;
    coff_append_marker(tables, member.sm_name,
                       {.value = static_cast<std::uint32_t>(place), .type = CBT_UCHAR, .cls = CSC_BIT_FIELD},
                       {.size = static_cast<std::uint32_t>(member.sm_bitwidth)});
}

void append_member(coff_tags *tags, const sdb_member &member)
{
    if (member.sm_bitwidth != 0) {
        append_bit_field(tags->tables, member);
        return;
    }
    const coff_type type = vcoff_type_word(*tags, member.sm_type);
    coff_entry entry = coff_make_symbol(
        {.value = static_cast<std::uint32_t>(member.sm_offset), .type = type.word, .cls = CSC_STRUCT_MEMBER});
    coff_put_name(tags->tables, entry.data(), member.sm_name);
    if (!type.has_aux) {
        coff_append(tags->tables, entry);
        return;
    }
    const std::uint32_t index = coff_append(tags->tables, entry, type.aux);
    if (sdb_node *node = type.waits_for) {
        if (!node->structure.st_waiting) {
            node->structure.st_waiting = vector_of<std::uint32_t>::make();
            tags->pending_tags.push_back(node);
        }
        node->structure.st_waiting.push(index + 1);
    }
}

// The tag, the members and the end of one struct.
void append_struct(coff_tags *tags, type_element *te)
{
    sdb_struct &structure = te->node->structure;
    coff_tables *tables = tags->tables;
    // The first auxiliary entry does not name the tag, the one behind the end does.
    const std::uint32_t tag =
        coff_append_marker(tables, structure.st_tag, {.cls = CSC_STRUCT_TAG}, {.size = structure.st_size});
    structure.st_coff_index = tag;
    type_table_add(tags->type_table, te, tag);
    for (std::uint32_t i = 0; i < structure.st_count; ++i) {
        append_member(tags, structure.st_members[i]);
    }
    const std::uint32_t end =
        coff_append_marker(tables, ".eos", {.cls = CSC_END_OF_STRUCT}, {.tag = tag, .size = structure.st_size});
    coff_close(tables, tag, end);
}

// The struct at the base of a type, when it has no tag yet.
type_element *untagged_struct(const coff_tags &tags, type_record *tp)
{
    const std::uint32_t index = tp != nullptr ? base_index(tp) : NO_INDEX;
    if (index == NO_INDEX || tp->elements[index].te_kind != ty_struct) {
        return nullptr;
    }
    type_element *te = &tp->elements[index];
    return type_table_get(tags.type_table, te) == nullptr ? te : nullptr;
}

} // namespace

coff_tags::coff_tags(coff_tables *out) : tables(out), type_table(hash_new(TYPE_TABLE_SIZE, struct_hash, type_compare))
{
}

coff_tags::~coff_tags()
{
    type_table_free(type_table);
}

std::uint32_t coff_derive(std::uint32_t type, coff_derivation derivation)
{
    const std::uint32_t inner = type >> COFF_BASE_BITS << (COFF_BASE_BITS + COFF_DERIVATION_BITS);
    return inner | (type & COFF_BASE_MASK) | derivation;
}

coff_type vcoff_type_word(const coff_tags &tags, const type_record *tp)
{
    if (tp == nullptr) {
        return {};
    }
    const std::uint32_t base = base_index(tp);
    coff_type type = base != NO_INDEX ? base_type(tags, tp->elements[base]) : coff_type{};
    for (std::uint32_t i = base + 1; i < tp->ty_cnt; ++i) {
        switch (tp->elements[i].te_kind) {
        case ty_func:
            type.word = coff_derive(type.word, COFF_FUNCTION);
            break;
        case ty_ptr:
            type.word = coff_derive(type.word, COFF_POINTER);
            break;
        case ty_array:
            derive_array(&type, tp->elements[i].te_value);
            break;
        default: // a qualifier
            break;
        }
    }
    return type;
}

void vcoff_emit_tag(coff_tags *tags, type_record *tp)
{
    // Structs whose members are being looked at for further structs; they lie in each other as deep as the input has it.
    struct place {
        const sdb_struct *structure;
        std::uint32_t next; // member
    };
    std::vector<place> places;
    for (;;) {
        if (type_element *te = untagged_struct(*tags, tp)) {
            append_struct(tags, te);
            places.push_back({&te->node->structure, 0});
        }
        while (!places.empty() && places.back().next == places.back().structure->st_count) {
            places.pop_back();
        }
        if (places.empty()) {
            return;
        }
        place &at = places.back();
        tp = at.structure->st_members[at.next++].sm_type;
    }
}

coff_type vcoff_type(coff_tags *tags, type_record *tp)
{
    tags->pending_tags.clear();
    vcoff_emit_tag(tags, tp);
    const coff_type type = vcoff_type_word(*tags, tp);
    for (sdb_node *node : tags->pending_tags) {
        sdb_struct &structure = node->structure;
        for (const std::uint32_t index : each(structure.st_waiting)) {
            // The tag's index belongs to the node: where an equal type of another node has the tag, it is 0 here.
            put32(tags->tables->coff_symbols[index].data() + CAX_TAG, structure.st_coff_index);
        }
        structure.st_waiting.free();
        structure.st_coff_index = 0;
    }
    return type;
}

coff_type coff_variable_type(coff_tags *tags, const sdb_var &variable)
{
    coff_type type = vcoff_type(tags, variable.va_type);
    if (type.word == CBT_DOUBLE && variable.va_size == coff_base_types[CBT_FLOAT].size) {
        type.word = CBT_FLOAT;
    }
    if (type.word == CBT_FLOAT && variable.va_size == coff_base_types[CBT_DOUBLE].size) {
        type.word = CBT_DOUBLE;
    }
    return type;
}
