// SPDX-License-Identifier: MIT
// Type strings. A string is a run of prefixes, outermost first, and the name of a base type. The prefixes are gathered
// first and applied from the innermost outwards, so that a type of any length needs no recursion.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "common/alert.h"
#include "common/alloc.h"
#include "common/ascii.h"
#include "common/convert.h"
#include "common/stringcache.h"
#include "common/trace.h"
#include "compiler/tarnwick/sdb_reader.h"

namespace {

constexpr std::uint32_t MESSAGE_NO_MEMORY = 294;
constexpr int DECIMAL = 10;

// One prefix of a type string.
struct type_prefix {
    type_kind kind;
    std::int64_t value;    // pointer class or dimension
    std::string_view text; // of a pointer; of a qualifier its letter
};

// Walks a type string.
struct type_text {
    std::string_view text;
    std::size_t at = 0;

    char peek(std::size_t ahead = 0) const { return at + ahead < text.size() ? text[at + ahead] : '\0'; }
    std::string_view digits()
    {
        const std::size_t begin = at;
        while (is_digit(peek())) {
            ++at;
        }
        return text.substr(begin, at - begin);
    }
    std::string_view rest() const { return text.substr(at); }
};

type_prefix take_pointer(type_text &in)
{
    const std::size_t begin = in.at++;
    std::int32_t number = 0;
    if (in.peek() == '.') {
        ++in.at;
        const std::string_view digits = in.digits();
        DB_ASSERT(!digits.empty(), "bp > cp+2");
        DB_ASSERT(in.peek() != '\0', "*bp != '\\0'");
        number = text_to_i32(digits, DECIMAL);
    }
    return {ty_ptr, number, in.text.substr(begin, in.at - begin)};
}

type_prefix take_array(type_text &in)
{
    ++in.at;
    const std::uint32_t dimension = text_to_u32(in.digits(), DECIMAL);
    if (in.peek() == ']') {
        ++in.at;
    }
    return {ty_array, dimension, {}};
}

// Takes the next prefix; false at the base. Each prefix, and the base, may have one "`" in front.
bool take_prefix(type_text &in, type_prefix *prefix)
{
    if (in.peek() == '`') {
        ++in.at;
    }
    const char c = in.peek();
    if (c == '*') {
        *prefix = take_pointer(in);
    } else if (c == '[') {
        *prefix = take_array(in);
    } else if (c == '(') {
        ++in.at;
        *prefix = {ty_func, 0, {}};
    } else if (is_upper(c) && !is_digit(in.peek(1))) {
        *prefix = {ty_qual, 0, in.text.substr(in.at++, 1)};
    } else {
        return false;
    }
    return true;
}

// A struct or enum that is used before it is declared. Names of enums begin with "E".
sdb_node *forward_reference(const char *name)
{
    if (sdb_current == nullptr) {
        return nullptr;
    }
    sdb_node *node = sdb_new_node(name[0] == 'E' ? sc_enum : sc_struct, name);
    node->sdb_line = sdb_reading.line;
    sdb_enter_named(node);
    return node;
}

// The node that a base name stands for, or null.
sdb_node *base_node(std::string_view text)
{
    const char c = text.empty() ? '\0' : text[0];
    const std::string name(text);
    if (is_lower(c) && sdb_global != nullptr) {
        sdb_node *node = sdb_scope_lookup(name.c_str(), sdb_global, sdb_global->block.bl_count);
        if (node != nullptr) {
            return node;
        }
    }
    if (!is_lower(c) && !is_upper(c) && c != '_') {
        std::fprintf(stderr, "Encountered type string %s\n", name.c_str());
        return nullptr;
    }
    sdb_node *node = sdb_lookup_here(name.c_str());
    if (node == nullptr && is_upper(c)) {
        node = forward_reference(sdb_keep(text));
    }
    return node;
}

// The text of a reference; shared with the node's name where it is that.
const char *reference_text(const sdb_node *node, std::string_view text)
{
    return node->sdb_name != nullptr && text == node->sdb_name ? node->sdb_name : sdb_keep(text);
}

// A typedef's elements, or none when there are more than the file can stand for.
std::uint32_t typedef_elements(const sdb_node *node)
{
    if (!sdb_is_variable(node->sdb_sclass) || node->var.va_type == nullptr) {
        return 0;
    }
    const std::uint32_t count = node->var.va_type->ty_cnt;
    if (sdb_reading.input != nullptr) {
        if (count > sdb_reading.input->type_budget) {
            alert(MESSAGE_NO_MEMORY, static_cast<std::uint32_t>(count * sizeof(type_element)));
            return 0;
        }
        sdb_reading.input->type_budget -= count;
    }
    return count;
}

// A record of the base and room for `prefixes` more elements; null when both are nothing.
type_record *base_record(const sdb_node *node, std::string_view text, std::uint32_t prefixes)
{
    if (node != nullptr && (node->sdb_sclass == sc_struct || node->sdb_sclass == sc_enum)) {
        type_element te;
        te.te_kind = node->sdb_sclass == sc_struct ? ty_struct : ty_enum;
        te.te_name = reference_text(node, text);
        te.node = const_cast<sdb_node *>(node);
        return type_append(type_new(1 + prefixes), te);
    }
    // A typedef disappears at once: what it stands for is copied.
    const std::uint32_t count = node != nullptr ? typedef_elements(node) : 0;
    if (count + prefixes == 0) {
        return nullptr;
    }
    type_record *tp = type_new(count + prefixes);
    for (std::uint32_t i = 0; i < count; ++i) {
        tp = type_append(tp, node->var.va_type->elements[i]);
    }
    return tp;
}

// Elements that the prefixes make: letters that follow each other share one.
std::uint32_t prefix_elements(const std::vector<type_prefix> &prefixes)
{
    std::uint32_t count = 0;
    for (std::size_t i = 0; i < prefixes.size(); ++i) {
        count += prefixes[i].kind != ty_qual || i == 0 || prefixes[i - 1].kind != ty_qual ? 1 : 0;
    }
    return count;
}

// Applies the letters `begin` to `end`, outermost first, to the top of a type.
type_record *apply_qualifiers(type_record *tp, const type_prefix *begin, const type_prefix *end)
{
    if (tp->ty_cnt == 0 || tp->elements[tp->ty_cnt - 1].te_kind != ty_qual) {
        type_element te;
        te.te_kind = ty_qual;
        tp = type_append(tp, te);
    }
    type_element &top = tp->elements[tp->ty_cnt - 1];
    std::string letters; // innermost first
    for (const type_prefix *prefix = end; prefix-- != begin;) {
        const char letter = prefix->text[0];
        const std::uint32_t mask = machine_qualifier_mask(letter);
        if (mask == 0) {
            std::fprintf(stderr, "Unknown qualifier %c\n", letter);
            continue;
        }
        top.mask |= mask;
        letters.push_back(letter);
    }
    if (!letters.empty()) {
        std::ranges::reverse(letters);
        letters += top.te_name != nullptr ? top.te_name : "";
        top.te_name = sdb_keep(letters); // a typedef's own text stays as it is
    }
    return tp;
}

const char *array_text(std::uint32_t dimension)
{
    return str_printf("[%u]", dimension);
}

type_record *apply_prefix(type_record *tp, const type_prefix &prefix)
{
    type_element te;
    te.te_kind = prefix.kind;
    switch (prefix.kind) {
    case ty_ptr:
        te.te_name = prefix.text == "*" ? "*" : str_cache(prefix.text);
        te.ptr_class = prefix.value;
        break;
    case ty_array:
        te.te_name = array_text(static_cast<std::uint32_t>(prefix.value));
        te.dimension = static_cast<std::uint64_t>(prefix.value);
        break;
    default:
        te.te_name = "(";
        break;
    }
    return type_append(tp, te);
}

} // namespace

