// SPDX-License-Identifier: MIT
// The rows of the name tables, and the text of a name.
#include "compiler/tarnwick/dwarf_name_tables.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace {

constexpr dwarf_name_row TAG_ROWS[] = {
    {0x00, "padding"},
    {0x01, "array_type"},
    {0x02, "class_type"},
    {0x03, "entry_point"},
    {0x04, "enumeration_type"},
    {0x05, "formal_parameter"},
    {0x08, "imported_declaration"},
    {0x0a, "label"},
    {0x0b, "lexical_block"},
    {0x0d, "member"},
    {0x0f, "pointer_type"},
    {0x10, "reference_type"},
    {0x11, "compile_unit"},
    {0x12, "string_type"},
    {0x13, "structure_type"},
    {0x15, "subroutine_type"},
    {0x16, "typedef"},
    {0x17, "union_type"},
    {0x18, "unspecified_parameters"},
    {0x19, "variant"},
    {0x1a, "common_block"},
    {0x1b, "common_inclusion"},
    {0x1c, "inheritance"},
    {0x1d, "inlined_subroutine"},
    {0x1e, "module"},
    {0x1f, "ptr_to_member_type"},
    {0x20, "set_type"},
    {0x21, "subrange_type"},
    {0x22, "with_stmt"},
    {0x23, "access_declaration"},
    {0x24, "base_type"},
    {0x25, "catch_block"},
    {0x26, "const_type"},
    {0x27, "constant"},
    {0x28, "enumerator"},
    {0x29, "file_type"},
    {0x2a, "friend"},
    {0x2b, "namelist"},
    {0x2c, "namelist_item"},
    {0x2d, "packed_type"},
    {0x2e, "subprogram"},
    {0x2f, "template_type_parameter"},
    {0x30, "template_value_parameter"},
    {0x31, "thrown_type"},
    {0x32, "try_block"},
    {0x33, "variant_part"},
    {0x34, "variable"},
    {0x35, "volatile_type"},
    {0x36, "dwarf_procedure"},
    {0x37, "restrict_type"},
    {0x38, "interface_type"},
    {0, {}},
};
static_assert(std::size(TAG_ROWS) == 51 + 1);

constexpr dwarf_name_row ATTRIBUTE_ROWS[] = {
    {0x01, "sibling"},
    {0x02, "location"},
    {0x03, "name"},
    {0x09, "ordering"},
    {0x0b, "byte_size"},
    {0x0c, "bit_offset"},
    {0x0d, "bit_size"},
    {0x10, "stmt_list"},
    {0x11, "low_pc"},
    {0x12, "high_pc"},
    {0x13, "language"},
    {0x15, "discr"},
    {0x16, "discr_value"},
    {0x17, "visibility"},
    {0x18, "import"},
    {0x19, "string_length"},
    {0x1a, "common_reference"},
    {0x1b, "comp_dir"},
    {0x1c, "const_value"},
    {0x1d, "containing_type"},
    {0x1e, "default_value"},
    {0x20, "inline"},
    {0x21, "is_optional"},
    {0x22, "lower_bound"},
    {0x25, "producer"},
    {0x27, "prototyped"},
    {0x2a, "return_addr"},
    {0x2c, "start_scope"},
    {0x2e, "bit_stride"},
    {0x2f, "upper_bound"},
    {0x31, "abstract_origin"},
    {0x32, "accessibility"},
    {0x33, "address_class"},
    {0x34, "artificial"},
    {0x35, "base_types"},
    {0x36, "calling_convention"},
    {0x37, "count"},
    {0x38, "data_member_location"},
    {0x39, "decl_column"},
    {0x3a, "decl_file"},
    {0x3b, "decl_line"},
    {0x3c, "declaration"},
    {0x3d, "discr_list"},
    {0x3e, "encoding"},
    {0x3f, "external"},
    {0x40, "frame_base"},
    {0x41, "friend"},
    {0x42, "identifier_case"},
    {0x43, "macro_info"},
    {0x44, "namelist_item"},
    {0x45, "priority"},
    {0x46, "segment"},
    {0x47, "specification"},
    {0x48, "static_link"},
    {0x49, "type"},
    {0x4a, "use_location"},
    {0x4b, "variable_parameter"},
    {0x4c, "virtuality"},
    {0x4d, "vtable_elem_location"},
    {0, {}},
};
static_assert(std::size(ATTRIBUTE_ROWS) == 59 + 1);

