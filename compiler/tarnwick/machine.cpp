// SPDX-License-Identifier: MIT
// The choice of the machine, the flags that databases set, and what both machine descriptions share.
#include "compiler/tarnwick/machine.h"

#include <algorithm>
#include <cstring>

#include "common/alert.h"
#include "common/hash_of.h"
#include "common/stringcache.h"
#include "common/trace.h"
#include "compiler/tarnwick/machine_common.h"
#include "compiler/tarnwick/model.h"
#include "compiler/tarnwick/options.h"
#include "compiler/tarnwick/sdb.h"

const machine_description *machine = nullptr;

namespace {

constexpr std::uint32_t MESSAGE_NO_MACHINE = 668;
constexpr std::uint32_t MESSAGE_TWO_MACHINES = 669;
constexpr std::uint32_t FLAG_TABLE_SIZE = 13; // buckets

// The high-end family is asked first: a name that holds parts of both families is its own.
constexpr const machine_description *machines[] = {&machkorh, &machkor};

// The words that databases have set, as key and as value; null before a machine was looked for.
hash_of<const char *, const char *> flags;

const machine_description *machine_by_processor()
{
    if (processor_name == nullptr) {
        return nullptr;
    }
    const auto *found = std::ranges::find_if(
        machines, [](const machine_description *candidate) { return candidate->mc_matches(processor_name); });
    return found != std::end(machines) ? *found : nullptr;
}

// Whether the machine has every word; case does not count here.
bool has_all_words(const machine_description *candidate, vector_of<const char *> prefixes)
{
    std::uint32_t matching = 0;
    for (const char *prefix : each(prefixes)) {
        for (const char *machine_word : candidate->mc_words) {
            matching += str_compare_nocase(prefix, machine_word) == 0 ? 1 : 0;
        }
    }
    return matching == prefixes.count();
}

// An empty list is matched by every machine, and so by more than one.
const machine_description *machine_by_prefixes(vector_of<const char *> prefixes)
{
    const machine_description *found = nullptr;
    for (const machine_description *candidate : machines) {
        if (!has_all_words(candidate, prefixes)) {
            continue;
        }
        if (found != nullptr) {
            alert(MESSAGE_TWO_MACHINES);
            return nullptr;
        }
        found = candidate;
    }
    if (found == nullptr) {
        alert(MESSAGE_NO_MACHINE);
    }
    return found;
}

void add_basic_type(const machine_basic &basic)
{
    type_element te;
    te.te_kind = ty_basic;
    te.te_name = basic.key;
    te.basic = {basic.cls, basic.size, 0};
    sdb_node *node = sdb_new_node(sc_typedef, basic.key);
    node->var.va_type = type_append(type_new(1), te);
    node->sdb_parent = sdb_global;
    node->sdb_index = sdb_global->block.bl_count;
    sdb_add_member(sdb_global, node);
    sdb_add_to_hash(sdb_global, node);
}

void make_global_block()
{
    sdb_global = sdb_new_node(sc_module, nullptr);
    sdb_current = sdb_global;
    for (const machine_basic &basic : machine->mc_basics) {
        add_basic_type(basic);
    }
}

// The function that a place lies in; null when it lies in none.
const sdb_node *enclosing_function(const sdb_context *context)
{
    if (context == nullptr) {
        return nullptr;
    }
    if (context->function_known) {
        return context->function;
    }
    const sdb_node *block = context->block;
    while (block != nullptr && block->sdb_sclass == sc_block) {
        block = block->sdb_parent;
    }
    return block != nullptr && block->sdb_sclass == sc_func ? block : nullptr;
}

// A stack offset holds inside functions only. What a reentrant function keeps on its stack is taken as it stands; of the
// rest, a name with "@" may be a symbol, and then the variable has that symbol's address.
bool check_stack_offset(const sdb_node *variable, sdb_location *location, const sdb_context *context)
{
    const sdb_node *function = enclosing_function(context);
    if (function == nullptr) {
        return false;
    }
    if ((variable->sdb_sclass == sc_auto || variable->sdb_sclass == sc_param) &&
        sdb_is_reentrant(function->block.bl_func)) {
        return true;
    }
    if (location->lo_name != nullptr && std::strchr(location->lo_name, '@') != nullptr) {
        const tarn_symbol *symbol = tarn_find_symbol(location->lo_name);
        if (symbol != nullptr) {
            location->lo_kind = LO_ADDRESS;
            location->lo_value = symbol->sy_value;
            location->lo_space = symbol->sy_space;
        }
    }
    return true;
}

} // namespace

