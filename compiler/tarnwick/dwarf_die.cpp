// SPDX-License-Identifier: MIT
// The walk over one module of the symbol database, which drives the writers of all sections. Blocks and functions that
// are open stand on a stack of their own, since their depth is the input's.
#include "compiler/tarnwick/dwarf_die.h"

#include <vector>

#include "common/alert.h"
#include "common/osdep.h"
#include "common/stringcache.h"
#include "common/trace.h"
#include "common/version.h"
#include "compiler/tarnwick/dwarf.h"
#include "compiler/tarnwick/dwarf_abbrev.h"
#include "compiler/tarnwick/dwarf_aranges.h"
#include "compiler/tarnwick/dwarf_line.h"
#include "compiler/tarnwick/dwarf_lines.h"
#include "compiler/tarnwick/dwarf_loc.h"
#include "compiler/tarnwick/dwarf_names.h"
#include "compiler/tarnwick/dwarf_pubnames.h"
#include "compiler/tarnwick/model.h"

namespace {

constexpr std::uint32_t BIT_ADDRESS_SHIFT = 3; // bit address to byte address
constexpr std::uint64_t INLINE_QUALIFIER = 0x100;

std::uint32_t current_file = 0; // number in the file table of the unit; 0 outside of all units

const char *producer()
{
    static const char *text = str_printf("Vantrel Kelvar ZRT Compiler v%s", VERSION_STRING);
    return text;
}

// What stands between a stack offset of the database, which counts from the frame of a variable's own block, and one from
// the frame of its function. It counts for reentrant functions only.
struct frame_shift {
    bool counts = true;
    std::uint32_t sum = 0; // bytes
};

// The shift of a block's variables, from that of the block around it.
frame_shift shift_in(const sdb_node *block, const frame_shift &around)
{
    const std::uint32_t frame = block->block.bl_frame[0];
    if (block->sdb_sclass == sc_block) {
        return {around.counts, around.counts ? around.sum + frame : 0};
    }
    if (block->sdb_sclass == sc_func) {
        const sdb_node *function = block->block.bl_func;
        const bool is_reentrant = function != nullptr && sdb_is_reentrant(function);
        return {is_reentrant, is_reentrant ? frame : 0};
    }
    return {}; // of no function
}

// The same with nothing known.
frame_shift shift_in(const sdb_node *block)
{
    std::uint32_t blocks = 0;
    while (block != nullptr && block->sdb_sclass == sc_block) {
        blocks += block->block.bl_frame[0];
        block = block->sdb_parent;
    }
    frame_shift shift = block != nullptr ? shift_in(block, {}) : frame_shift{};
    shift.sum += shift.counts ? blocks : 0;
    return shift;
}

// A block whose members are being written.
struct open_block {
    const sdb_node *block = nullptr;
    std::uint32_t next = 0; // member
    frame_shift shift;
    dwarf_entry_info *entry = nullptr;         // of a block or function
    const sdb_range *further_ranges = nullptr; // for which a function is to be written once more
};

class module_walk {
public:
    module_walk(compile_unit_handle cu, pubnames_unit_info *pub, dwarf_file_table *files)
        : cu_(cu), pub_(pub), files_(files)
    {
    }

    // Writes the members of a module.
    int symblock(const sdb_node *module);

private:
    // Only members of the module itself may have types in front of them.
    bool can_create_types() const { return open_.size() == 1; }
    const open_block &inner() const { return open_.back(); }

    void visit(sdb_node *member);
    void member_is_done();
    void create_delayed();
    void open(const sdb_node *block, dwarf_entry_info *entry, const sdb_range *further_ranges = nullptr);
    void close();

    void die_typedef(const sdb_node *node);
    void die_variable(sdb_node *node);
    dwarf_entry_info *start_variable(const sdb_node *node, const dtype *dt, std::uint32_t num_locations);
    void die_block(const sdb_node *node);
    void die_function(const sdb_node *node);
    void die_subprogram_add(const sdb_node *block, const sdb_range *ranges, std::uint32_t num_ranges,
                            const sdb_range *further_ranges);
    frame_shift shift_of_block(const sdb_node *block) const;