constexpr dwarf_name_row FORM_ROWS[] = {
    {0x01, "addr"},   {0x03, "block2"},    {0x04, "block4"},   {0x05, "data2"}, {0x06, "data4"}, {0x07, "data8"},
    {0x08, "string"}, {0x09, "block"},     {0x0a, "block1"},   {0x0b, "data1"}, {0x0c, "flag"},  {0x0d, "sdata"},
    {0x0e, "strp"},   {0x0f, "udata"},     {0x10, "ref_addr"}, {0x11, "ref1"},  {0x12, "ref2"},  {0x13, "ref4"},
    {0x14, "ref8"},   {0x15, "ref_udata"}, {0x16, "indirect"}, {0, {}},
};
static_assert(std::size(FORM_ROWS) == 21 + 1);

constexpr dwarf_name_row OPERATOR_ROWS[] = {
    {0x03, "addr"},    {0x06, "deref"},   {0x08, "const1u"},    {0x09, "const1s"},     {0x0a, "const2u"},
    {0x0b, "const2s"}, {0x0c, "const4u"}, {0x0d, "const4s"},    {0x0e, "const8u"},     {0x0f, "const8s"},
    {0x10, "constu"},  {0x11, "consts"},  {0x12, "dup"},        {0x13, "drop"},        {0x14, "over"},
    {0x15, "pick"},    {0x16, "swap"},    {0x17, "rot"},        {0x18, "xderef"},      {0x19, "abs"},
    {0x1a, "and"},     {0x1b, "div"},     {0x1c, "minus"},      {0x1d, "mod"},         {0x1e, "mul"},
    {0x1f, "neg"},     {0x20, "not"},     {0x21, "or"},         {0x22, "plus"},        {0x23, "plus_uconst"},
    {0x24, "shl"},     {0x25, "shr"},     {0x26, "shra"},       {0x27, "xor"},         {0x28, "bra"},
    {0x29, "eq"},      {0x2a, "ge"},      {0x2b, "gt"},         {0x2c, "le"},          {0x2d, "lt"},
    {0x2e, "ne"},      {0x2f, "skip"},    {0x30, "lit0"},       {0x31, "lit1"},        {0x32, "lit2"},
    {0x33, "lit3"},    {0x34, "lit4"},    {0x35, "lit5"},       {0x36, "lit6"},        {0x37, "lit7"},
    {0x38, "lit8"},    {0x39, "lit9"},    {0x3a, "lit10"},      {0x3b, "lit11"},       {0x3c, "lit12"},
    {0x3d, "lit13"},   {0x3e, "lit14"},   {0x3f, "lit15"},      {0x40, "lit16"},       {0x41, "lit17"},
    {0x42, "lit18"},   {0x43, "lit19"},   {0x44, "lit20"},      {0x45, "lit21"},       {0x46, "lit22"},
    {0x47, "lit23"},   {0x48, "lit24"},   {0x49, "lit25"},      {0x4a, "lit26"},       {0x4b, "lit27"},
    {0x4c, "lit28"},   {0x4d, "lit29"},   {0x4e, "lit30"},      {0x4f, "lit31"},       {0x50, "reg0"},
    {0x51, "reg1"},    {0x52, "reg2"},    {0x53, "reg3"},       {0x54, "reg4"},        {0x55, "reg5"},
    {0x56, "reg6"},    {0x57, "reg7"},    {0x58, "reg8"},       {0x59, "reg9"},        {0x5a, "reg10"},
    {0x5b, "reg11"},   {0x5c, "reg12"},   {0x5d, "reg13"},      {0x5e, "reg14"},       {0x5f, "reg15"},
    {0x60, "reg16"},   {0x61, "reg17"},   {0x62, "reg18"},      {0x63, "reg19"},       {0x64, "reg20"},
    {0x65, "reg21"},   {0x66, "reg22"},   {0x67, "reg23"},      {0x68, "reg24"},       {0x69, "reg25"},
    {0x6a, "reg26"},   {0x6b, "reg27"},   {0x6c, "reg28"},      {0x6d, "reg29"},       {0x6e, "reg30"},
    {0x6f, "reg31"},   {0x70, "breg0"},   {0x71, "breg1"},      {0x72, "breg2"},       {0x73, "breg3"},
    {0x74, "breg4"},   {0x75, "breg5"},   {0x76, "breg6"},      {0x77, "breg7"},       {0x78, "breg8"},
    {0x79, "breg9"},   {0x7a, "breg10"},  {0x7b, "breg11"},     {0x7c, "breg12"},      {0x7d, "breg13"},
    {0x7e, "breg14"},  {0x7f, "breg15"},  {0x80, "breg16"},     {0x81, "breg17"},      {0x82, "breg18"},
    {0x83, "breg19"},  {0x84, "breg20"},  {0x85, "breg21"},     {0x86, "breg22"},      {0x87, "breg23"},
    {0x88, "breg24"},  {0x89, "breg25"},  {0x8a, "breg26"},     {0x8b, "breg27"},      {0x8c, "breg28"},
    {0x8d, "breg29"},  {0x8e, "breg30"},  {0x8f, "breg31"},     {0x90, "regx"},        {0x91, "fbreg"},
    {0x92, "bregx"},   {0x93, "piece"},   {0x94, "deref_size"}, {0x95, "xderef_size"}, {0x96, "nop"},
    {0, {}},
};
static_assert(std::size(OPERATOR_ROWS) == 145 + 1);

