// SPDX-License-Identifier: MIT
// The records of structs and unions, enums, defines and almanacs.
#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <string_view>
#include <vector>

#include "common/alert.h"
#include "common/alloc.h"
#include "common/convert.h"
#include "common/hash_of.h"
#include "common/trace.h"
#include "compiler/tarnwick/sdb_reader.h"

namespace {

constexpr std::uint32_t MESSAGE_BAD_DEFINE = 1292;

constexpr std::uint32_t DEFINE_TABLE_SIZE = 8; // buckets
constexpr std::uint32_t ALMANAC_TABLE_SIZE = 8;

constexpr std::uint32_t ALMANAC_WORD_MAX = 64; // characters
constexpr std::uint32_t DEFINE_HASH_FACTOR = 2;
constexpr int DECIMAL = 10;
constexpr int ANY_BASE = 0;

hash_of<const char *, const char *> defines;
hash_of<const char *, std::int32_t> almanac_m;
hash_of<const char *, std::int32_t> almanac_r;
std::int32_t frameptr = 0;
bool frameptr_known = false;

void trace_token(const char *who, const char *format_name, const sdb_token &token)
{
    TRACEF(TRACE_SDB, "%s: %s %.*s", who, format_name, static_cast<int>(token.text.size()), token.text.data());
}

// The node that a declaration fills: the forward reference or empty declaration of its name, or a new node.
sdb_node *declared_node(sclass cls, const char *name)
{
    sdb_node *node = sdb_lookup_local_here(name);
    const bool open = node != nullptr && node->sdb_sclass == cls &&
                      (cls == sc_struct ? node->structure.st_count == 0 : node->enumeration.en_count == 0);
    if (!open) {
        node = sdb_new_node(cls, name);
        node->sdb_line = sdb_reading.line;
        sdb_enter_named(node);
    }
    return node;
}

// The name token of a struct or enum, traced with the block it is declared in.
sdb_node *read_name(sdb_input &in, sclass cls, const char *who)
{
    const sdb_token token = in.tokens.next();
    trace_token(who, "name =", token);
    TRACEF(TRACE_SDB, "%s: block name = %s", who, sdb_current->sdb_name != nullptr ? sdb_current->sdb_name : "");
    return declared_node(cls, sdb_keep(token.text));
}

// ":offset:width" of a bit field.
void read_bit_field(std::string_view text, sdb_member *member)
{
    const std::array<std::int32_t *, 2> fields{&member->sm_bitoff, &member->sm_bitwidth};
    for (std::int32_t *field : fields) {
        if (text.empty()) {
            return;
        }
        text.remove_prefix(1); // the colon
        const std::size_t end = std::min(text.find(':'), text.size());
        *field = text_to_int(text.substr(0, end));
        text.remove_prefix(end);
    }
}

bool begins_with_digit(const sdb_token &token)
{
    return token.at(0) >= '0' && token.at(0) <= '9';
}

// Reads a member from its type string on, and the token behind it.
sdb_token read_member(sdb_input &in, sdb_token token, sdb_member *member)
{
    member->sm_type = sdb_parse_type(token.text);
    token = in.tokens.next();
    if (begins_with_digit(token)) {
        sdb_apply_dimension(token, &member->sm_type);
        token = in.tokens.next();
    }
    member->sm_name = token.is(".") ? nullptr : sdb_keep(token.text);
    member->sm_offset = text_to_int(in.tokens.next().text);
    member->sm_size = text_to_int(in.tokens.next().text);
    token = in.tokens.next();
    if (token.at(0) == ':') {
        read_bit_field(token.text, member);
        token = in.tokens.next();
    }
    return token;
}

// A copy of a list that lives as long as the tree; null when it is empty.
template <typename T>
T *keep_list(const std::vector<T> &list)
{
    if (list.empty()) {
        return nullptr;
    }
    auto *kept = static_cast<T *>(xarena(list.size() * sizeof(T), alignof(T)));
    std::uninitialized_copy(list.begin(), list.end(), kept);
    return kept;
}

// The size of an enum: that of the basic type it is given.
std::uint32_t enum_size(const type_record *tp)
{
    const bool basic = tp != nullptr && tp->ty_cnt > 0 && tp->elements[0].te_kind == ty_basic;
    return basic ? tp->elements[0].basic.te_size : 0;
}

std::uint32_t define_hash(word key)
{
    std::uint32_t hash = 0;
    for (const char *at = from_word<const char *>(key); *at != '\0'; ++at) {
        hash = static_cast<unsigned char>(*at) + hash * DEFINE_HASH_FACTOR;
    }
    return hash;
}

hash_of<const char *, std::int32_t> *almanac(char letter)
{
    switch (letter) {
    case 'm':
        return &almanac_m;
    case 'r':
        return &almanac_r;
    default:
        return nullptr;
    }
}

// Enters a word with the counter, or with the number behind its "="; counting goes on from there.
void add_almanac_word(hash_of<const char *, std::int32_t> table, std::string_view text, std::uint32_t *counter)
{
    text = text.substr(0, ALMANAC_WORD_MAX);
    const std::size_t equals = text.find('=');
    if (equals != std::string_view::npos) {
        *counter = static_cast<std::uint32_t>(text_to_i32(text.substr(equals + 1), DECIMAL));
        text = text.substr(0, equals);
    }
    table.insert(sdb_keep(text), static_cast<std::int32_t>(*counter));
    ++*counter;
}

} // namespace

