// SPDX-License-Identifier: MIT
// The whole program: any files, any options, every output.
#include <algorithm>
#include <string_view>

#include "tests/fuzz/command.h"
#include "tests/fuzz/host.h"
#include "tests/fuzz/parts.h"
#include "tests/fuzz/targets.h"

namespace {

constexpr std::string_view COMMAND = "command"; // the part that holds the arguments
constexpr std::string_view USUAL_COMMAND =
    "-pN4A,14A0,KOR18,KORM --code-spaces=1 --data-spaces=2 --eeprom-spaces=3 prog.hex prog.tmf";
constexpr std::string_view BLANKS = " \t\r\n";

void add_words(std::string_view text)
{
    while (true) {
        text.remove_prefix(std::min(text.find_first_not_of(BLANKS), text.size()));
        if (text.empty()) {
            return;
        }
        const std::size_t end = std::min(text.find_first_of(BLANKS), text.size());
        command_add(text.substr(0, end));
        text.remove_prefix(end);
    }
}

} // namespace

// A command without outputs gets all of them.
void fuzz_run(std::string_view input)
{
    std::string_view command = USUAL_COMMAND;
    for (input_part part; take_part(&input, &part);) {
        if (part.name == COMMAND) {
            command = part.content;
        } else {
            host_add_file(part.name.empty() ? "prog.tmf" : part.name, part.content);
        }
    }
    command_start();
    command_add("--emax=100000");
    add_words(command);
    if (command.find("-o") == std::string_view::npos && command.find("-d") == std::string_view::npos) {
        add_words("-ovcoff out.cof -oelf out.elf -oihex out.hex -os19 out.s19 -oorbell out.sym");
    }
    command_run();
}
