// SPDX-License-Identifier: MIT
// What the tests of the COFF writer share: models and databases made by hand, and entries as text.
#pragma once

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "common/alloc.h"
#include "common/stringcache.h"
#include "compiler/tarnwick/coff_bits.h"
#include "compiler/tarnwick/coff_file.h"
#include "compiler/tarnwick/coff_lines.h"
#include "compiler/tarnwick/coff_sections.h"
#include "compiler/tarnwick/coff_symbols.h"
#include "compiler/tarnwick/coff_types.h"
#include "compiler/tarnwick/coff_walk.h"
#include "compiler/tarnwick/complete.h"
#include "tests/unit/tarnwick/sdb_testing.h"

using text_lines = std::vector<std::string>;

// --- little-endian fields, by hand --------------------------------------------------------------------------------------

inline std::uint32_t field(const std::uint8_t *p, std::uint32_t at, std::uint32_t size)
{
    std::uint32_t value = 0;
    for (std::uint32_t i = size; i > 0; --i) {
        value = value << 8 | p[at + i - 1];
    }
    return value;
}

// The name in a field of eight bytes; one of the string table stands in quotes.
inline std::string name_in(const std::uint8_t *p, const std::string &strings)
{
    if (field(p, 0, 4) == 0 && field(p, 4, 4) != 0) {
        const std::uint32_t offset = field(p, 4, 4) - 4;
        return offset < strings.size() ? "'" + std::string(strings.c_str() + offset) + "'" : "bad offset";
    }
    std::size_t length = 8;
    while (length > 0 && p[length - 1] == 0) {
        --length;
    }
    return {reinterpret_cast<const char *>(p), length};
}

inline std::string format_numbers(std::initializer_list<std::uint32_t> values)
{
    std::string text;
    for (const std::uint32_t value : values) {
        char digits[12];
        std::snprintf(digits, sizeof digits, " %X", value);
        text += digits;
    }
    return text;
}

// "index name value section type class", numbers in hexadecimal but for the index and the class.
inline std::string symbol_text(std::size_t index, const coff_entry &entry, const std::string &strings)
{
    const std::uint8_t *p = entry.data();
    return std::to_string(index) + " " + name_in(p, strings) +
           format_numbers({field(p, 8, 4), field(p, 12, 2), field(p, 14, 4)}) + " " + std::to_string(field(p, 18, 1));
}

// "+ tag line size" and the rest as two 16-bit words and a 32-bit one: dimensions, or the index of the end. Trailing zeros
// are left out.
inline std::string aux_text(const coff_entry &entry)
{
    const std::uint8_t *p = entry.data();
    std::string text = "+" + format_numbers({field(p, 0, 4), field(p, 4, 2), field(p, 6, 2), field(p, 8, 2),
                                             field(p, 10, 2), field(p, 12, 4)});
    if (field(p, 16, 4) != 0) {
        return text + " and more";
    }
    while (text.ends_with(" 0")) {
        text.resize(text.size() - 2);
    }
    return text;
}

// All entries from an index on.
inline text_lines listing(const coff_tables &tables, std::size_t from = 0)
{
    text_lines lines;
    for (std::size_t i = from; i < tables.coff_symbols.size(); ++i) {
        lines.push_back(symbol_text(i, tables.coff_symbols[i], tables.coff_strings));
        if (tables.coff_symbols[i][CSY_AUX] != 0 && i + 1 < tables.coff_symbols.size()) {
            lines.push_back(aux_text(tables.coff_symbols[++i]));
        }
    }
    return lines;
}

// The strings of the table, in order.
inline text_lines strings_of(const coff_tables &tables)
{
    text_lines strings;
    for (std::size_t at = 0; at < tables.coff_strings.size(); at += strings.back().size() + 1) {
        strings.emplace_back(tables.coff_strings.c_str() + at);
    }
    return strings;
}

// The name that is made up next: its number runs on through all outputs of a process.
class name_watch {
public:
    name_watch()
    {
        coff_tables scratch;
        std::uint8_t bytes[COFF_NAME_SIZE] = {};
        coff_put_name(&scratch, bytes, nullptr);
        next_ = std::stoi(name_in(bytes, scratch.coff_strings).substr(2)) + 1;
    }
    // The `nth` name that is made up after the watch, from 0.
    std::string operator()(int nth) const { return ".u" + std::to_string(next_ + nth); }

private:
    int next_ = 0;
};

// --- models -------------------------------------------------------------------------------------------------------------

// A model with the code space 1 and the data space 2, a database, and the machine `machkor`: its instructions have one
// address unit.
class coff_model : public database {
public:
    static constexpr std::uint32_t CODE = 1;
    static constexpr std::uint32_t DATA = 2;

    coff_model()
    {
        model_create();
        opt_strip_underscore = false;
        opt_strip_ext = false;
        opt_big_endian = false;
        processor_args.fill(nullptr);
        set_add(code_spaces, CODE);
        set_add(data_spaces, DATA);
        coff = {};
    }
    void SetUp() override
    {
        choose(machkor);
        processor_name = "N4A";
    }

