// SPDX-License-Identifier: MIT
// Type entries. A unit writes its own copy of every type that it uses. At unit level a type is written when it is met;
// inside of functions, blocks and structures it is only noted, and comes out when the walk is back at unit level.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <deque>
#include <functional>
#include <iterator>
#include <vector>

#include "common/alert.h"
#include "common/trace.h"
#include "compiler/common/pointers.h"
#include "compiler/tarnwick/dwarf_abbrev.h"
#include "compiler/tarnwick/dwarf_die.h"
#include "compiler/tarnwick/dwarf_keys.h"
#include "compiler/tarnwick/dwarf_names.h"
#include "compiler/tarnwick/dwarf_type_id.h"
#include "compiler/tarnwick/machine.h"

bool has_delayed_types = false;

namespace {

constexpr std::uint32_t BYTE_BITS = 8;

// --- what is known ------------------------------------------------------------------------------------------------------

// Types in the order in which they were met.
struct type_list {
    std::deque<dtype> types;
    dwarf_key_list keys; // the ids of `types`
    // Indices of all types that may wait for their entry, as a heap with the lowest on top. A type is put on it when it
    // becomes referenced; one that turns out not to wait any more is passed over.
    std::vector<std::uint32_t> due;
};

type_list global_types;
type_list unit_types;

type_id_walk ids;

std::uint64_t key_of(const char *id)
{
    return reinterpret_cast<std::uintptr_t>(id);
}

dtype *find_type(const char *id)
{
    for (type_list *list : {&global_types, &unit_types}) {
        const std::uint32_t place = list->keys.find(key_of(id));
        if (place != NO_INDEX) {
            return &list->types[place];
        }
    }
    return nullptr;
}

type_list &list_of(const dtype *dt)
{
    return dt->dt_global ? global_types : unit_types;
}

void set_referenced(dtype *dt)
{
    if (!dt->dt_referenced) {
        dt->dt_referenced = true;
        std::vector<std::uint32_t> &due = list_of(dt).due;
        due.push_back(dt->dt_index);
        std::push_heap(due.begin(), due.end(), std::greater<>());
    }
}

bool is_void(const type_element *te)
{
    return te->te_kind == ty_basic && te->basic.te_class == TE_VOID;
}

bool is_due(const dtype *dt)
{
    return dt->dt_ref == 0 && dt->dt_referenced && !is_void(dt->dt_type);
}

bool is_nameless_qualifier(const type_element *te)
{
    return te->te_kind == ty_qual && (te->te_name == nullptr || *te->te_name == '\0');
}

const type_element *skip_nameless(const type_element *te)
{
    while (te != nullptr && is_nameless_qualifier(te)) {
        te = element_below(te);
    }
    return te;
}

// --- base types ---------------------------------------------------------------------------------------------------------

// The names that debuggers know the predefined types by. Without an id the row is that of the rest of its class, whose
// name is the id.
struct base_type_row {
    type_class te_class;
    const char *id;
    const char *name;
    dwarf_encoding encoding;
};

constexpr base_type_row BASE_TYPES[] = {
    {TE_SIGNED, "c", "signed char", DW_ATE_signed_char},
    {TE_SIGNED, "s", "short int", DW_ATE_signed},
    {TE_SIGNED, "i", "int", DW_ATE_signed},
    {TE_SIGNED, "m", "short long int", DW_ATE_signed},
    {TE_SIGNED, "l", "long int", DW_ATE_signed},
    {TE_SIGNED, "o", "long long int", DW_ATE_signed},
    {TE_SIGNED, nullptr, nullptr, DW_ATE_signed},
    {TE_UNSIGNED, "uc", "unsigned char", DW_ATE_unsigned_char},
    {TE_UNSIGNED, "us", "short unsigned int", DW_ATE_unsigned},
    {TE_UNSIGNED, "ui", "unsigned int", DW_ATE_unsigned},
    {TE_UNSIGNED, "um", "short long unsigned int", DW_ATE_unsigned},
    {TE_UNSIGNED, "ul", "long unsigned int", DW_ATE_unsigned},
    {TE_UNSIGNED, "uo", "long long unsigned int", DW_ATE_unsigned},
    {TE_UNSIGNED, nullptr, nullptr, DW_ATE_unsigned},
    {TE_FLOAT, "f", "float", DW_ATE_float},
    {TE_FLOAT, "d", "double", DW_ATE_float},
    {TE_FLOAT, nullptr, nullptr, DW_ATE_float},
};

struct base_type_entry {
    const char *name;
    dwarf_encoding encoding;
    std::uint8_t size;
    bool has_bit_fields;
};

base_type_entry describe_base_type(const dtype *dt)
{
    constexpr std::uint8_t SIZE_OF_BIT = 1;
    const type_element *te = dt->dt_type;
    if (isBitType(te)) {
        return {"bit", DW_ATE_unsigned, SIZE_OF_BIT, true}; // with its place in the byte, which no standard asks for
    }
    if (isBoolType(te)) {
        return {"_Bool", DW_ATE_boolean, te->basic.te_size, false};
    }
    for (const base_type_row &row : BASE_TYPES) {
        if (row.te_class == te->basic.te_class && (row.id == nullptr || std::strcmp(row.id, dt->dt_id) == 0)) {
            return {row.name != nullptr ? row.name : dt->dt_id, row.encoding, te->basic.te_size, false};
        }
    }
    return {dt->dt_id, DW_ATE_none, te->basic.te_size, false};
}

dtype *die_base_type(dtype *dt, compile_unit_handle cu)
{
    if (is_void(dt->dt_type)) {
        return nullptr;
    }
    const base_type_entry base = describe_base_type(dt);
    const std::uint32_t abbrev = dwarf_abbrev_get_basic_type_entry(base.has_bit_fields);
    dwarf_entry_info *entry = dwarf_info_start_basic_type_entry(
        cu, abbrev, base.name, dt->dt_id, base.size, base.encoding, base.has_bit_fields, dt->dt_type->basic.te_bitpos);
    dt->dt_ref = dwarf_info_finish_basic_type_entry(entry);
    return dt;
}

// --- enumerations and structures ----------------------------------------------------------------------------------------

dtype *die_enum_type(dtype *dt, compile_unit_handle cu)
{
    const sdb_node *node = dt->dt_type->node;
    const sdb_enum &declared = node->enumeration;
    const std::uint32_t abbrev = dwarf_abbrev_get_enum_type_entry(declared.en_tag != nullptr, declared.en_size != 0);
    dwarf_entry_info *entry = dwarf_info_start_enum_type_entry(cu, abbrev, declared.en_tag, dt->dt_id, declared.en_size,
                                                               die_current_file_number(), node->sdb_line);
    // Asked for even when there is no member.
    const std::uint32_t member_abbrev = dwarf_abbrev_get_enumerator_entry();
    for (std::uint32_t i = 0; i < declared.en_count; ++i) {
        const sdb_enumerator &member = declared.en_members[i];
        dwarf_info_finish_enumerator_entry(dwarf_info_start_enumerator_entry(cu, member_abbrev, member.name,
                                                                             static_cast<std::uint32_t>(member.value)));
    }
    dt->dt_ref = dwarf_info_finish_enum_type_entry(entry);
    return dt;
}

// The database counts bits from the low end of a member's storage, and DWARF from the high end.
std::uint32_t bits_from_high_end(const sdb_member &member)
{
    if (member.sm_bitwidth == 0) {
        return 0;
    }
    return static_cast<std::uint32_t>(member.sm_size) * BYTE_BITS - static_cast<std::uint32_t>(member.sm_bitoff) -
           static_cast<std::uint32_t>(member.sm_bitwidth);
}

// NOLINTNEXTLINE(misc-no-recursion): `do_type` is told to create no type, and goes no deeper
void die_member(const sdb_member &member, std::uint32_t is_union, compile_unit_handle cu)
{
    const std::uint32_t abbrev = dwarf_abbrev_get_member_entry(member.sm_bitwidth != 0, is_union != 0);
    DB_ASSERT(nullptr != cu, "NULL != compile_unit_handle");
    // Members write no types: those would stand inside of this one.
    const dtype *dt = do_type(member.sm_type, outermost_element(member.sm_type), false, cu);
    if (dt == nullptr) {
        alert(MESSAGE_NO_TYPE_FOUND, member.sm_name != nullptr ? member.sm_name : "");
        return;
    }
    DB_ASSERT(is_union <= 1, "is_union <= 1");
    const std::uint32_t offset = is_union != 0 ? 0 : static_cast<std::uint32_t>(member.sm_offset);
    dwarf_info_finish_member_entry(dwarf_info_start_member_entry(
        cu, abbrev, member.sm_name, dt->dt_id, static_cast<std::uint32_t>(member.sm_size),
        static_cast<std::uint32_t>(member.sm_bitwidth), bits_from_high_end(member), offset, is_union != 0));
}

// NOLINTNEXTLINE(misc-no-recursion): see die_member
dtype *die_compound_type(dtype *dt, compile_unit_handle cu)
{
    const sdb_node *node = dt->dt_type->node;
    const sdb_struct &declared = node->structure;
    const std::uint32_t is_union = declared.st_union ? 1 : 0;
    const bool has_children = declared.st_count != 0;
    const bool has_name = declared.st_tag != nullptr;
    const std::uint32_t abbrev = is_union != 0
                                     ? dwarf_abbrev_get_union_type_entry(has_children, has_name, declared.st_size)
                                     : dwarf_abbrev_get_structure_type_entry(has_children, has_name, declared.st_size);
    dwarf_entry_info *entry =
        dwarf_info_start_compound_type(cu, abbrev, has_children, declared.st_tag, dt->dt_id, declared.st_size,
                                       die_current_file_number(), node->sdb_line);
    dt->dt_ref = dwarf_info_entry_offset(entry); // now: a member may lead back here
    for (std::uint32_t i = 0; i < declared.st_count; ++i) {
        die_member(declared.st_members[i], is_union, cu);
    }
    dwarf_info_finish_compound_type_entry(entry, has_children);
    return dt;
}

// --- types over others --------------------------------------------------------------------------------------------------

// `below` of these is the result for the type below: null when that cannot be referred to.

// Parameters are not written.
dtype *die_subroutine_type(dtype *dt, const dtype *below, compile_unit_handle cu)
{
    const bool has_type = below != nullptr && !is_void(below->dt_type);
    const std::uint32_t abbrev = dwarf_abbrev_get_subroutine_type_entry(false, has_type);
    dwarf_entry_info *entry =
        dwarf_info_start_subroutine_entry(cu, abbrev, dt->dt_id, has_type ? below->dt_id : nullptr, false);
    dt->dt_ref = dwarf_info_finish_subroutine_entry(entry, false);
    return dt;
}

dtype *die_pointer_type(dtype *dt, const dtype *below, compile_unit_handle cu)
{
    const auto pointer_class = static_cast<std::int32_t>(dt->dt_type->ptr_class);
    const std::uint32_t size =
        pointer_class != 0 ? ptr_size(pointer_class) : machine->mc_type_size(dt->dt_record, dt->dt_type);
    const std::uint32_t abbrev = dwarf_abbrev_get_pointer_type_entry(below != nullptr);
    // The address class is the pointer class: debuggers for these chips know the numbers.
    dwarf_entry_info *entry =
        dwarf_info_start_pointer_type_entry(cu, abbrev, dt->dt_id, below != nullptr ? below->dt_id : nullptr,
                                            static_cast<std::uint8_t>(size), static_cast<std::uint8_t>(pointer_class));
    dt->dt_ref = dwarf_info_finish_pointer_type_entry(entry);
    return dt;
}

// All dimensions are one entry, outermost first. `below` is the type of an element.
dtype *die_array_type(dtype *dt, const dtype *below, compile_unit_handle cu)
{
    if (below == nullptr) {
        TRACEF(TRACE_DWARF, "%s: Could not define target type for tt_array", __func__);
        return nullptr;
    }
    const std::uint32_t abbrev = dwarf_abbrev_get_array_type_entry();
    dwarf_entry_info *entry = dwarf_info_start_array_type_entry(cu, abbrev, dt->dt_id, below->dt_id);
    const std::uint32_t subrange = dwarf_abbrev_get_subrange_entry();
    for (const type_element *te = dt->dt_type; te != nullptr && te->te_kind == ty_array; te = element_below(te)) {
        const auto upper_bound = static_cast<std::uint32_t>(te->dimension - 1); // a dimension of 0 gives all ones
        dwarf_info_finish_subrange_entry(dwarf_info_start_subrange_entry(cu, subrange, upper_bound));
    }
    dt->dt_ref = dwarf_info_finish_array_type_entry(entry);
    return dt;
}

dtype *die_qualified_type(dtype *dt, dtype *below, compile_unit_handle cu)
{
    DB_ASSERT(nullptr != dt->dt_type, "NULL != dt->dt_type");
    const std::uint32_t described = machine->mc_rom_mask | machine->mc_volatile_mask;
    auto mask = static_cast<std::uint32_t>(dt->dt_type->mask) & described;
    std::vector<std::uint32_t> abbrevs; // outermost first: the lowest bit
    while (mask != 0) {
        const std::uint32_t bit = mask & (~mask + 1);
        mask &= ~bit;
        const bool has_type = mask != 0 || below != nullptr;
        abbrevs.push_back((bit & machine->mc_rom_mask) != 0 ? dwarf_abbrev_get_const_type_entry(has_type)
                                                            : dwarf_abbrev_get_volatile_type_entry(has_type));
    }
    if (abbrevs.empty()) {
        // No such qualifier in DWARF: what refers to this type means the one below.
        dt->dt_referenced = false;
        if (below != nullptr) {
            dwarf_info_redirect_references(cu, dt->dt_id, below->dt_ref);
        }
        return below;
    }
    dwarf_entry_info *entry =
        dwarf_info_start_qualified_type_entry(cu, abbrevs, dt->dt_id, below != nullptr ? below->dt_id : nullptr);
    dt->dt_ref = dwarf_info_finish_qualified_type_entry(entry);
    return dt;
}

// --- order --------------------------------------------------------------------------------------------------------------

bool stands_over_another(const type_element *te)
{
    return te->te_kind == ty_func || te->te_kind == ty_ptr || te->te_kind == ty_array || te->te_kind == ty_qual;
}

// The element whose type has to have its entry before that of `te` is written.
const type_element *target_of(const type_element *te)
{
    const type_element *target = element_below(te);
    if (te->te_kind == ty_array) {
        while (target != nullptr && target->te_kind == ty_array) {
            target = element_below(target);
        }
    }
    return target;
}

// The type that was meant when null cannot be referred to.
// NOLINTNEXTLINE(misc-no-recursion): see die_member
dtype *emit_type(dtype *dt, compile_unit_handle cu)
{
    switch (dt->dt_type->te_kind) {
    case ty_basic:
        return die_base_type(dt, cu);
    case ty_enum:
        return die_enum_type(dt, cu);
    case ty_struct:
        return die_compound_type(dt, cu);
    default:
        TRACEF(TRACE_DWARF, "%s: Unknown class", __func__);
        return nullptr;
    }
}

dtype *emit_type_over(dtype *dt, dtype *below, compile_unit_handle cu)
{
    switch (dt->dt_type->te_kind) {
    case ty_func:
        return die_subroutine_type(dt, below, cu);
    case ty_ptr:
        return die_pointer_type(dt, below, cu);
    case ty_array:
        return die_array_type(dt, below, cu);
    default:
        return die_qualified_type(dt, below, cu);
    }
}

// The type of an element, made when it is new; null when there are as many as can be counted.
dtype *register_type(const type_record *record, const type_element *type)
{
    const char *id = ids.id_of(type);
    dtype *dt = find_type(id);
    if (dt == nullptr) {
        dt = dtype_add(id, record, type, false);
    }
    if (dt == nullptr) {
        TRACEF(TRACE_DWARF, "%s: Could not register type", "do_type");
    }
    return dt;
}

// Whether a type has its entry. If not, the unit needs it from now on.
bool is_written(dtype *dt)
{
    if (dt->dt_ref == 0) {
        set_referenced(dt);
        return false;
    }
    DB_ASSERT(dt->dt_referenced, "TRUE == dtype->dt_referenced");
    TRACEF(TRACE_DWARF, "%s: Type already registered", "do_type");
    return true;
}

// Writes a type, after those that it stands over as far as they have no entry. A type may stand over a great many, so
// they wait on a list for the one below each.
// NOLINTNEXTLINE(misc-no-recursion): see die_member
dtype *create_type(dtype *dt, compile_unit_handle cu)
{
    std::vector<dtype *> waiting;
    dtype *below = nullptr;
    while (dt != nullptr) {
        if (is_written(dt)) {
            below = dt;
            break;
        }
        if (!stands_over_another(dt->dt_type)) {
            below = emit_type(dt, cu);
            break;
        }
        waiting.push_back(dt);
        const type_element *target = skip_nameless(target_of(dt->dt_type));
        DB_ASSERT(nullptr != target, "NULL != ti");
        if (target == nullptr) {
            break; // a type that was cut short
        }
        // An equal text may have come from another record, which is the one that counts.
        dt = register_type(dt->dt_record, target);
    }
    for (; !waiting.empty(); waiting.pop_back()) {
        below = emit_type_over(waiting.back(), below, cu);
    }
    return below;
}

} // namespace

