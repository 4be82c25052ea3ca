// SPDX-License-Identifier: MIT
// The layout of the COFF dialect, told once for the reader, the writer and the dump. Positions are byte offsets in a
// record; all fields are little-endian but for the magic of a file, which stands high byte first.
#pragma once

#include <array>
#include <cstdint>

// Sizes of records.
inline constexpr std::uint32_t COFF_HEADER_SIZE = 20;
inline constexpr std::uint32_t COFF_OPTIONAL_SIZE = 18;
inline constexpr std::uint32_t COFF_SECTION_SIZE = 40;
inline constexpr std::uint32_t COFF_SYMBOL_SIZE = 20; // auxiliary entries too
inline constexpr std::uint32_t COFF_LINE_SIZE = 16;
inline constexpr std::uint32_t COFF_NAME_SIZE = 8;

inline constexpr std::uint16_t COFF_MAGIC = 0x4012;
inline constexpr std::uint16_t COFF_OPTIONAL_MAGIC = 5000;
inline constexpr std::uint16_t COFF_OPTIONAL_MAGIC_LAST = 5999; // the dump names the maker up to here
inline constexpr std::uint32_t COFF_VERSION = 24600;
inline constexpr std::uint32_t COFF_SECTIONS_MAX = 1000;    // what identification accepts
inline constexpr std::uint32_t COFF_STRING_TABLE_START = 4; // the table's size counts itself
inline constexpr std::uint32_t COFF_POINTER_SIZE = 2;

// File header.
enum coff_header_field : std::uint32_t {
    CFH_MAGIC = 0,    // 2
    CFH_SECTIONS = 2, // 2
    CFH_DATED = 4,    // 4: seconds since 1970
    CFH_SYMPTR = 8,   // 4
    CFH_NSYMS = 12,   // 4: auxiliary entries included
    CFH_OPTHDR = 16,  // 2
    CFH_FLAGS = 18,   // 2
};

// Optional header.
enum coff_optional_field : std::uint32_t {
    COH_MAGIC = 0,      // 2
    COH_VERSION = 2,    // 4
    COH_PROCESSOR = 6,  // 4
    COH_ROM_WIDTH = 10, // 4: bits of a program word
    COH_RAM_WIDTH = 14, // 4: bits of a data word
};

// Section header; the name at 0.
enum coff_section_field : std::uint32_t {
    CSH_PADDR = 8,    // 4: address units
    CSH_VADDR = 12,   // 4
    CSH_SIZE = 16,    // 4: bytes
    CSH_SCNPTR = 20,  // 4
    CSH_RELPTR = 24,  // 4
    CSH_LNNOPTR = 28, // 4
    CSH_RELOCS = 32,  // 2
    CSH_LINES = 34,   // 2
    CSH_FLAGS = 36,   // 4
};

// Symbol entry; the name at 0: in place, or four zero bytes and an offset in the string table.
enum coff_symbol_field : std::uint32_t {
    CSY_STRING = 4,   // 4: offset of a long name
    CSY_VALUE = 8,    // 4
    CSY_SECTION = 12, // 2: 1-based; 0 undefined
    CSY_TYPE = 14,    // 4
    CSY_CLASS = 18,   // 1
    CSY_AUX = 19,     // 1
};

// Auxiliary entry. What a field means depends on the entry that it follows.
enum coff_aux_field : std::uint32_t {
    CAX_TAG = 0,          // 4: symbol index of the tag
    CAX_FILE_NAME = 0,    // 4: .file: string table offset
    CAX_SECTION_SIZE = 0, // 4: section
    CAX_LINE = 4,         // 2: .bb .eb .bf .ef
    CAX_FILE_NUMBER = 4,  // 4: .file: a number that the dump shows
    CAX_RELOCS = 4,       // 2: section
    CAX_SIZE = 6,         // 2: size of the object, or width of a bit field
    CAX_LINES = 6,        // 2: section
    CAX_DIMENSIONS = 8,   // 2 each, outermost first
    CAX_LINEPTR = 8,      // 4: function
    CAX_ENDNDX = 12,      // 4: function; tag, .bb, .bf: index of the auxiliary entry of the closing entry
};
inline constexpr std::uint32_t COFF_DIMENSIONS = 4;