bool machine_init(vector_of<const char *> prefixes)
{
    DB_ASSERT(prefixes, "prefixes != NULL");
    if (machine != nullptr) {
        return true;
    }
    if (!flags) {
        flags = hash_of<const char *, const char *>::make_strings(FLAG_TABLE_SIZE);
    }
    machine = machine_by_processor();
    if (machine == nullptr) {
        machine = machine_by_prefixes(prefixes);
    }
    if (machine == nullptr) {
        return false;
    }
    make_global_block();
    return true;
}

void machine_reset()
{
    machine = nullptr;
    if (flags) {
        flags.free();
    }
}

bool machine_set_flag(const char *word_text)
{
    DB_ASSERT(word_text != nullptr, "s != NULL");
    if (!flags || machine == nullptr || word_text == nullptr) {
        return false;
    }
    for (const char *machine_word : machine->mc_words) {
        if (std::strcmp(machine_word, word_text) == 0) {
            flags.insert(machine_word, machine_word);
            return true;
        }
    }
    return false;
}

bool machine_has_flag(const char *word_text)
{
    DB_ASSERT(word_text != nullptr, "p != NULL");
    return flags && word_text != nullptr && flags.contains(word_text);
}

std::int32_t machine_register_index(const char *name)
{
    if (name == nullptr || *name == '\0' || machine == nullptr) {
        return -1;
    }
    const auto registers = machine->mc_registers;
    const auto found = std::ranges::find_if(registers, [name](const machine_register &row) {
        return *row.name == *name && std::strcmp(row.name, name) == 0;
    });
    return found != registers.end() ? static_cast<std::int32_t>(found - registers.begin()) : -1;
}

std::uint32_t machine_qualifier_mask(char letter)
{
    if (machine == nullptr) {
        return 0;
    }
    for (const machine_qualifier &row : machine->mc_qualifiers) {
        if (row.letter == letter && row.mask != 0) {
            return row.mask;
        }
    }
    return 0;
}

bool machine_name_matches(const char *processor, std::span<const char *const> parts)
{
    if (processor == nullptr) {
        return false;
    }
    return std::ranges::any_of(parts, [processor](const char *part) {
        const std::size_t length = std::strlen(part);
        for (const char *at = processor; *at != '\0'; ++at) {
            if (str_compare_nocase(at, part, length) == 0) {
                return true;
            }
        }
        return false;
    });
}

bool machine_check_location(sdb_node *variable, sdb_location *location, const sdb_context *context,
                            std::uint32_t register_limit)
{
    if (variable == nullptr || location == nullptr) {
        return false;
    }
    switch (location->lo_kind) {
    case LO_ADDRESS:
        return true;
    case LO_REGISTER:
        return location->lo_value <= register_limit;
    case LO_OFFSET:
        return check_stack_offset(variable, location, context);
    default:
        return false;
    }
}

std::uint32_t machine_type_size(const type_record *tp, const type_element *te,
                                std::uint32_t (*pointer_size)(const type_record *tp, const type_element *te))
{
    std::uint32_t factor = 1;
    for (; te != nullptr; te = type_below(tp, te)) {
        switch (te->te_kind) {
        case ty_array:
            factor *= static_cast<std::uint32_t>(te->dimension);
            break;
        case ty_basic:
            return factor * te->basic.te_size;
        case ty_ptr:
            return factor * pointer_size(tp, te);
        case ty_enum:
            return te->node != nullptr ? factor * te->node->enumeration.en_size : 0;
        case ty_struct:
            return te->node != nullptr ? factor * te->node->structure.st_size : 0;
        default:
            return 0; // a function, or a qualifier: callers pass the element under the qualifiers
        }
    }
    return 0;
}
