// SPDX-License-Identifier: MIT
// The readable dump of the tree, on the standard error stream.
#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "compiler/tarnwick/sdb.h"

namespace {

constexpr std::uint32_t INDENT = 4;
constexpr std::size_t FLUSH_SIZE = std::size_t{1} << 16;

// By storage class. Assembly modules have no word.
constexpr std::array<const char *, sc_asmodule> class_words = {
    "null", "extern", "global", "static", "auto",   "param", "typedef",  "module",
    "line", "block",  "func",   "reg",    "struct", "enum",  "filename",
};

// By class of a basic type; void has a text of its own.
constexpr std::array<char, TE_BIT + 1> basic_letters = {'v', 'i', 'u', 'f', 'b'};

// The output, gathered and written in large pieces.
class dump_text {
public:
    dump_text() = default;
    ~dump_text() { flush(); }
    dump_text(const dump_text &) = delete;
    dump_text &operator=(const dump_text &) = delete;

    void add(const char *text) { text_ += text != nullptr ? text : "(null)"; }
    void blanks(std::size_t count) { text_.append(count, ' '); }
    void format(const char *format, ...) PRINTF_LIKE(2, 3);
    void flush()
    {
        std::fwrite(text_.data(), 1, text_.size(), stderr);
        text_.clear();
    }
    void flush_if_large()
    {
        if (text_.size() >= FLUSH_SIZE) {
            flush();
        }
    }

private:
    std::string text_;
};

// For numbers; texts of any length go through `add`.
void dump_text::format(const char *format, ...)
{
    constexpr std::size_t NUMBERS_MAX = 128;
    std::array<char, NUMBERS_MAX> buffer{};
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(buffer.data(), buffer.size(), format, arguments);
    va_end(arguments);
    text_ += buffer.data();
}

std::int32_t as_int(std::uint32_t value)
{
    return static_cast<std::int32_t>(value);
}

void dump_tagged(dump_text &out, const char *keyword, const char *tag, const sdb_node *node)
{
    out.add(keyword);
    out.add(tag != nullptr ? tag : node->sdb_name);
}

void dump_basic(dump_text &out, const type_basic_value &basic)
{
    if (basic.te_class == TE_VOID) {
        out.add("v");
    } else if (basic.te_class < basic_letters.size()) {
        out.format("%c%u", basic_letters[basic.te_class], static_cast<unsigned>(basic.te_size));
    }
}

// Every row that meets the mask, so that keywords of one meaning come together.
void dump_qualifiers(dump_text &out, std::uint64_t mask)
{
    if (machine == nullptr) {
        return;
    }
    for (const machine_qualifier &row : machine->mc_qualifiers) {
        if ((row.mask & mask) != 0) {
            out.add(row.keyword);
            out.add(" ");
        }
    }
}

// From the top element down, with nothing between the elements.
void dump_type(dump_text &out, const type_record *tp)
{
    if (tp == nullptr || tp->ty_cnt == 0) {
        return;
    }
    for (const type_element *te = type_top(tp); te != nullptr; te = type_below(tp, te)) {
        switch (te->te_kind) {
        case ty_func:
            out.add("(");
            break;
        case ty_ptr:
            out.add("*");
            break;
        case ty_array:
            out.format("[%u]", static_cast<std::uint32_t>(te->dimension));
            break;
        case ty_qual:
            dump_qualifiers(out, te->mask);
            break;
        case ty_enum:
            dump_tagged(out, "enum ", te->node->enumeration.en_tag, te->node);
            return;
        case ty_struct:
            dump_tagged(out, "struct ", te->node->structure.st_tag, te->node);
            return;
        case ty_basic:
            dump_basic(out, te->basic);
            return;
        default:
            out.add("Unknown type");
            break;
        }
    }
}

void dump_variable(dump_text &out, const sdb_node *node)
{
    const sdb_var &var = node->var;
    out.add(node->sdb_name);
    out.add(" `");
    dump_type(out, var.va_type);
    const bool several = var.va_locations.count() > 1;
    for (const sdb_location *location : each(var.va_locations)) {
        out.add(sdb_location_text(location).text);
        if (several) {
            out.add("[");
            out.add(location->lo_file);
            out.format(":%d-%d]", as_int(location->lo_line), as_int(location->lo_end));
        }
    }
    if (node->sdb_sclass == sc_static && var.va_asmname != nullptr) {
        out.add(" ");
        out.add(var.va_asmname);
    }
    out.format(" %d\n", as_int(node->sdb_line));
}

void dump_module(dump_text &out, const sdb_node *node)
{
    out.add("\"");
    out.add(node->sdb_name);
    out.format("\" %d-%d\n", as_int(node->block.bl_first), as_int(node->block.bl_last));
}

void dump_range_line(dump_text &out, const sdb_node *node)
{
    const sdb_block &block = node->block;
    out.format("%d-%d", as_int(block.bl_first), as_int(block.bl_last));
    if ((node->sdb_flags & SDB_FAKED) != 0) {
        out.add(" (faked)");
    }
    out.add(" ranges:");
    if (block.bl_ranges == nullptr) {
        out.add(" None");
    }
    for (const sdb_range *range = block.bl_ranges; range != nullptr; range = range->next) {
        out.format(" 0x%X-0x%X", range->low, range->high);
    }
    out.add("\n");
}

void dump_function(dump_text &out, const sdb_node *node)
{
    out.add(node->block.bl_func != nullptr ? node->block.bl_func->sdb_name : nullptr);
    out.add("() ");
    dump_range_line(out, node);
}

void dump_head(dump_text &out, const sdb_node *node, const char *tag)
{
    out.add(node->sdb_name);
    if (tag != nullptr) {
        out.add("(");
        out.add(tag);
        out.add(")");
    }
    out.add(" = {");
}

void dump_struct(dump_text &out, const sdb_node *node)
{
    const sdb_struct &structure = node->structure;
    dump_head(out, node, structure.st_tag);
    for (std::uint32_t i = 0; i < structure.st_count; ++i) {
        out.add(" ");
        out.add(structure.st_members[i].sm_name);
        out.add(" `");
        dump_type(out, structure.st_members[i].sm_type);
    }
    out.add(" }\n");
}

void dump_enum(dump_text &out, const sdb_node *node)
{
    const sdb_enum &enumeration = node->enumeration;
    dump_head(out, node, enumeration.en_tag);
    for (std::uint32_t i = 0; i < enumeration.en_count; ++i) {
        out.add(" ");
        out.add(enumeration.en_members[i].name);
        out.format("=%d", enumeration.en_members[i].value);
    }
    out.add(" }\n");
}

// The line of a node; true when a brace block with its members follows.
bool dump_node(dump_text &out, const sdb_node *node)
{
    if (node->sdb_sclass < class_words.size()) {
        out.add(class_words[node->sdb_sclass]);
        out.add(": ");
    }
    switch (node->sdb_sclass) {
    case sc_extern:
    case sc_global:
    case sc_static:
    case sc_auto:
    case sc_param:
    case sc_typedef:
    case sc_reg:
        dump_variable(out, node);
        return false;
    case sc_module:
    case sc_asmodule:
        dump_module(out, node);
        return true;
    case sc_block:
        dump_range_line(out, node);
        return true;
    case sc_func:
        dump_function(out, node);
        return true;
    case sc_struct:
        dump_struct(out, node);
        return false;
    case sc_enum:
        dump_enum(out, node);
        return false;
    case sc_filename:
        out.add("\"");
        out.add(node->sdb_name);
        out.add("\"\n");
        return false;
    default:
        out.format("sclass?? = %d\n", as_int(node->sdb_sclass));
        return false;
    }
}

// Members that are being printed.
struct open_block {
    const sdb_block *block;
    std::uint32_t next;
};

// The members of a block, and within braces those of the blocks among them, however deep.
void dump_members(dump_text &out, const sdb_node *root)
{
    std::vector<open_block> blocks{{&root->block, 0}};
    while (!blocks.empty()) {
        const std::size_t indent = INDENT * (blocks.size() - 1);
        open_block &at = blocks.back();
        if (at.next < at.block->bl_count) {
            const sdb_node *node = at.block->bl_members[at.next++];
            out.blanks(indent);
            if (dump_node(out, node)) {
                out.blanks(indent);
                out.add("{\n");
                blocks.push_back({&node->block, 0});
            }
        } else {
            blocks.pop_back();
            if (!blocks.empty()) {
                out.blanks(indent - INDENT);
                out.add("}\n");
            }
        }
        out.flush_if_large();
    }
}

} // namespace

void sdb_dump()
{
    if (sdb_global == nullptr) {
        return;
    }
    dump_text out;
    out.add("\nGlobal block:\n\n");
    dump_members(out, sdb_global);
    out.add("\n");
}