void dtype_reset()
{
    global_types = {};
    dtype_start_unit();
}

void dtype_start_unit()
{
    for (dtype &dt : global_types.types) {
        dt.dt_ref = 0;
        dt.dt_referenced = false;
    }
    unit_types.types.clear();
    unit_types.keys.clear();
    global_types.due.clear();
    unit_types.due.clear();
    has_delayed_types = false;
}

dtype *dtype_add(const char *id, const type_record *record, const type_element *type, bool is_global)
{
    type_list &list = is_global ? global_types : unit_types;
    if (list.types.size() == NO_INDEX) {
        return nullptr;
    }
    dtype &dt = list.types.emplace_back();
    dt.dt_id = id;
    dt.dt_record = record;
    dt.dt_type = type;
    dt.dt_index = static_cast<std::uint32_t>(list.types.size() - 1);
    dt.dt_global = is_global;
    list.keys.append(key_of(id));
    return &dt;
}

const type_element *outermost_element(const type_record *record)
{
    return skip_nameless(type_top(record));
}

const type_element *element_below(const type_element *type)
{
    return type->te_index > 0 ? type - 1 : nullptr;
}

// NOLINTNEXTLINE(misc-no-recursion): see die_member
dtype *do_type(const type_record *record, const type_element *type, bool can_create_types, compile_unit_handle cu)
{
    DB_ASSERT(nullptr != type, "NULL != ti");
    DB_ASSERT(nullptr != record && record->ty_cnt != 0, "NULL != last");
    type = skip_nameless(type);
    if (type == nullptr) {
        return nullptr;
    }
    ids.restart();
    dtype *dt = register_type(record, type);
    if (can_create_types) {
        return create_type(dt, cu);
    }
    if (dt != nullptr && !is_written(dt)) {
        has_delayed_types = true;
        TRACEF(TRACE_DWARF, "%s: Not in \"compile unit\" level, do not create type yet, postpone to later stage",
               __func__);
    }
    return dt;
}

bool create_delayed_types(bool global, compile_unit_handle cu)
{
    type_list &list = global ? global_types : unit_types;
    while (!list.due.empty()) {
        std::pop_heap(list.due.begin(), list.due.end(), std::greater<>());
        dtype *dt = &list.types[list.due.back()];
        list.due.pop_back();
        if (is_due(dt)) {
            do_type(dt->dt_record, dt->dt_type, true, cu);
            if (dt->dt_ref == 0) {
                dt->dt_referenced = false; // it cannot be written: it is waited for no longer
            }
            return true;
        }
    }
    return false;
}
