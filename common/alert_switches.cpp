// SPDX-License-Identifier: MIT
// The switches over messages: `--msgdisable=`, `--Werror` and the override stack.
#include "common/alert_switches.h"

#include <cstring>
#include <string_view>

#include "common/convert.h"
#include "common/set.h"
#include "common/stringcache.h"
#include "common/vector_of.h"

namespace {

// Codes of `alert_override`. The first six are stored as the action of one number; 2 and 5 act alike.
enum override_code : std::uint32_t {
    OVERRIDE_NONE = 0,
    OVERRIDE_HIDE_WARNING = 1, // messages and warnings
    OVERRIDE_HIDE = 2,         // all but fatal ones
    OVERRIDE_TO_WARNING = 3,
    OVERRIDE_TO_ERROR = 4,
    OVERRIDE_OFF = 5,
    OVERRIDE_PUSH = 6,
    OVERRIDE_POP = 7,
    OVERRIDE_HIDE_ALL_WARNINGS = 8,
    OVERRIDE_HIDE_ALL = 9,
    OVERRIDE_CLEAR = 10,
};

using action_list = vector_of<std::uint32_t>; // indexed by message number

vector_of<vector *> override_stack; // of action lists; null before the first use

// The state of `--Werror`; it exists once both sets do.
bool werror_all = false;
numset *werror_set = nullptr;
numset *no_werror_set = nullptr;
vector_of<const char *> werror_short_options; // "-Werror..."
vector_of<const char *> werror_long_options;  // "--Werror..."

bool is_hidden_by_warning_switches(message_type type)
{
    return type == MESSAGE_PLAIN || type == MESSAGE_WARNING;
}

void apply_werror(message_entry *message)
{
    if (message->type != MESSAGE_WARNING || werror_set == nullptr) {
        return;
    }
    const bool is_error =
        werror_all ? !numset_contains(no_werror_set, message->number) : numset_contains(werror_set, message->number);
    if (is_error) {
        message->type = MESSAGE_ERROR;
    }
}

void apply_override(message_entry *message, std::int32_t warning_level)
{
    const std::uint32_t action =
        override_stack ? action_list(override_stack.last()).get(message->number) : std::uint32_t{OVERRIDE_NONE};
    switch (action) {
    case OVERRIDE_HIDE_WARNING:
        if (is_hidden_by_warning_switches(message->type)) {
            message->type = MESSAGE_SUPPRESSED;
        }
        break;
    case OVERRIDE_HIDE:
    case OVERRIDE_OFF:
        if (message->type != MESSAGE_FATAL) {
            message->type = MESSAGE_SUPPRESSED;
        }
        break;
    case OVERRIDE_TO_WARNING:
        if (message->type == MESSAGE_ERROR) {
            message->type = MESSAGE_WARNING;
            message->level = warning_level;
        }
        break;
    case OVERRIDE_TO_ERROR:
        if (message->type == MESSAGE_WARNING) {
            message->type = MESSAGE_ERROR;
        }
        break;
    default:
        break;
    }
}

void store_action(std::uint32_t number, std::uint32_t action)
{
    // No catalogue holds a higher number, and its report could not be found.
    if (number <= MESSAGE_NUMBER_MAX) {
        action_list(override_stack.last()).set(action, number);
    }
}

void store_action_where(std::uint32_t action, bool (*applies)(message_type type))
{
    alert_initialise();
    for (const message_entry *entry : each(message_table)) {
        if (entry != nullptr && applies(entry->type)) {
            store_action(entry->number, action);
        }
    }
}

struct werror_option {
    bool on = false;             // "Werror", not "Wno-error"
    const char *value = nullptr; // behind "=", or null
};

bool take_werror_word(const char *text, const char *word, const char **value)
{
    const std::size_t length = std::strlen(word);
    if (str_compare_nocase(text, word, length) != 0 || (text[length] != '\0' && text[length] != '=')) {
        return false;
    }
    *value = text[length] == '=' ? text + length + 1 : nullptr;
    return true;
}

bool parse_werror(const char *argument, werror_option *option)
{
    if (argument == nullptr) {
        return false;
    }
    const char *text = argument + std::strspn(argument, "-");
    option->on = take_werror_word(text, "Werror", &option->value);
    return option->on || take_werror_word(text, "Wno-error", &option->value);
}

void record_werror(vector_of<const char *> list, const char *dashes, const werror_option &option)
{
    const char *word = option.on ? "Werror" : "Wno-error";
    list.push(option.value != nullptr ? str_printf("%s%s=%s", dashes, word, option.value)
                                      : str_printf("%s%s", dashes, word));
}

void set_werror_number(std::uint32_t number, bool on)
{
    numset_add(on ? werror_set : no_werror_set, number);
    numset_remove(on ? no_werror_set : werror_set, number);
}

void create_werror_state()
{
    if (werror_set == nullptr) {
        werror_set = numset_new();
        no_werror_set = numset_new();
        werror_short_options = vector_of<const char *>::make();
        werror_long_options = vector_of<const char *>::make();
    }
}

} // namespace