// The three instructions that carry an operand in their low bits stand by those bits at 0.
constexpr dwarf_name_row FRAME_ROWS[] = {
    {0x00, "nop"},
    {0x01, "set_loc"},
    {0x02, "advance_loc1"},
    {0x03, "advance_loc2"},
    {0x04, "advance_loc4"},
    {0x05, "offset_extended"},
    {0x06, "restore_extended"},
    {0x07, "undefined"},
    {0x08, "same_value"},
    {0x09, "register"},
    {0x0a, "remember_state"},
    {0x0b, "restore_state"},
    {0x0c, "def_cfa"},
    {0x0d, "def_cfa_register"},
    {0x0e, "def_cfa_offset"},
    {0x40, "advance_loc"},
    {0x80, "offset"},
    {0xc0, "restore"},
    {0, {}},
};
static_assert(std::size(FRAME_ROWS) == 18 + 1);

constexpr dwarf_name_row LINE_ROWS[] = {
    {0x01, "copy"},
    {0x02, "advance_pc"},
    {0x03, "advance_line"},
    {0x04, "set_file"},
    {0x05, "set_column"},
    {0x06, "negate_stmt"},
    {0x07, "set_basic_block"},
    {0x08, "const_add_pc"},
    {0x09, "fixed_advance_pc"},
    {0, {}},
};
static_assert(std::size(LINE_ROWS) == 9 + 1);

constexpr dwarf_name_row EXTENDED_LINE_ROWS[] = {
    {0x01, "end_sequence"},
    {0x02, "set_address"},
    {0x03, "define_file"},
    {0, {}},
};
static_assert(std::size(EXTENDED_LINE_ROWS) == 3 + 1);

constexpr dwarf_name_row MACINFO_ROWS[] = {
    {0x01, "define"}, {0x02, "undef"}, {0x03, "start_file"}, {0x04, "end_file"}, {0xff, "vendor_ext"}, {0, {}},
};
static_assert(std::size(MACINFO_ROWS) == 5 + 1);

consteval dwarf_name_places places_of(std::span<const dwarf_name_row> rows)
{
    dwarf_name_places places{};
    for (std::size_t i = 0; i + 1 < rows.size(); ++i) {
        places.at(rows[i].value) = static_cast<std::uint8_t>(i + 1);
    }
    return places;
}

constexpr dwarf_name_places TAG_PLACES = places_of(TAG_ROWS);
constexpr dwarf_name_places ATTRIBUTE_PLACES = places_of(ATTRIBUTE_ROWS);
constexpr dwarf_name_places FORM_PLACES = places_of(FORM_ROWS);
constexpr dwarf_name_places OPERATOR_PLACES = places_of(OPERATOR_ROWS);
constexpr dwarf_name_places FRAME_PLACES = places_of(FRAME_ROWS);
constexpr dwarf_name_places LINE_PLACES = places_of(LINE_ROWS);
constexpr dwarf_name_places EXTENDED_LINE_PLACES = places_of(EXTENDED_LINE_ROWS);
constexpr dwarf_name_places MACINFO_PLACES = places_of(MACINFO_ROWS);

template <std::size_t Rows>
consteval std::array<dwarf_full_name, Rows - 1> full_names_of(std::string_view class_word,
                                                              const dwarf_name_row (&rows)[Rows])
{
    std::array<dwarf_full_name, Rows - 1> names{};
    for (std::size_t i = 0; i < names.size(); ++i) {
        names[i].text.fill(' ');
        for (const std::string_view part : {std::string_view("DW_"), class_word, std::string_view("_"), rows[i].name}) {
            for (const char c : part) {
                names[i].text.at(names[i].length++) = c;
            }
        }
    }
    return names;
}

