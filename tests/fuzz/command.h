// SPDX-License-Identifier: MIT
// A run of the whole program with a command line, inside a fuzz target.
// Each target that runs the whole program ends with it.
#pragma once

#include <initializer_list>
#include <string_view>

// Runs the program with these arguments behind its name, and ends with its status.
[[noreturn]] void command_run(std::initializer_list<std::string_view> arguments);

// A command line that is put together first. Arguments behind the limit, and texts that no longer fit, are left out.
void command_start();
void command_add(std::string_view argument);
[[noreturn]] void command_run();
