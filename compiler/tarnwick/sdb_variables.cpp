// SPDX-License-Identifier: MIT
// Variable records, and how a variable that is declared again merges with its first declaration.
#include <cstdio>
#include <cstring>
#include <string>

#include "common/alert.h"
#include "common/alloc.h"
#include "common/ascii.h"
#include "common/convert.h"
#include "common/trace.h"
#include "compiler/tarnwick/model.h"
#include "compiler/tarnwick/options.h"
#include "compiler/tarnwick/sdb_reader.h"

namespace {

constexpr std::uint32_t MESSAGE_BAD_STORAGE_CLASS = 629;
constexpr std::uint32_t MESSAGE_BAD_LOCATION = 1303;
constexpr std::uint32_t MESSAGE_UNKNOWN_REGISTER = 1304;
constexpr std::uint32_t MESSAGE_OTHER_CLASS = 1305;
constexpr std::uint32_t MESSAGE_OTHER_SIZE = 1306;

constexpr std::uint32_t BIT_NUMBER_MASK = 7;
constexpr std::uint32_t ONE_LOCATION = 1; // most variables have one

// A variable record as read.
struct variable_record {
    sclass cls = sc_null;
    const char *name = nullptr;       // the key of look-ups
    const char *first_name = nullptr; // as written
    const char *asmname = nullptr;    // of a function-scope static
    const char *alias = nullptr;
    type_record *type = nullptr;
    std::int32_t dimension = 0;
    std::uint32_t size = 0;
    sdb_location location;
};

sclass storage_class(char letter)
{
    switch (letter) {
    case 'a':
        return sc_auto;
    case 'e':
        return sc_extern;
    case 'p':
        return sc_param;
    case 'r':
        return sc_reg;
    case 's':
        return sc_static;
    case 't':
        return sc_typedef;
    default:
        return sc_null;
    }
}

std::uint32_t default_data_space()
{
    return static_cast<std::uint32_t>(set_min(data_spaces));
}

// A name that the program model knows becomes its symbol's address.
void resolve_name(sdb_location &location)
{
    const tarn_symbol *symbol = *location.lo_name != '\0' ? tarn_find_symbol(location.lo_name) : nullptr;
    if (symbol != nullptr) {
        location.lo_kind = LO_ADDRESS;
        location.lo_value = symbol->sy_value;
        location.lo_space = symbol->sy_space;
    }
}

// A bit variable's address is a bit address; its type remembers the place within the byte.
void set_bit_position(const variable_record &record)
{
    type_record *tp = record.type;
    if (record.location.lo_kind != LO_ADDRESS || tp == nullptr || tp->ty_cnt == 0) {
        return;
    }
    const type_element *te = type_top(tp);
    while (te != nullptr && te->te_kind == ty_qual) {
        te = type_below(tp, te);
    }
    if (isBitType(te)) {
        tp->elements[0].basic.te_bitpos = static_cast<std::uint8_t>(record.location.lo_value & BIT_NUMBER_MASK);
    }
}

// The location of a static or external variable: its symbol, or "@" and an address.
void set_static_location(const sdb_token &token, variable_record &record)
{
    sdb_location &location = record.location;
    if (record.cls == sc_static && record.first_name[0] == 'F' && is_letter(token.at(0))) {
        // A static of a function: the first name is the assembler's, the token the name in the source behind a letter.
        record.asmname = record.first_name;
        record.name = sdb_keep(std::string("_").append(token.text.substr(1)));
    }
    if (record.asmname != nullptr || token.at(0) != '@') {
        location.lo_kind = LO_NAME;
        location.lo_name = record.first_name;
        resolve_name(location);
    } else {
        location.lo_kind = LO_ADDRESS;
        location.lo_value = static_cast<std::uint32_t>(text_to_int(token.text.substr(1)));
        location.lo_space = default_data_space();
    }
}

// False when the record is to be dropped, with what is left of it unread: its "]" is then a syntax error, as designed.
bool set_location(const sdb_token &token, variable_record &record)
{
    sdb_location &location = record.location;
    location.lo_file = sdb_reading.file != nullptr ? sdb_reading.file : "nofile";
    location.lo_line = sdb_reading.line;
    const std::string text(token.text);
    const std::int32_t index = machine_register_index(text.c_str());
    if (index >= 0) {
        location.lo_kind = LO_REGISTER;
        location.lo_value = static_cast<std::uint32_t>(index);
        location.lo_name = machine->mc_registers[static_cast<std::size_t>(index)].name;
    } else if (record.cls == sc_reg) {
        alert(MESSAGE_UNKNOWN_REGISTER, text.c_str());
        return false;
    } else if (record.cls == sc_auto || record.cls == sc_param) {
        location.lo_kind = LO_OFFSET;
        location.lo_value = static_cast<std::uint32_t>(text_to_int(token.text));
        location.lo_name = record.name;
    } else {
        set_static_location(token, record);
    }
    set_bit_position(record);
    return true;
}

void expect_end(sdb_input &in)
{
    const sdb_token token = in.tokens.next();
    if (!token.is("]")) {
        sdb_report_missing(in, token, ']');
    }
}

// Steps 1 to 9 of the record; false when it is dropped.
bool read_record(sdb_input &in, variable_record &record)
{
    record.first_name = sdb_keep(in.tokens.next().text);
    symbols_by_name.prefetch(record.first_name); // its address will be asked for
    record.name = record.first_name;
    const sdb_token alias = in.tokens.next();
    record.alias = alias.text == record.name ? record.name : sdb_keep(alias.text);
    record.type = sdb_parse_type(in.tokens.next().text);
    record.dimension = sdb_apply_dimension(in.tokens.next(), &record.type);
    const sdb_token storage = in.tokens.next();
    record.cls = storage_class(storage.at(0));
    if (record.cls == sc_null) {
        alert(MESSAGE_BAD_STORAGE_CLASS, sdb_keep(storage.text), in.path, storage.line, storage.column);
        return false;
    }
    record.size = static_cast<std::uint32_t>(text_to_int(in.tokens.next().text));
    if (record.cls != sc_typedef && !set_location(in.tokens.next(), record)) {
        return false;
    }
    expect_end(in);
    return true;
}

void report_location(const sdb_node *variable, const sdb_location &location)
{
    alert(MESSAGE_BAD_LOCATION, variable->sdb_name, sdb_location_text(&location).text);
}

sdb_context search_context()
{
    return {.block = sdb_current,
            .count = sdb_current->block.bl_count,
            .function_known = true,
            .function = sdb_reading.function};
}

// A function's location is not the machine's business.
bool location_passes(sdb_node *variable, sdb_location &location)
{
    const sdb_context context = search_context();
    return isfunc(variable->var.va_type) || machine->mc_check_location(variable, &location, &context);
}

// Adds a location to a variable, unless the machine refuses it.
void check_location(sdb_node *variable, sdb_location &location)
{
    if (!location_passes(variable, location)) {
        TRACEF(TRACE_SDB, "%s: Location for variable %s is invalid", "check_location", variable->sdb_name);
        report_location(variable, location);
        return;
    }
    auto *copy = xnew<sdb_location>(location);
    copy->lo_id = sdb_next_location_id();
    if (!variable->var.va_locations) {
        variable->var.va_locations = vector_of<sdb_location *>::make_lasting(ONE_LOCATION);
    }
    variable->var.va_locations.push(copy);
    if (opt_verbose != 0) {
        std::fprintf(stderr, "Added location to '%s': %s\n", variable->sdb_name, sdb_location_text(copy).text);
    }
}

bool same_location(const sdb_location &left, const sdb_location &right)
{
    if (left.lo_line != right.lo_line || left.lo_end != right.lo_end || left.lo_kind != right.lo_kind ||
        std::strcmp(left.lo_file, right.lo_file) != 0) {
        return false;
    }
    switch (left.lo_kind) {
    case LO_NAME:
        return std::strcmp(left.lo_name, right.lo_name) == 0;
    case LO_ADDRESS:
        return left.lo_value == right.lo_value && left.lo_space == right.lo_space;
    default:
        return left.lo_value == right.lo_value;
    }
}

// Whether a variable has a location already. Only its first one is compared, however many it has: that is intended.
bool has_location(const sdb_node *variable, const sdb_location &location)
{
    const auto locations = variable->var.va_locations;
    return !locations.empty() && same_location(*locations.get(0), location);
}

// Takes the size and, where it may grow, the type of a new declaration. False when it does not fit the first.
bool merge_size(sdb_node *variable, const variable_record &record)
{
    sdb_var &var = variable->var;
    const bool may_grow = record.cls == sc_extern || record.cls == sc_static;
    if (may_grow ? record.size < var.va_size : record.size != var.va_size) {
        alert(MESSAGE_OTHER_SIZE, static_cast<std::int32_t>(var.va_size), static_cast<std::int32_t>(record.size),
              record.name);
        return false;
    }
    if (may_grow) {
        var.va_type = record.type;
        var.va_size = record.size;
    }
    return true;
}

// The variable has moved: its last location ends here, and the new one holds from here on.
void append_location(sdb_node *variable, sdb_location &location)
{
    const auto locations = variable->var.va_locations;
    if (!locations.empty()) {
        locations.last()->lo_end = sdb_reading.line;
    }
    check_location(variable, location);
}

// A block that the source does not have, so that a redefinition gets a variable of its own. Each redefinition makes one.
sdb_node *make_faked_block()
{
    sdb_node *node = sdb_new_node(sc_block, nullptr);
    node->sdb_flags = SDB_FAKED;
    node->block.bl_first = sdb_reading.line;
    node->block.bl_file = sdb_reading.file;
    sdb_enter(node);
    sdb_current = node;
    return node;
}

sdb_node *new_variable(variable_record &record)
{
    sdb_node *node = sdb_new_node(record.cls, record.name);
    node->sdb_line = sdb_reading.line;
    node->var.va_asmname = record.asmname;
    node->var.va_alias = record.alias;
    node->var.va_size = record.size;
    node->var.va_type = record.type;
    node->var.va_dim = record.dimension;
    if (record.cls != sc_typedef) {
        check_location(node, record.location);
    }
    sdb_enter_named(node);
    return node;
}

// Merges a record with the variable of its name.
sdb_variable_result merge_variable(sdb_node *variable, variable_record &record)
{
    if (variable->sdb_sclass != record.cls) {
        alert(MESSAGE_OTHER_CLASS, record.name);
        return {};
    }
    if (!merge_size(variable, record)) {
        return {};
    }
    if (record.cls == sc_typedef) {
        return {.variable = new_variable(record)}; // a second node, which later look-ups find first
    }
    if (!location_passes(variable, record.location)) {
        // The location is offered again below, refused again, and the message comes twice.
        report_location(variable, record.location);
    } else if (has_location(variable, record.location)) {
        return {.variable = variable};
    }
    if (!opt_fake_blocks) {
        append_location(variable, record.location);
        return {.variable = variable};
    }
    sdb_node *faked = make_faked_block();
    return {.variable = new_variable(record), .faked_block = faked};
}

} // namespace

void sdb_report_missing(const sdb_input &in, const sdb_token &token, char character)
{
    constexpr std::uint32_t MESSAGE_MISSING = 627;
    alert(MESSAGE_MISSING, character, in.path, token.line, token.column);
}

sdb_variable_result sdb_read_variable(sdb_input &in)
{
    variable_record record;
    if (!read_record(in, record)) {
        return {};
    }
    // Locals outside of any function are dropped without a word.
    if ((record.cls == sc_auto || record.cls == sc_param) && sdb_current->sdb_sclass == sc_module) {
        return {};
    }
    // A function-scope static is looked for by its assembler name.
    sdb_node *variable = sdb_lookup_local_here(record.asmname != nullptr ? record.first_name : record.name);
    if (variable == nullptr) {
        return {.variable = new_variable(record)};
    }
    return merge_variable(variable, record);
}