constexpr auto TAG_NAMES = full_names_of("TAG", TAG_ROWS);
constexpr auto ATTRIBUTE_NAMES = full_names_of("AT", ATTRIBUTE_ROWS);
constexpr auto FORM_NAMES = full_names_of("FORM", FORM_ROWS);
constexpr auto OPERATOR_NAMES = full_names_of("OP", OPERATOR_ROWS);
constexpr auto FRAME_NAMES = full_names_of("CFA", FRAME_ROWS);
constexpr auto LINE_NAMES = full_names_of("LNS", LINE_ROWS);
constexpr auto EXTENDED_LINE_NAMES = full_names_of("LNE", EXTENDED_LINE_ROWS);
constexpr auto MACINFO_NAMES = full_names_of("MACINFO", MACINFO_ROWS);

constexpr std::size_t NAME_MAX_LENGTH = 128;
constexpr std::size_t VALUE_DIGITS = 8;
constexpr std::uint32_t DIGIT_BITS = 4;

char name_buffer[NAME_MAX_LENGTH];

void append(std::size_t &length, std::string_view text)
{
    const std::size_t taken = std::min(text.size(), NAME_MAX_LENGTH - length);
    std::memcpy(name_buffer + length, text.data(), taken);
    length += taken;
}

// 1 above the row of a value; 0 when no row has it.
std::size_t place_of(const dwarf_name_table &table, std::uint32_t value)
{
    return value < table.places.size() ? table.places[value] : 0;
}

std::size_t compose_unknown(const dwarf_name_table &table, std::uint32_t value)
{
    char digits[VALUE_DIGITS];
    for (std::size_t i = 0; i < VALUE_DIGITS; ++i) {
        digits[VALUE_DIGITS - 1 - i] = "0123456789ABCDEF"[value >> (DIGIT_BITS * i) & 0xF];
    }
    std::size_t length = 0;
    append(length, "?? 0x");
    append(length, {digits, VALUE_DIGITS});
    if (table.user_high != 0 && value >= table.user_low && value <= table.user_high) {
        append(length, " (user-defined)");
    }
    return length;
}

} // namespace

const dwarf_name_table dwarf_tag_names = {0x4080, 0xFFFF, TAG_ROWS, TAG_NAMES, TAG_PLACES};
const dwarf_name_table dwarf_attribute_names = {0x2000, 0x3FFF, ATTRIBUTE_ROWS, ATTRIBUTE_NAMES, ATTRIBUTE_PLACES};
const dwarf_name_table dwarf_form_names = {0, 0, FORM_ROWS, FORM_NAMES, FORM_PLACES};
const dwarf_name_table dwarf_operator_names = {0xE0, 0xFF, OPERATOR_ROWS, OPERATOR_NAMES, OPERATOR_PLACES};
const dwarf_name_table dwarf_frame_names = {0x1C, 0x3F, FRAME_ROWS, FRAME_NAMES, FRAME_PLACES};
const dwarf_name_table dwarf_line_names = {0, 0, LINE_ROWS, LINE_NAMES, LINE_PLACES};
const dwarf_name_table dwarf_extended_line_names = {0, 0, EXTENDED_LINE_ROWS, EXTENDED_LINE_NAMES,
                                                    EXTENDED_LINE_PLACES};
const dwarf_name_table dwarf_macinfo_names = {0, 0, MACINFO_ROWS, MACINFO_NAMES, MACINFO_PLACES};

std::string_view dwarf_name(const dwarf_name_table &table, std::uint32_t value, bool with_prefix)
{
    return dwarf_name_padded(table, value, with_prefix, 0);
}

std::string_view dwarf_name_padded(const dwarf_name_table &table, std::uint32_t value, bool with_prefix,
                                   std::size_t width)
{
    const std::size_t place = place_of(table, value);
    std::size_t length = 0;
    if (place == 0) {
        length = compose_unknown(table, value);
    } else if (!with_prefix) {
        append(length, table.rows[place - 1].name);
    } else {
        const dwarf_full_name &name = table.full_names[place - 1];
        if (width <= name.text.size()) {
            return {name.text.data(), std::max<std::size_t>(name.length, width)};
        }
        append(length, {name.text.data(), name.length});
    }
    const std::size_t padded = std::min(width, NAME_MAX_LENGTH);
    if (length < padded) {
        std::memset(name_buffer + length, ' ', padded - length);
        length = padded;
    }
    return {name_buffer, length};
}
