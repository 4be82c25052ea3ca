// SPDX-License-Identifier: MIT
// The options in one table. The command line is read by it, and the usage text, the manual page and the shells'
// completion are made from it, so that they cannot drift apart.
#pragma once

#include <cstdint>
#include <span>

enum class option_match : std::uint8_t {
    LETTER,        // "-" and the letter, in either case; more may follow
    PREFIX,        // "--", the name, "=" and a value; without regard to case, as all long names
    WHOLE,         // "--" and the name alone
    NAME,          // "--" and the name, with or without "=" and a value
    MESSAGE_LAYER, // what the message layer takes as its own
    NEVER,         // stands in the usage text, and is recognised nowhere
};

// What stands directly behind the letter or the "=": what a shell can offer there.
enum class option_argument : std::uint8_t {
    NONE,
    PATH,
    INPUT_FORMAT,  // a key of the table of formats
    OUTPUT_FORMAT, // a key of a format that can be written
    CHIP,          // a processor's name and words
    NUMBER,
    LIST,     // pieces of the user's own, parted by commas
    WORD,     // one of `words`
    MESSAGES, // numbers of messages, parted by commas
    WARNING,  // the number of a warning
};

enum class option_audience : std::uint8_t {
    EVERYONE,
    SUPPORT, // the manual page keeps it in a section of its own, and no shell offers it
};

struct argument_cursor {
    int count = 0;
    char *const *arguments = nullptr;
    int next = 0; // index of the argument that is taken next

    bool more() const { return next < count; }
};

// An option as it was met.
struct option_use {
    const char *argument = nullptr; // the whole of it
    const char *value = nullptr;    // behind the letter or the "="; null without "="
    argument_cursor *rest = nullptr;
};

using option_handler = void (*)(const option_use &use);

struct option_row {
    static constexpr std::uint8_t USAGE_COLUMNS = 27;

    const char *name = nullptr; // the letter, or the long name without its dashes
    option_match match = option_match::NEVER;
    option_handler handler = nullptr;  // null for an option that is recognised nowhere
    const char *form = nullptr;        // how people are told to write it
    const char *all_forms = nullptr;   // all ways to write it, parted by ", "; null where the form is the only one
    const char *help = nullptr;        // one line
    const char *description = nullptr; // a paragraph in the markup of the manual page
    option_argument argument = option_argument::NONE;
    bool argument_optional = false;
    const char *words = ""; // known values, parted by blanks
    option_audience audience = option_audience::EVERYONE;
    std::uint8_t usage_line = 0; // place in the usage text, counted from 1; 0 for an option that it leaves out
    std::uint8_t usage_columns = USAGE_COLUMNS; // to which the form is filled up with blanks in front
};

// Long options stand in the order in which they are tried.
extern const std::span<const option_row> option_table;