type_record *sdb_parse_type(std::string_view text)
{
    type_text in{text};
    std::vector<type_prefix> prefixes;
    type_prefix prefix{};
    while (take_prefix(in, &prefix)) {
        prefixes.push_back(prefix);
    }
    const sdb_node *node = base_node(in.rest());
    type_record *tp = base_record(node, in.rest(), prefix_elements(prefixes));
    const type_prefix *begin = prefixes.data();
    for (const type_prefix *end = begin + prefixes.size(); end != begin;) {
        const type_prefix *last = end - 1;
        if (last->kind != ty_qual) {
            tp = apply_prefix(tp, *last);
            end = last;
            continue;
        }
        while (last != begin && (last - 1)->kind == ty_qual) {
            --last;
        }
        tp = apply_qualifiers(tp, last, end);
        end = last;
    }
    return tp;
}

type_record *sdb_parse_type(const char *text)
{
    return sdb_parse_type(std::string_view(text));
}

std::int32_t sdb_apply_dimension(const sdb_token &token, type_record **type)
{
    const std::int32_t dimension = text_to_int(token.text);
    if (token.last() == 'a') {
        const type_prefix prefix{ty_array, static_cast<std::uint32_t>(dimension), {}};
        *type = apply_prefix(*type != nullptr ? *type : type_new(1), prefix);
    }
    return dimension;
}