    static std::uint32_t add_segment(const char *name, std::uint32_t space, std::uint32_t address, std::uint32_t size)
    {
        tarn_segment record;
        record.sg_index = seg_list.count() + 1;
        record.sg_name = name;
        record.sg_space = space;
        record.sg_addr = address;
        record.sg_load = address;
        record.sg_size = size;
        record.sg_noranges = true;
        add_seg_internal(record, false);
        return seg_list.count();
    }
    static void add_block(std::uint32_t segment, std::uint32_t address, std::uint32_t size)
    {
        const std::vector<std::uint8_t> bytes(size, 0xA5);
        tarn_add_data(address, size, bytes.data(), segment);
    }
    // A symbol; the number stands for its segment and its space.
    static void define(const char *name, std::uint32_t value, std::uint32_t segment, const char *file = nullptr,
                       std::uint32_t flags = 0)
    {
        tarn_symbol record;
        record.sy_name = name;
        record.sy_value = value;
        record.sy_seg = segment;
        record.sy_space = segment;
        record.sy_flags = flags;
        record.sy_file = file != nullptr ? tarn_add_file(file) : 0;
        tarn_add_symbol(record);
    }
    static void add_line(const char *file, std::uint32_t line, std::uint32_t address, std::uint32_t segment)
    {
        tarn_line record;
        record.ln_file = tarn_add_file(file);
        record.ln_line = line;
        record.ln_addr = address;
        record.ln_seg = segment;
        tarn_add_line(record);
    }
    static bool is_done(const char *name) { return (tarn_find_symbol(name)->sy_flags & SYM_DONE) != 0; }

    // A program of one code segment with a block at 0x100 and one data segment at 0x20.
    void small_program()
    {
        add_segment("code", CODE, 0x100, 0x80);
        add_segment("data", DATA, 0x20, 0x40);
        add_block(1, 0x100, 0x80);
    }

    // The walk of the modules read so far, in tables of its own.
    struct walked {
        coff_tables tables;
        coff_sections sections;
        coff_tags tags{&tables};
        coff_bits bits;
        coff_walk walk{&tables, &sections, &tags, &bits};
        std::size_t first = 0;

        walked() { coff_make_sections(&sections, &tables); }
        text_lines list() const { return listing(tables); }
        void module(sdb_node *node) { vcoff_walk_block(&walk, node); }
    };
};

// A type record as a database would give it, without one: "*", "[n]", "(", "?" for a qualifier, and a base of class and
// size such as "u2", outermost first.
class type_maker {
public:
    static type_record *make(std::string_view text, sdb_node *node = nullptr)
    {
        if (text.empty()) {
            return type_new();
        }
        if (text[0] == '[') {
            const std::size_t end = text.find(']');
            const auto dimension = static_cast<std::uint64_t>(std::stoull(std::string(text.substr(1, end - 1))));
            return derived(make(text.substr(end + 1), node), ty_array, dimension);
        }
        switch (text[0]) {
        case '*':
            return derived(make(text.substr(1), node), ty_ptr, 0);
        case '(':
            return derived(make(text.substr(1), node), ty_func, 0);
        case '?':
            return derived(make(text.substr(1), node), ty_qual, 2);
        case 'S':
        case 'E':
            return of_node(node, text[0] == 'S' ? ty_struct : ty_enum);
        default:
            return basic(static_cast<std::uint32_t>(std::string("viufb").find(text[0])),
                         static_cast<std::uint8_t>(std::stoi(std::string(text.substr(1)))));
        }
    }
    static type_record *basic(std::uint32_t te_class, std::uint8_t size)
    {
        type_element te;
        te.te_kind = ty_basic;
        te.basic = {te_class, size, 0};
        return type_append(type_new(), te);
    }
    static type_record *of_node(sdb_node *node, type_kind kind)
    {
        type_element te;
        te.te_kind = kind;
        te.node = node;
        return type_append(type_new(), te);
    }
    static type_record *derived(type_record *tp, type_kind kind, std::uint64_t value)
    {
        type_element te;
        te.te_kind = kind;
        te.te_value = value;
        return type_append(tp, te);
    }
};

struct test_member {
    const char *name;
    type_record *type;
    std::int32_t offset;
    std::int32_t bit_offset = 0;
    std::int32_t bit_width = 0;
};

// A struct's node; members may be given later.
inline sdb_node *make_struct(const char *tag, std::uint32_t size)
{
    sdb_node *node = sdb_new_node(sc_struct, "S");
    node->structure.st_tag = tag;
    node->structure.st_size = size;
    return node;
}

inline void set_members(sdb_node *node, const std::vector<test_member> &members)
{
    node->structure.st_count = static_cast<std::uint32_t>(members.size());
    node->structure.st_members =
        static_cast<sdb_member *>(xarena(members.size() * sizeof(sdb_member), alignof(sdb_member)));
    for (std::size_t i = 0; i < members.size(); ++i) {
        sdb_member &member = node->structure.st_members[i];
        member.sm_name = members[i].name;
        member.sm_type = members[i].type;
        member.sm_offset = members[i].offset;
        member.sm_bitoff = members[i].bit_offset;
        member.sm_bitwidth = members[i].bit_width;
    }
}
