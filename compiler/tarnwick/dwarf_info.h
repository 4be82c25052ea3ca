// SPDX-License-Identifier: MIT
// The writer of .debug_info: compile unit headers, and a start and a finish operation for each kind of entry. It knows
// the bytes of entries and nothing of the symbol database. A start returns an open entry, which its finish ends; starts
// and finishes nest. Type ids are cached strings. Offsets handed out are counted from the start of the unit.
#pragma once

#include <cstdint>
#include <vector>

#include "compiler/tarnwick/dwarf_section.h"
#include "compiler/tarnwick/sdb.h"

struct compile_unit_info;
using compile_unit_handle = compile_unit_info *;
struct dwarf_entry_info;

void dwarf_info_init();
void dwarf_info_finalize(std::uint8_t **data, std::uint32_t *size);

compile_unit_handle dwarf_info_start_compile_unit(std::uint16_t version, std::uint32_t abbrev_offset,
                                                  std::uint8_t address_size);
// The unit's length, without its length field.
std::uint32_t dwarf_info_finish_compile_unit(compile_unit_handle cu);
// Offset of the unit in .debug_info.
std::uint32_t dwarf_info_get_unit_offset(compile_unit_handle cu);

// Offset of an open entry.
std::uint32_t dwarf_info_entry_offset(const dwarf_entry_info *entry);

// `ranges` of the functions below is the head of a range list and `num_ranges` its count as far as it is wanted.
dwarf_entry_info *dwarf_info_start_compile_unit_entry(compile_unit_handle cu, std::uint32_t abbrev,
                                                      std::uint32_t stmt_list, const char *producer,
                                                      std::uint16_t language, const char *name, const sdb_range *ranges,
                                                      std::uint32_t num_ranges);
dwarf_entry_info *dwarf_info_start_subprogram_entry(compile_unit_handle cu, std::uint32_t abbrev, const char *name,
                                                    const char *type_id, bool is_extern, std::uint32_t file_number,
                                                    std::uint32_t line_number, bool has_frame_base,
                                                    std::uint8_t inline_value, const sdb_range *ranges,
                                                    std::uint32_t num_ranges, bool has_children);
dwarf_entry_info *dwarf_info_start_lexical_block(compile_unit_handle cu, std::uint32_t abbrev, const sdb_node *block,
                                                 bool has_children, bool no_pc);
dwarf_entry_info *dwarf_info_start_basic_type_entry(compile_unit_handle cu, std::uint32_t abbrev, const char *name,
                                                    const char *type_id, std::uint8_t type_size, std::uint8_t encoding,
                                                    bool has_bit_fields, std::uint8_t bit_offset);
dwarf_entry_info *dwarf_info_start_pointer_type_entry(compile_unit_handle cu, std::uint32_t abbrev, const char *type_id,
                                                      const char *target_type_id, std::uint8_t size,
                                                      std::uint8_t address_class);
dwarf_entry_info *dwarf_info_start_array_type_entry(compile_unit_handle cu, std::uint32_t abbrev,
                                                    const char *array_type_id, const char *base_type_id);
dwarf_entry_info *dwarf_info_start_subrange_entry(compile_unit_handle cu, std::uint32_t abbrev,
                                                  std::uint32_t upper_bound);
dwarf_entry_info *dwarf_info_start_subroutine_entry(compile_unit_handle cu, std::uint32_t abbrev, const char *type_id,
                                                    const char *return_type_id, bool has_children);
dwarf_entry_info *dwarf_info_start_typedef_entry(compile_unit_handle cu, std::uint32_t abbrev, const char *name,
                                                 std::uint32_t file_no, std::uint32_t line_no, const char *base_type);
dwarf_entry_info *dwarf_info_start_variable_entry_no_location(compile_unit_handle cu, std::uint32_t abbrev,
                                                              const char *name, std::uint32_t file_no,
                                                              std::uint32_t line_no, const char *type_id,
                                                              bool is_extern, bool is_declaration);
dwarf_entry_info *dwarf_info_start_variable_entry_single_location(compile_unit_handle cu, std::uint32_t abbrev,
                                                                  const char *name, std::uint32_t file_no,
                                                                  std::uint32_t line_no, const char *type_id,
                                                                  bool is_extern, const sdb_location *location);
dwarf_entry_info *dwarf_info_start_variable_entry_multiple_locations(compile_unit_handle cu, std::uint32_t abbrev,
                                                                     const char *name, std::uint32_t file_no,
                                                                     std::uint32_t line_no, const char *type_id,
                                                                     bool is_extern, std::uint32_t list_offset);
dwarf_entry_info *dwarf_info_start_compound_type(compile_unit_handle cu, std::uint32_t abbrev, bool has_children,
                                                 const char *name, const char *type_id, std::uint32_t size,
                                                 std::uint32_t file_no, std::uint32_t line_no);
dwarf_entry_info *dwarf_info_start_member_entry(compile_unit_handle cu, std::uint32_t abbrev, const char *name,
                                                const char *type_id, std::uint32_t size, std::uint32_t bits,
                                                std::uint32_t bits_offset, std::uint32_t offset, bool is_union_filed);
dwarf_entry_info *dwarf_info_start_enum_type_entry(compile_unit_handle cu, std::uint32_t abbrev, const char *name,
                                                   const char *type_id, std::uint32_t size, std::uint32_t file_no,
                                                   std::uint32_t line_no);
dwarf_entry_info *dwarf_info_start_enumerator_entry(compile_unit_handle cu, std::uint32_t abbrev, const char *name,
                                                    std::uint32_t value);
// `abbrev_list`: outermost qualifier first. `child_type_id` is null over void.
dwarf_entry_info *dwarf_info_start_qualified_type_entry(compile_unit_handle cu,
                                                        const std::vector<std::uint32_t> &abbrev_list,
                                                        const char *type_id, const char *child_type_id);

// Each gives the entry's offset.
std::uint32_t dwarf_info_finish_compile_unit_entry(dwarf_entry_info *entry, bool has_children);
std::uint32_t dwarf_info_finish_subprogram_entry(dwarf_entry_info *entry, bool has_children);
std::uint32_t dwarf_info_finish_subroutine_entry(dwarf_entry_info *entry, bool has_children);
std::uint32_t dwarf_info_finish_lexical_block(dwarf_entry_info *entry, bool has_children);
std::uint32_t dwarf_info_finish_compound_type_entry(dwarf_entry_info *entry, bool has_children);
std::uint32_t dwarf_info_finish_array_type_entry(dwarf_entry_info *entry);
std::uint32_t dwarf_info_finish_enum_type_entry(dwarf_entry_info *entry);
std::uint32_t dwarf_info_finish_basic_type_entry(dwarf_entry_info *entry);
std::uint32_t dwarf_info_finish_pointer_type_entry(dwarf_entry_info *entry);
std::uint32_t dwarf_info_finish_qualified_type_entry(dwarf_entry_info *entry);
std::uint32_t dwarf_info_finish_typedef_entry(dwarf_entry_info *entry);
std::uint32_t dwarf_info_finish_subrange_entry(dwarf_entry_info *entry);
std::uint32_t dwarf_info_finish_variable_entry(dwarf_entry_info *entry);
std::uint32_t dwarf_info_finish_member_entry(dwarf_entry_info *entry);
std::uint32_t dwarf_info_finish_enumerator_entry(dwarf_entry_info *entry);

// References that wait under `type_id` are patched to the entry of `child_type_id`, which exists: a qualifier without a
// DWARF form has no entry of its own.
void dwarf_info_redirect_references(compile_unit_handle cu, const char *type_id, std::uint32_t child_offset);
