// SPDX-License-Identifier: MIT
// The usage text and the list of formats.
#include "compiler/tarnwick/usage.h"

#include <algorithm>
#include <cstdio>

#include "compiler/tarnwick/format.h"
#include "compiler/tarnwick/option_table.h"

void print_usage()
{
    std::fputs("Tarnwick: the symbol file reformatter\n"
               "Usage: tarnwick [options] input_files ... -o<format> [-i<format> ... ] output_file\n"
               "Options:\n",
               stderr);
    for (std::uint8_t line = 1;; ++line) {
        const auto row = std::find_if(option_table.begin(), option_table.end(),
                                      [line](const option_row &r) { return r.usage_line == line; });
        if (row == option_table.end()) {
            break;
        }
        std::fprintf(stderr, "%*s: %s\n", row->usage_columns, row->form, row->help);
    }
    std::fputs("\n"
               "The output file type is required.\n"
               "The input file type(s) will be auto-detected if not specified.\n",
               stderr);
}

void print_format_list()
{
    std::fputs("Formats available are:\n\nKey        Name\n\n", stderr);
    for (const format_descriptor *format : format_table) {
        std::fprintf(stderr, "%-10s %s\n", format->key, format->name);
    }
    std::fputs("\nKeys may be unambiguously abbreviated.\n", stderr);
}
