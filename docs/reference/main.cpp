// SPDX-License-Identifier: MIT
// Prints the reference: what people read and shells know of the program, from the tables that the program runs on.
//
//     tarnwick-reference page FILE | messages | bash | zsh | fish
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "docs/reference/reference.h"

namespace {

bool print_part(std::string_view part)
{
    if (part == "messages") {
        return print_messages();
    }
    if (part == "bash") {
        print_bash_completion();
    } else if (part == "zsh") {
        print_zsh_completion();
    } else if (part == "fish") {
        print_fish_completion();
    } else {
        return false;
    }
    return true;
}

} // namespace

int main(int count, char **arguments)
{
    const std::string_view part = count > 1 ? arguments[1] : "";
    if (part == "page" ? count != 3 : count != 2) {
        std::fputs("usage: tarnwick-reference page FILE | messages | bash | zsh | fish\n", stderr);
        return EXIT_FAILURE;
    }
    const bool done = part == "page" ? print_page(arguments[2]) : print_part(part);
    return done && std::fflush(stdout) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