void alert_apply_switches(message_entry *message, std::int32_t warning_level)
{
    apply_werror(message);
    apply_override(message, warning_level);
}

void alert_override(std::uint32_t number, std::uint32_t code)
{
    if (!override_stack) {
        override_stack = vector_of<vector *>::make();
        override_stack.push(action_list::make().raw());
    }
    switch (code) {
    case OVERRIDE_PUSH:
        override_stack.push(action_list(override_stack.last()).copy().raw());
        break;
    case OVERRIDE_POP:
        if (override_stack.count() > 1) {
            action_list(override_stack.pop()).free();
        }
        break;
    case OVERRIDE_HIDE_ALL_WARNINGS:
        store_action_where(OVERRIDE_HIDE_WARNING, is_hidden_by_warning_switches);
        break;
    case OVERRIDE_HIDE_ALL:
        store_action_where(OVERRIDE_HIDE, [](message_type type) { return type != MESSAGE_FATAL; });
        break;
    case OVERRIDE_CLEAR:
        // A cleared vector may show its old words again when it grows, so the empty one is a new one.
        action_list(override_stack.pop()).free();
        override_stack.push(action_list::make().raw());
        break;
    default:
        if (code <= OVERRIDE_OFF) {
            store_action(number, code);
        }
        break;
    }
}

void alert_msgdisable(const char *list)
{
    constexpr std::string_view OFF = ":off";
    if (list[0] == '0') {
        alert_override(0, OVERRIDE_HIDE_ALL_WARNINGS);
        return;
    }
    for (const char *entry = list; *entry != '\0';) {
        const std::size_t length = std::strcspn(entry, ",");
        std::size_t used = 0;
        // An entry that reads as no number acts on number 0.
        const std::uint32_t number = text_to_u32(std::string_view(entry, length), 10, &used);
        const bool off = str_compare_nocase(entry + used, OFF.data(), OFF.size()) == 0;
        alert_override(number, off ? OVERRIDE_OFF : OVERRIDE_HIDE_WARNING);
        entry += length;
        entry += *entry == ',' ? 1 : 0;
    }
}

bool alert_is_werror(const char *argument)
{
    werror_option option;
    return parse_werror(argument, &option);
}

void alert_werror(const char *argument, bool quiet)
{
    constexpr std::uint32_t BAD_WERROR_MESSAGE = 1606;
    werror_option option;
    if (!parse_werror(argument, &option)) {
        return;
    }
    create_werror_state();
    if (option.value == nullptr || str_compare_nocase(option.value, "all") == 0) {
        werror_all = option.on;
        record_werror(werror_short_options, "-", option);
        record_werror(werror_long_options, "--", option);
        return;
    }
    const std::string_view value = option.value;
    std::size_t used = 0;
    const std::uint32_t number = text_to_u32(value, 10, &used);
    if (number != 0) {
        // Text behind the number is reported, and the number is applied all the same.
        set_werror_number(number, option.on);
        record_werror(werror_long_options, "--", option);
    }
    if (!value.empty()) {
        // A number of 0 is recorded here, though it is not applied.
        record_werror(werror_short_options, "-", option);
    }
    if ((number == 0 || used < value.size()) && !quiet) {
        alert_nopos(BAD_WERROR_MESSAGE);
    }
}

vector_of<const char *> alert_werror_options(bool two_dashes)
{
    return two_dashes ? werror_long_options : werror_short_options;
}
