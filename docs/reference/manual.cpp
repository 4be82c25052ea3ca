// SPDX-License-Identifier: MIT
// The tables within the manual page.
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>
#include <string_view>

#include "compiler/tarnwick/format.h"
#include "compiler/tarnwick/option_table.h"
#include "docs/reference/reference.h"

namespace {

// What no descriptor tells: an ELF or UBROF file is accepted as an input and adds nothing.
struct format_note {
    std::string_view key;
    const char *what;
    bool adds; // to the program model when it is read
};

constexpr format_note format_notes[] = {
    {"tarnsym", "the linker's map file, and the symbol databases of the objects that it names", true},
    {"orbell", "the legacy symbol file", true},
    {"ihex", "an image in Intel HEX", true},
    {"s19", "an image in Motorola S-records", true},
    {"vcoff", "the COFF dialect of these chips", true},
    {"elf", "32-bit ELF with DWARF 2 or 3", false},
    {"ubrof", "UBROF", false},
};

// `code` for each form.
std::string forms_of(const option_row &row)
{
    std::string forms = "`";
    for (const char *c = row.all_forms != nullptr ? row.all_forms : row.form; *c != '\0'; ++c) {
        if (c[0] == ',' && c[1] == ' ') {
            forms += "`, `";
            ++c;
        } else {
            forms += *c;
        }
    }
    forms += '`';
    return forms;
}

bool print_options(option_audience audience)
{
    for (const option_row &row : option_table) {
        if (row.audience == audience) {
            std::printf("%s\n: %s\n\n", forms_of(row).c_str(), row.description);
        }
    }
    return true;
}

bool print_options_for_everyone()
{
    return print_options(option_audience::EVERYONE);
}

bool print_options_for_support()
{
    return print_options(option_audience::SUPPORT);
}

const char *yes(bool is)
{
    return is ? "yes" : "";
}

bool print_formats()
{
    std::puts("| key | format | extension | reads | writes | prints |\n|---|---|---|---|---|---|");
    for (const format_descriptor *format : format_table) {
        const auto *note = std::find_if(std::begin(format_notes), std::end(format_notes),
                                        [&](const format_note &row) { return row.key == format->key; });
        if (note == std::end(format_notes)) {
            std::fprintf(stderr, "format %s has no note\n", format->key);
            return false;
        }
        std::printf("| `%s` | %s | `.%s` | %s | %s | %s |\n", format->key, note->what, format->ext, yes(note->adds),
                    yes(format->write != format_no_transfer), yes(format->dump != format_no_dump));
    }
    return true;
}

struct page_table {
    std::string_view mark;
    bool (*print)();
};

constexpr page_table page_tables[] = {
    {"<!-- table: options -->", print_options_for_everyone},
    {"<!-- table: support -->", print_options_for_support},
    {"<!-- table: formats -->", print_formats},
};

bool print_page_line(const std::string &line)
{
    if (!line.starts_with("<!-- table:")) {
        return std::puts(line.c_str()) != EOF;
    }
    const auto *table = std::find_if(std::begin(page_tables), std::end(page_tables),
                                     [&](const page_table &row) { return row.mark == line; });
    if (table == std::end(page_tables)) {
        std::fprintf(stderr, "no such table: %s\n", line.c_str());
        return false;
    }
    return table->print();
}

} // namespace

bool print_page(const char *path)
{
    std::ifstream page(path);
    std::string line;
    while (std::getline(page, line)) {
        if (!print_page_line(line)) {
            return false;
        }
    }
    if (!page.eof()) {
        std::fprintf(stderr, "cannot read %s\n", path);
        return false;
    }
    return true;
}
