// SPDX-License-Identifier: MIT
// The parts of the reference that are made from the program's own tables. Each prints on the standard output.
#pragma once

// A page, in which a line "<!-- table: NAME -->" gives way to what is made from the table. False, after a word on the
// standard error stream, when the page cannot be read, names a table that does not exist, or a table is not whole.
bool print_page(const char *path);

// The reference of messages; false when catalogue and causes do not fit together.
bool print_messages();

void print_bash_completion();
void print_zsh_completion();
void print_fish_completion();
