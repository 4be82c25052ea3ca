// SPDX-License-Identifier: MIT
#include "tests/fuzz/command.h"

#include "compiler/tarnwick/driver.h"
#include "tests/fuzz/host.h"
#include <array>

namespace {

constexpr std::size_t ARGUMENTS_MAX = 256;
constexpr std::size_t TEXT_MAX = 65536;

// The arguments can be written to, as those of `main` can.
std::array<char *, ARGUMENTS_MAX + 1> arguments;
std::array<char, TEXT_MAX> texts;
std::size_t argument_count = 0;
std::size_t text_length = 0;

} // namespace

void command_start()
{
    argument_count = 0;
    text_length = 0;
    command_add("tarnwick");
}

void command_add(std::string_view argument)
{
    argument = argument.substr(0, argument.find('\0'));
    if (argument_count < ARGUMENTS_MAX && text_length + argument.size() < TEXT_MAX) {
        char *text = texts.data() + text_length;
        argument.copy(text, argument.size());
        text[argument.size()] = '\0';
        text_length += argument.size() + 1;
        arguments[argument_count++] = text;
    }
}

void command_run()
{
    arguments[argument_count] = nullptr;
    host_leave(tarnwick_run(static_cast<int>(argument_count), arguments.data()));
}

void command_run(std::initializer_list<std::string_view> words)
{
    command_start();
    for (const std::string_view argument : words) {
        command_add(argument);
    }
    command_run();
}
