// SPDX-License-Identifier: MIT
// The numbers of the DWARF standard that are written: tags, attributes, forms, operators and the rest, by the standard's
// names.
#pragma once

#include <cstdint>

enum dwarf_tag : std::uint32_t {
    DW_TAG_array_type = 0x01,
    DW_TAG_enumeration_type = 0x04,
    DW_TAG_formal_parameter = 0x05,
    DW_TAG_lexical_block = 0x0b,
    DW_TAG_member = 0x0d,
    DW_TAG_pointer_type = 0x0f,
    DW_TAG_compile_unit = 0x11,
    DW_TAG_structure_type = 0x13,
    DW_TAG_subroutine_type = 0x15,
    DW_TAG_typedef = 0x16,
    DW_TAG_union_type = 0x17,
    DW_TAG_subrange_type = 0x21,
    DW_TAG_base_type = 0x24,
    DW_TAG_const_type = 0x26,
    DW_TAG_enumerator = 0x28,
    DW_TAG_subprogram = 0x2e,
    DW_TAG_variable = 0x34,
    DW_TAG_volatile_type = 0x35,
};

enum dwarf_attribute : std::uint32_t {
    DW_AT_sibling = 0x01,
    DW_AT_location = 0x02,
    DW_AT_name = 0x03,
    DW_AT_byte_size = 0x0b,
    DW_AT_bit_offset = 0x0c,
    DW_AT_bit_size = 0x0d,
    DW_AT_stmt_list = 0x10,
    DW_AT_low_pc = 0x11,
    DW_AT_high_pc = 0x12,
    DW_AT_language = 0x13,
    DW_AT_comp_dir = 0x1b,
    DW_AT_const_value = 0x1c,
    DW_AT_inline = 0x20,
    DW_AT_producer = 0x25,
    DW_AT_upper_bound = 0x2f,
    DW_AT_address_class = 0x33,
    DW_AT_data_member_location = 0x38,
    DW_AT_decl_file = 0x3a,
    DW_AT_decl_line = 0x3b,
    DW_AT_declaration = 0x3c,
    DW_AT_encoding = 0x3e,
    DW_AT_external = 0x3f,
    DW_AT_frame_base = 0x40,
    DW_AT_type = 0x49,
    DW_AT_ranges = 0x55,
};

enum dwarf_form : std::uint32_t {
    DW_FORM_addr = 0x01,
    DW_FORM_block2 = 0x03,
    DW_FORM_data2 = 0x05,
    DW_FORM_data4 = 0x06,
    DW_FORM_string = 0x08,
    DW_FORM_block1 = 0x0a,
    DW_FORM_data1 = 0x0b,
    DW_FORM_flag = 0x0c,
    DW_FORM_udata = 0x0f,
    DW_FORM_ref4 = 0x13,
};

enum dwarf_children : std::uint8_t {
    DW_CHILDREN_no = 0,
    DW_CHILDREN_yes = 1,
};

enum dwarf_operator : std::uint8_t {
    DW_OP_addr = 0x03,
    DW_OP_plus_uconst = 0x23,
    DW_OP_reg0 = 0x50,
    DW_OP_regx = 0x90,
    DW_OP_fbreg = 0x91,
};

enum dwarf_encoding : std::uint8_t {
    DW_ATE_none = 0,
    DW_ATE_boolean = 2,
    DW_ATE_float = 4,
    DW_ATE_signed = 5,
    DW_ATE_signed_char = 6,
    DW_ATE_unsigned = 7,
    DW_ATE_unsigned_char = 8,
};

enum dwarf_inline : std::uint8_t {
    DW_INL_not_inlined = 0,
    DW_INL_inlined = 1,
    DW_INL_declared_inlined = 3,
};

enum dwarf_language : std::uint16_t {
    DW_LANG_C89 = 0x0001,
    DW_LANG_Mips_Assembler = 0x8001,
};

enum dwarf_line_opcode : std::uint8_t {
    DW_LNS_copy = 1,
    DW_LNS_advance_pc = 2,
    DW_LNS_advance_line = 3,
    DW_LNS_set_file = 4,
    DW_LNS_const_add_pc = 8,
};

enum dwarf_extended_line_opcode : std::uint8_t {
    DW_LNE_end_sequence = 1,
    DW_LNE_set_address = 2,
};
