// SPDX-License-Identifier: MIT
// The reference of messages: the built-in catalogue beside causes and remedies.
#include <algorithm>
#include <cstdio>
#include <string>

#include "common/catalogue_rows.h"
#include "docs/reference/message_causes.h"
#include "docs/reference/reference.h"

namespace {

constexpr const char *INTRODUCTION =
    "# Messages\n"
    "\n"
    "<!-- Made from the program's catalogue by tarnwick-reference; do not edit. -->\n"
    "\n"
    "Every report of the program has a number, but for a few at the end of this page. A report on a line of a file "
    "looks\n"
    "so, with the file, the line, the number in parentheses and the text:\n"
    "\n"
    "```\n"
    "blink.tmf: 31: (1437) TMF error: token 3 is not unsigned long of base 16\n"
    "```\n"
    "\n"
    "The class of a message decides what becomes of the run:\n"
    "\n"
    "| class | the run | exit status |\n"
    "|---|---|---|\n"
    "| fatal | ends at once; an output that is being written is removed | 1 |\n"
    "| error | goes on, up to the limit of `--emax=` | 1 |\n"
    "| warning | goes on; shown when its level is not below that of `-w`, which is 0 without the option | 0, or 1 "
    "under "
    "`-w<number>!` |\n"
    "| message | goes on | 0 |\n"
    "\n"
    "`--Werror` makes warnings errors, and `--msgdisable=` hides messages; see [tarnwick(1)](tarnwick.1.md). A "
    "catalogue\n"
    "file can change texts and classes. In the texts below, `%s` stands for a text, `%m` for the system's words on a\n"
    "failure, and the other words with a percent sign for numbers.\n"
    "\n"
    "## By number\n"
    "\n";

std::string class_of(const message_entry &row)
{
    switch (row.type) {
    case MESSAGE_FATAL:
        return "fatal";
    case MESSAGE_PLAIN:
        return "message";
    case MESSAGE_ERROR:
        return "error";
    default:
        return "warning, level " + std::to_string(row.level);
    }
}

bool same_number(const message_entry &row, const message_cause &cause)
{
    return row.number == cause.number;
}

void print_texts(const char *heading, std::span<const text_cause> rows)
{
    std::printf("\n## %s\n\n| text | cause |\n|---|---|\n", heading);
    for (const text_cause &row : rows) {
        std::printf("| `%s` | %s |\n", row.text, row.cause);
    }
}

} // namespace

bool print_messages()
{
    const auto rows = catalogue_rows();
    const auto causes = message_causes();
    if (!std::ranges::equal(rows, causes, same_number)) {
        std::fputs("the causes do not stand for the rows of the catalogue, number by number\n", stderr);
        return false;
    }
    std::fputs(INTRODUCTION, stdout);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        std::printf("%s### %u (%s)\n\n`%s`\n\n%s\n\n*What to do:* %s\n", i != 0 ? "\n" : "", rows[i].number,
                    class_of(rows[i]).c_str(), rows[i].text, causes[i].cause, causes[i].remedy);
    }
    print_texts("Texts of message 1437", map_file_causes());
    print_texts("Reports without a number", plain_causes());
    return true;
}