    compile_unit_handle cu_;
    pubnames_unit_info *pub_;
    dwarf_file_table *files_;
    std::vector<open_block> open_;
};

int module_walk::symblock(const sdb_node *module)
{
    DB_ASSERT(cu_ != nullptr, "compile_unit_handle != NULL");
    open(module, nullptr);
    while (inner().block != module || inner().next < module->block.bl_count) {
        open_block &top = open_.back();
        if (top.next < top.block->block.bl_count) {
            visit(top.block->block.bl_members[top.next++]);
        } else {
            close();
        }
    }
    open_.clear();
    return 1;
}

// Blocks and functions stay open; all else is done at once.
void module_walk::visit(sdb_node *member)
{
    switch (member->sdb_sclass) {
    case sc_block:
        die_block(member);
        return;
    case sc_func:
        die_function(member);
        return;
    case sc_extern:
    case sc_global:
    case sc_static:
    case sc_auto:
    case sc_param:
    case sc_reg:
        die_variable(member);
        break;
    case sc_typedef:
        die_typedef(member);
        break;
    case sc_filename:
        current_file = dwarf_file_number(files_, member->sdb_name);
        break;
    default:
        break;
    }
    member_is_done();
}

// Types that were noted within a member come out behind it.
void module_walk::member_is_done()
{
    if (can_create_types() && has_delayed_types) {
        create_delayed();
    }
}

void module_walk::create_delayed()
{
    do {
        has_delayed_types = false;
        while (create_delayed_types(true, cu_)) {
        }
        DB_ASSERT(!has_delayed_types, "!has_delayed_types");
        while (create_delayed_types(false, cu_)) {
        }
    } while (has_delayed_types);
}

void module_walk::open(const sdb_node *block, dwarf_entry_info *entry, const sdb_range *further_ranges)
{
    const frame_shift shift = shift_of_block(block);
    open_.push_back({block, 0, shift, entry, further_ranges});
}

// Ends the entry of the innermost block.
void module_walk::close()
{
    const open_block done = inner();
    open_.pop_back();
    const bool has_children = done.block->block.bl_count != 0;
    if (done.block->sdb_sclass == sc_block) {
        dwarf_info_finish_lexical_block(done.entry, has_children);
        member_is_done();
        return;
    }
    const sdb_node *function = done.block->block.bl_func;
    const std::uint32_t offset = dwarf_info_finish_subprogram_entry(done.entry, has_children);
    if (function->sdb_sclass == sc_extern) {
        dwarf_pubnames_add_name(pub_, offset, function->var.va_alias);
    }
    if (done.further_ranges != nullptr) {
        die_subprogram_add(done.block, done.further_ranges, 1, done.further_ranges->next);
    } else {
        member_is_done();
    }
}

frame_shift module_walk::shift_of_block(const sdb_node *block) const
{
    if (!open_.empty() && block->sdb_parent == inner().block) {
        return shift_in(block, inner().shift);
    }
    return shift_in(block);
}

// --- members ------------------------------------------------------------------------------------------------------------

bool is_void_type(const type_element *te)
{
    return te->te_kind == ty_basic && te->basic.te_class == TE_VOID;
}

void module_walk::die_typedef(const sdb_node *node)
{
    const type_record *record = node->var.va_type;
    const type_element *top = outermost_element(record);
    if (top == nullptr) {
        return; // a type that could not be read
    }
    const bool has_type = !is_void_type(top);
    const std::uint32_t abbrev = dwarf_abbrev_get_typedef_entry(has_type);
    const char *base_type = nullptr;
    if (has_type) {
        const dtype *dt = do_type(record, top, can_create_types(), cu_);
        if (dt == nullptr) {
            return; // the entry would lack the type that its abbreviation tells of
        }
        base_type = dt->dt_id;
    }
    dwarf_info_finish_typedef_entry(
        dwarf_info_start_typedef_entry(cu_, abbrev, node->sdb_name, current_file, node->sdb_line, base_type));
}

bool is_bit(const dtype *dt)
{
    const type_element *te = dt->dt_type;
    while (te != nullptr && te->te_kind == ty_qual) {
        te = element_below(te);
    }
    return isBitType(te);
}

// The database has the addresses of bits in bits. The nodes themselves are changed, at each writing of the entry.
void make_byte_addresses(const sdb_var &var)
{
    for (sdb_location *location : each(var.va_locations)) {
        if (location->lo_kind == LO_ADDRESS) {
            location->lo_value >>= BIT_ADDRESS_SHIFT;
        }
    }
}

// Changes the nodes as well.
void make_function_offsets(const sdb_var &var, const frame_shift &shift)
{
    if (!shift.counts) {
        return;
    }
    for (sdb_location *location : each(var.va_locations)) {
        if (location->lo_kind == LO_OFFSET) {
            location->lo_value -= shift.sum;
        }
    }
}

// A variable with dimension 0 is declared here and lives elsewhere.
bool is_declaration_of(const sdb_node *node)
{
    return node->sdb_sclass != sc_param && node->var.va_dim == 0;
}

bool is_external_variable(const sdb_node *node)
{
    return node->sdb_sclass == sc_extern;
}

dwarf_entry_info *module_walk::start_variable(const sdb_node *node, const dtype *dt, std::uint32_t num_locations)
{
    const bool is_external = is_external_variable(node);
    const bool is_declaration = is_declaration_of(node);
    const std::uint32_t abbrev = node->sdb_sclass == sc_param
                                     ? dwarf_abbrev_get_parameter_entry(num_locations)
                                     : dwarf_abbrev_get_variable_entry(is_external, is_declaration, num_locations);
    const char *name = node->var.va_alias;
    if (num_locations == 0) {
        return dwarf_info_start_variable_entry_no_location(cu_, abbrev, name, current_file, node->sdb_line, dt->dt_id,
                                                           is_external, is_declaration);
    }
    DB_ASSERT(!is_declaration, "!is_decraration");
    if (num_locations == 1) {
        return dwarf_info_start_variable_entry_single_location(cu_, abbrev, name, current_file, node->sdb_line,
                                                               dt->dt_id, is_external, node->var.va_locations.get(0));
    }
    const std::uint32_t list_offset = dwarf_loc_add_list(node);
    return dwarf_info_start_variable_entry_multiple_locations(cu_, abbrev, name, current_file, node->sdb_line,
                                                              dt->dt_id, is_external, list_offset);
}

void module_walk::die_variable(sdb_node *node)
{
    const sdb_var &var = node->var;
    if (isfunc(var.va_type)) {
        return;
    }
    const dtype *dt = do_type(var.va_type, outermost_element(var.va_type), can_create_types(), cu_);
    if (dt == nullptr) {
        alert(MESSAGE_NO_TYPE_FOUND, node->sdb_name);
        return;
    }
    DB_ASSERT(node->sdb_sclass != sc_param || var.va_dim != 0, "0 != pp->sdb_var.va_dim");
    if (node->sdb_sclass != sc_param && is_bit(dt)) {
        make_byte_addresses(var);
    }
    // An inlined function's variable has no place of its own.
    const bool has_locations = var.va_inline == 0 && !is_declaration_of(node);
    const std::uint32_t num_locations = has_locations ? var.va_locations.count() : 0;
    if (num_locations != 0 && (node->sdb_sclass == sc_auto || node->sdb_sclass == sc_param)) {
        make_function_offsets(var, node->sdb_parent == inner().block ? inner().shift : shift_in(node->sdb_parent));
    }
    const std::uint32_t offset = dwarf_info_finish_variable_entry(start_variable(node, dt, num_locations));
    if (is_external_variable(node)) {
        dwarf_pubnames_add_name(pub_, offset, var.va_alias);
    }
}

void check_order_of_addresses(const sdb_block &block)
{
    std::uint32_t start_addr = 0;
    std::uint32_t end_addr = 0;
    tarn_line_addr(block.bl_file, block.bl_first, &start_addr, nullptr, 0);
    tarn_line_addr(block.bl_file, block.bl_last, &end_addr, nullptr, 0);
    DB_ASSERT(end_addr >= start_addr, "end_addr >= start_addr");
}

void module_walk::die_block(const sdb_node *node)
{
    const sdb_block &block = node->block;
    const bool has_children = block.bl_count != 0;
    const bool no_pc = block.bl_inline != 0; // it came in through inlining
    const std::uint32_t abbrev = dwarf_abbrev_get_lexical_block_entry(has_children, no_pc, block.bl_nranges);
    if (asserting() && dwarf_use_ranges == DWARF_USE_NEVER && !no_pc) {
        check_order_of_addresses(block);
    }
    open(node, dwarf_info_start_lexical_block(cu_, abbrev, node, has_children, no_pc));
}

// Without range lists a function is written once for each of its ranges, children and all, and not at all when it has
// none.
void module_walk::die_function(const sdb_node *node)
{
    const sdb_block &block = node->block;
    if (block.bl_func == nullptr) { // a body that belongs to no function
        member_is_done();
    } else if (dwarf_use_ranges != DWARF_USE_NEVER) {
        die_subprogram_add(node, block.bl_ranges, block.bl_nranges, nullptr);
    } else if (block.bl_ranges != nullptr) {
        die_subprogram_add(node, block.bl_ranges, 1, block.bl_ranges->next);
    } else {
        member_is_done();
    }
}

std::uint8_t inline_value_of(const sdb_var &function)
{
    if (function.va_inline == 0) {
        return DW_INL_not_inlined;
    }
    return type_has_qualifier(function.va_type, INLINE_QUALIFIER) ? DW_INL_declared_inlined : DW_INL_inlined;
}

// What a function returns: the element below the outermost one. Of a qualified function type that is the function itself,
// and debuggers are shown it so.
const dtype *return_type_of(const sdb_var &function, compile_unit_handle cu)
{
    const type_element *top = outermost_element(function.va_type);
    return do_type(function.va_type, top != nullptr ? element_below(top) : nullptr, false, cu);
}

void module_walk::die_subprogram_add(const sdb_node *block, const sdb_range *ranges, std::uint32_t num_ranges,
                                     const sdb_range *further_ranges)
{
    const sdb_node *fn = block->block.bl_func;
    const std::uint8_t inline_value = inline_value_of(fn->var);
    const dtype *dt = return_type_of(fn->var, cu_);
    const bool has_type = dt != nullptr && !is_void_type(dt->dt_type);
    const bool has_children = block->block.bl_count != 0;
    const bool has_frame_base = sdb_is_reentrant(fn);
    const bool is_external = fn->sdb_sclass == sc_extern;
    const std::uint32_t abbrev = dwarf_abbrev_get_subprogram_entry(has_children, has_type, has_frame_base, is_external,
                                                                   inline_value != DW_INL_not_inlined, num_ranges);
    dwarf_entry_info *entry = dwarf_info_start_subprogram_entry(
        cu_, abbrev, fn->var.va_alias, has_type ? dt->dt_id : nullptr, is_external, current_file, fn->sdb_line,
        has_frame_base, inline_value, ranges, num_ranges, has_children);
    const sdb_range *range = ranges;
    for (std::uint32_t i = 0; i < num_ranges && range != nullptr; ++i, range = range->next) {
        dwarf_aranges_add_range(range->low, range->high + 1);
    }
    open(block, entry, further_ranges);
}

} // namespace