// Line number record.
enum coff_line_field : std::uint32_t {
    CLN_SRCNDX = 0,  // 4: index of the .file entry
    CLN_LINE = 4,    // 2: 0 marks a record with a symbol index in the next field
    CLN_PADDR = 6,   // 4
    CLN_FLAGS = 10,  // 2
    CLN_FCNNDX = 12, // 4: index of the function
};

inline constexpr std::uint16_t COFF_SECTION_DEBUG = 0xFFFE;     // bit groups
inline constexpr std::uint16_t COFF_SECTION_DEBUG_END = 0xFFFF; // and their end

struct coff_label {
    std::uint32_t value;
    const char *text;
};

// Flags of the file header; the writer sets the second.
inline constexpr std::uint16_t COFF_EXECUTABLE = 0x0002;
inline constexpr std::array<coff_label, 13> coff_file_flags{{
    {0x0001, "Stripped"},
    {0x0002, "Executable"},
    {0x0004, "No lines"},
    {0x0008, "No locals"},
    {0x0010, "0x10"},
    {0x0020, "0x20"},
    {0x0040, "0x40"},
    {0x0080, "16 bit little endian"},
    {0x0100, "32 bit little endian"},
    {0x0200, "32 bit big endian"},
    {0x0400, "0x400"},
    {0x0800, "0x800"},
    {0x1000, "New style syms"},
}};

// Flags of a section.
inline constexpr std::uint32_t COFF_TEXT = 0x00000020;
inline constexpr std::uint32_t COFF_BSS = 0x00000080;
inline constexpr std::uint32_t COFF_ABSOLUTE = 0x00001000;
inline constexpr std::array<coff_label, 17> coff_section_flags{{
    {0x00000001, "dummy"},
    {0x00000002, "noload"},
    {0x00000004, "group"},
    {0x00000008, "padding"},
    {0x00000010, "group end"},
    {0x00000020, "text"},
    {0x00000040, "data"},
    {0x00000080, "bss"},
    {0x00000100, "romdata"},
    {0x00000200, "0x200"},
    {0x00000400, "0x400"},
    {0x00000800, "0x800"},
    {0x00001000, "absolute"},
    {0x00002000, "shared"},
    {0x00004000, "overlaid"},
    {0x00008000, "access bank"},
    {0x00010000, "activation record"},
}};

// The type word: base type in bits 0 to 4, outermost derivation in bits 5 to 7, inner ones in the next groups of three.
inline constexpr std::uint32_t COFF_BASE_MASK = 0x1F;
inline constexpr std::uint32_t COFF_DERIVATION_MASK = 0xE0;
inline constexpr std::uint32_t COFF_DERIVATION_BITS = 3;
inline constexpr std::uint32_t COFF_BASE_BITS = 5;
enum coff_derivation : std::uint32_t {
    COFF_POINTER = 0x20,
    COFF_FUNCTION = 0x40,
    COFF_ARRAY = 0x60,
};

enum coff_base : std::uint32_t {
    CBT_NULL = 0,
    CBT_VOID = 1,
    CBT_CHAR = 2,
    CBT_SHORT = 3,
    CBT_INT = 4,
    CBT_LONG = 5,
    CBT_FLOAT = 6,
    CBT_DOUBLE = 7,
    CBT_STRUCT = 8,
    CBT_UNION = 9,
    CBT_ENUM = 10,
    CBT_MOE = 11,
    CBT_UCHAR = 12,
    CBT_USHORT = 13,
    CBT_UINT = 14,
    CBT_ULONG = 15,
    CBT_LNGDBL = 16,
    CBT_SLONG = 17,
    CBT_USLONG = 18,
    CBT_LLONG = 19,
    CBT_ULLONG = 20,
};