void sdb_read_struct(sdb_input &in, bool is_union)
{
    constexpr const char *who = "structdecl";
    TRACEF(TRACE_SDB, "is_union(%u)", is_union ? 1U : 0U);
    sdb_struct &out = read_name(in, sc_struct, who)->structure;
    out.st_union = is_union;
    const sdb_token tag = in.tokens.next();
    trace_token(who, "next token =", tag);
    out.st_tag = tag.is(".") ? nullptr : sdb_keep(tag.text);
    TRACEF(TRACE_SDB, "%s: tag name = %s", who, out.st_tag != nullptr ? out.st_tag : "");
    const sdb_token size = in.tokens.next();
    trace_token(who, "size =", size);
    out.st_size = static_cast<std::uint32_t>(text_to_int(size.text));
    std::vector<sdb_member> members;
    sdb_token token = in.tokens.next();
    while (token.present && !token.is("]")) {
        trace_token(who, "next token is", token);
        token = read_member(in, token, &members.emplace_back());
    }
    out.st_count = static_cast<std::uint32_t>(members.size());
    out.st_members = keep_list(members);
}

void sdb_read_enum(sdb_input &in)
{
    constexpr const char *who = "enumdecl";
    sdb_enum &out = read_name(in, sc_enum, who)->enumeration;
    const sdb_token tag = in.tokens.next();
    out.en_tag = sdb_keep(tag.text); // a "." as it stands, unlike a struct's
    TRACEF(TRACE_SDB, "%s: tag name = %s", who, out.en_tag);
    sdb_token token = in.tokens.next();
    trace_token(who, "next token =", token);
    if (token.at(0) == '`') {
        out.en_size = enum_size(sdb_parse_type(token.text));
        token = in.tokens.next();
    }
    std::vector<sdb_enumerator> members;
    for (; token.present && !token.is("]"); token = in.tokens.next()) {
        trace_token(who, "next token is", token);
        members.push_back({sdb_keep(token.text), text_to_int(in.tokens.next().text)});
    }
    // The count has 16 bits: what no count can hold is left out.
    members.resize(std::min<std::size_t>(members.size(), std::numeric_limits<std::uint16_t>::max()));
    out.en_count = static_cast<std::uint16_t>(members.size());
    out.en_members = keep_list(members);
}

void sdb_read_define(sdb_input &in)
{
    if (!defines) {
        defines = hash_of<const char *, const char *>(hash_new(DEFINE_TABLE_SIZE, define_hash, compare_key_string));
    }
    const char *name = sdb_keep(in.tokens.next().text);
    const char *value = sdb_keep(in.tokens.next().text);
    if (!in.tokens.next().is("]")) {
        alert(MESSAGE_BAD_DEFINE, in.path);
    }
    defines.insert(name, value);
}

std::int32_t sdb_get_frameptr()
{
    if (frameptr_known) {
        return frameptr;
    }
    const char *text = defines ? defines.get("frameptr") : nullptr;
    DB_ASSERT(text != nullptr, "sdb_has_framptr()"); // the word is spelled so
    if (text == nullptr) {
        return 0;
    }
    frameptr = text_to_i32(text, ANY_BASE);
    frameptr_known = true;
    DB_ASSERT(frameptr > 0, "frameptr > 0");
    // A number that is out of range saturates, and as unsigned it is another.
    DB_ASSERT(text_to_u32(text, ANY_BASE) == static_cast<std::uint32_t>(frameptr), "errno == 0");
    return frameptr;
}

void sdb_read_almanac(sdb_input &in)
{
    sdb_token token = in.tokens.next();
    if (!token.present || token.is("]")) {
        alert_text("E", "malformed almanac in .SDB file %s", in.path);
        return;
    }
    auto *table = almanac(token.at(0));
    if (table == nullptr) {
        alert_text("E", "Unknown almanac in .SDB file %s", in.path);
        return;
    }
    if (!*table) {
        *table = hash_of<const char *, std::int32_t>(hash_new(ALMANAC_TABLE_SIZE, hash_key_string, compare_key_nocase));
    }
    std::uint32_t counter = 0;
    for (token = in.tokens.next(); token.present && !token.is("]"); token = in.tokens.next()) {
        add_almanac_word(*table, token.text, &counter);
    }
}

bool sdb_almanac_number(char table, const char *word_text, std::int32_t *number)
{
    const auto *words = almanac(table);
    if (words == nullptr || !*words || !words->contains(word_text)) {
        return false;
    }
    *number = words->get(word_text);
    return true;
}

void sdb_records_reset()
{
    if (defines) {
        defines.free();
    }
    if (almanac_m) {
        almanac_m.free();
    }
    if (almanac_r) {
        almanac_r.free();
    }
    frameptr = 0;
    frameptr_known = false;
}