std::uint32_t die_current_file_number()
{
    return current_file;
}

int die_compile_unit(sdb_node *module, std::uint8_t address_size)
{
    dwarf_file_table files;
    dtype_start_unit();
    const compile_unit_handle cu = dwarf_info_start_compile_unit(dwarf_get_version(), 0, address_size);
    pubnames_unit_info *pub = dwarf_pubnames_start_unit(dwarf_info_get_unit_offset(cu));
    aranges_unit_info *aranges = dwarf_aranges_start_unit(dwarf_info_get_unit_offset(cu));

    const sdb_block &block = module->block;
    const bool has_children = block.bl_count > 1; // the first member is the mark of the source file
    const bool has_comp_dir = !path_is_absolute(module->sdb_name);
    const std::uint32_t abbrev = dwarf_abbrev_get_compile_unit_entry(has_children, has_comp_dir, block.bl_nranges);
    const std::uint32_t dwarf_line_offset = dwarf_line_get_offset();
    const dwarf_language language = module->sdb_sclass == sc_asmodule ? DW_LANG_Mips_Assembler : DW_LANG_C89;
    dwarf_entry_info *entry = dwarf_info_start_compile_unit_entry(cu, abbrev, dwarf_line_offset, producer(), language,
                                                                  module->sdb_name, block.bl_ranges, block.bl_nranges);
    const int result = module_walk(cu, pub, &files).symblock(module);
    dwarf_info_finish_compile_unit_entry(entry, has_children);
    constexpr std::uint32_t LENGTH_FIELD = 4;
    dwarf_pubnames_finish_unit(pub, dwarf_info_finish_compile_unit(cu) + LENGTH_FIELD);
    dwarf_aranges_finish_unit(aranges);
    current_file = 0;

    [[maybe_unused]] const std::uint32_t actual_dwarf_line_offset = lnno_compile_unit(files);
    DB_ASSERT(actual_dwarf_line_offset == dwarf_line_offset, "actual_dwarf_line_offset == dwarf_line_offset");
    return result;
}