struct coff_base_type {
    const char *name;
    std::uint32_t size; // bytes; of struct, union and enum it comes from the auxiliary entry
};
inline constexpr std::array<coff_base_type, 21> coff_base_types{{
    {"null", 0},   {"void", 0},   {"char", 1},   {"short", 2}, {"int", 2},    {"long", 4},  {"float", 3},
    {"double", 4}, {"struct", 0}, {"union", 0},  {"enum", 0},  {"moe", 0},    {"uchar", 1}, {"ushort", 2},
    {"uint", 2},   {"ulong", 4},  {"lngdbl", 8}, {"slong", 3}, {"uslong", 3}, {"llong", 8}, {"ullong", 8},
}};
static_assert(coff_base_types.size() == CBT_ULLONG + 1);

enum coff_class : std::uint8_t {
    CSC_NULL = 0,
    CSC_AUTO = 1,
    CSC_EXTERNAL = 2,
    CSC_STATIC = 3,
    CSC_REGISTER = 4,
    CSC_EXTERNAL_DEFINITION = 5,
    CSC_LABEL = 6,
    CSC_UNDEFINED_LABEL = 7,
    CSC_STRUCT_MEMBER = 8,
    CSC_ARGUMENT = 9,
    CSC_STRUCT_TAG = 10,
    CSC_UNION_MEMBER = 11,
    CSC_UNION_TAG = 12,
    CSC_TYPEDEF = 13,
    CSC_UNDEFINED_STATIC = 14,
    CSC_ENUM_TAG = 15,
    CSC_ENUM_MEMBER = 16,
    CSC_REGISTER_PARAMETER = 17,
    CSC_BIT_FIELD = 18,
    CSC_AUTO_ARGUMENT = 19,
    CSC_END_OF_BLOCK = 20,
    CSC_BLOCK = 100,
    CSC_FUNCTION = 101,
    CSC_END_OF_STRUCT = 102,
    CSC_FILE = 103,
    CSC_LINE = 104,
    CSC_DUPLICATE_TAG = 105,
    CSC_DMERT_EXTERNAL = 106,
    CSC_END_OF_FILE = 107,
    CSC_LIST = 108,
    CSC_SECTION = 109,
    CSC_WEAK = 127,
    CSC_PHYSICAL_END = 255,
};
inline constexpr std::array<coff_label, 33> coff_classes{{
    {CSC_PHYSICAL_END, "physical end of function"},
    {CSC_NULL, "null class"},
    {CSC_AUTO, "automatic variable"},
    {CSC_EXTERNAL, "external symbol"},
    {CSC_STATIC, "static"},
    {CSC_REGISTER, "register variable"},
    {CSC_EXTERNAL_DEFINITION, "external definition"},
    {CSC_LABEL, "label"},
    {CSC_UNDEFINED_LABEL, "undefined label"},
    {CSC_STRUCT_MEMBER, "member of structure"},
    {CSC_ARGUMENT, "function argument"},
    {CSC_STRUCT_TAG, "structure tag"},
    {CSC_UNION_MEMBER, "member of union"},
    {CSC_UNION_TAG, "union tag"},
    {CSC_TYPEDEF, "type definition"},
    {CSC_UNDEFINED_STATIC, "undefined static"},
    {CSC_ENUM_TAG, "enumeration tag"},
    {CSC_ENUM_MEMBER, "member of enumeration"},
    {CSC_REGISTER_PARAMETER, "register parameter"},
    {CSC_BIT_FIELD, "bit field"},
    {CSC_AUTO_ARGUMENT, "auto argument"},
    {CSC_END_OF_BLOCK, "dummy entry (end of block)"},
    {CSC_BLOCK, ".bb or .eb"},
    {CSC_FUNCTION, ".bf or .ef"},
    {CSC_END_OF_STRUCT, "end of structure"},
    {CSC_FILE, "file name"},
    {CSC_LINE, "line # reformatted as symbol table entry"},
    {CSC_DUPLICATE_TAG, "duplicate tag"},
    {CSC_DMERT_EXTERNAL, "ext symbol in dmert public lib"},
    {CSC_END_OF_FILE, "end of file"},
    {CSC_LIST, "absolute listing toggle"},
    {CSC_SECTION, "section"},
    {CSC_WEAK, "weak symbol (GNU)"},
}};
