// SPDX-License-Identifier: MIT
// The table of options. A row tells all there is to tell of an option: how it is written, what it does, and what the
// usage text, the manual page and the shells say of it.
#include "compiler/tarnwick/option_table.h"

#include <algorithm>

#include "compiler/tarnwick/option_actions.h"

namespace {

using enum option_match;

constexpr option_row option_rows[] = {
    {.name = "v",
     .match = LETTER,
     .handler = on_v,
     .form = "-v",
     .help = "verbose",
     .description = "Says on the standard error stream what is done: which formats are tried, what is read and "
                    "written, how many segments, files, symbols and lines there are. Given twice, it lists the "
                    "symbols and lines of each file and the data blocks too. With `-d` it makes the print more "
                    "detailed, up to `-v -v -v`.",
     .usage_line = 1},
    {.name = "d",
     .match = LETTER,
     .handler = on_d,
     .form = "-d",
     .help = "dump input file",
     .description = "Prints each input on the standard output stream instead of reading it. COFF, ELF and UBROF files "
                    "can be printed. Memory spaces and outputs need not be given; an output that is given is written "
                    "from an empty program.",
     .usage_line = 2},
    {.name = "c",
     .match = LETTER,
     .handler = on_c,
     .form = "-c",
     .help = "identify input files only",
     .description = "Says of each input which format it has, as `-v` does, and ends with status 0. Nothing is "
                    "converted.",
     .usage_line = 3},
    {.name = "f",
     .match = LETTER,
     .handler = on_f,
     .form = "-f",
     .help = "fake local symbols as globals",
     .description = "Accepted, and without effect.",
     .usage_line = 4},
    {.name = "k",
     .match = LETTER,
     .handler = on_k,
     .form = "-k",
     .help = "fake variable redefinitions with inner blocks",
     .description = "Where a symbol database defines a variable anew, opens an inner block for the new definition, "
                    "instead of giving the variable one more location.",
     .usage_line = 5},
    {.name = "o",
     .match = LETTER,
     .handler = on_o,
     .form = "-o<format>",
     .all_forms = "-o<format>, -o <format>",
     .help = "set output format",
     .description = "Asks for an output. The key of its format may be shortened as long as it stays unambiguous, and "
                    "may stand in the next argument. Plain arguments behind this option name the output; the last of "
                    "them counts. A name without a point gets the extension of the format, and without a name the "
                    "output is named after the output before it, or the first input. The option may be repeated for "
                    "further outputs; a format that was given already changes nothing.",
     .argument = option_argument::OUTPUT_FORMAT,
     .usage_line = 6},
    {.name = "i",
     .match = LETTER,
     .handler = on_i,
     .form = "-i<format>",
     .help = "set input format",
     .description = "Takes all inputs for files of this format, wherever the option stands, instead of looking what "
                    "they are. The last one given counts.",
     .argument = option_argument::INPUT_FORMAT,
     .usage_line = 7},
    {.name = "l",
     .match = LETTER,
     .handler = on_l,
     .form = "-l",
     .help = "list available formats",
     .description = "Lists the formats on the standard error stream and ends with status 0.",
     .usage_line = 8},
    {.name = "b",
     .match = LETTER,
     .handler = on_b,
     .form = "-b",
     .help = "specify big-endian byte ordering",
     .description = "Writes ELF files in big-endian byte order. COFF files are always little-endian, and an ELF file "
                    "that is written behind one is too.",
     .usage_line = 9},
    {.name = "m",
     .match = LETTER,
     .handler = on_m,
     .form = "-m",
     .help = "strip underscore character",
     .description = "Cuts one leading underscore off the names of COFF symbols.",
     .usage_line = 10},
    {.name = "e",
     .match = LETTER,
     .handler = on_e,
     .form = "-e",
     .all_forms = "-e, -e<digit>, -e<file>",
     .help = "strip file extensions",
     .description = "`-e` alone cuts the extensions off the names of source files. `-e<digit>` chooses the layout of "
                    "reports: 0 is the plain one, any other takes the layouts of the environment (see ENVIRONMENT). "
                    "Anything else behind the letter is a file to which the standard error stream is appended from "
                    "here on, with the layouts of the environment.",
     .argument = option_argument::PATH,
     .argument_optional = true,
     .usage_line = 11},
    {.name = "p",
     .match = LETTER,
     .handler = on_p,
     .form = "-pname",
     .all_forms = "-p<name>[,<word>...]",
     .help = "set processor name",
     .description = "Names the processor and, behind commas, its words. Together they choose the machine, the "
                    "family number in an ELF header (a word such as `KORB`, `KORME` or `KORHX`) and the chip of a "
                    "COFF file, whose first word is the chip number in hexadecimal and whose second word may be "
                    "`KOR` and 12, 14, 16 or 18. Where the name tells no machine, the prefix words of the first "
                    "symbol database do.",
     .argument = option_argument::CHIP,
     .usage_line = 12},
    {.name = "a",
     .match = LETTER,
     .handler = on_a,
     .form = "-a",
     .help = "add a segment for absolute data symbols",
     .description = "Adds a segment `$FAKE_ABS` and the number of the lowest data space, which takes the symbols of a "
                    "map file that belong to no psect."},
    {.name = "h",
     .match = LETTER,
     .handler = on_h,
     .form = "-h",
     .help = "print the usage text",
     .description = "Prints the usage text on the standard error stream and ends with status 1."},
    {.name = "s",
     .match = LETTER,
     .handler = on_s,
     .form = "-s<spec>",
     .help = "describe memory; checked, and otherwise without effect",
     .description = "Describes a memory space and a class in it, as for the linker: "
                    "`<number>,<space>:<value>@<class>=<low>-<high>`, where further ranges follow behind commas, "
                    "`x<n>` repeats a range and `/<size>` may end the text. It is checked, and otherwise without "
                    "effect.",
     .argument = option_argument::LIST},
    {.name = "w",
     .match = LETTER,
     .handler = on_w,
     .form = "-w<number>[!]",
     .help = "set the warning level; with \"!\" a warning fails the run",
     .description = "Hides warnings below this level, which is 0 without this option. Levels go from -9, which shows "
                    "all, to 9, which hides all. With an exclamation mark a warning that is shown makes the exit "
                    "status 1.",
     .argument = option_argument::NUMBER},

    {.name = "edf",
     .match = PREFIX,
     .handler = on_edf,
     .form = "--edf=<file>",
     .help = "take message texts from a catalogue file",
     .description = "Takes the texts of messages from a catalogue, if it is newer than the one in force. What class a "
                    "message has stays as it is.",
     .argument = option_argument::PATH},
    {.name = "emax",
     .match = PREFIX,
     .handler = on_emax,
     .form = "--emax=<n>",
     .help = "set the limit of errors",
     .description = "Ends the run at the error behind this many errors; 20 without this option.",
     .argument = option_argument::NUMBER},
    {.name = "msgdisable",
     .match = PREFIX,
     .handler = on_msgdisable,
     .form = "--msgdisable=<list>",
     .help = "disable messages by number",
     .description = "Hides the messages and warnings with these numbers, which commas part. `:off` behind a number "
                    "hides an error too. A list that begins with 0 hides all messages and warnings. Fatal messages "
                    "cannot be hidden.",
     .argument = option_argument::MESSAGES},
    {.name = "standard-dwarf",
     .match = WHOLE,
     .handler = on_standard_dwarf,
     .form = "--standard-dwarf",
     .help = "in case of ELF output format, enforce standard DWARF debugging information (not recommended)",
     .description = "Accepted, and without effect.",
     .usage_line = 13},
    {.name = "disable-dwarf",
     .match = WHOLE,
     .handler = on_disable_dwarf,
     .form = "--disable-dwarf",
     .help = "don't include DWARF info in ELF output",
     .description = "Writes ELF files without debugging sections.",
     .usage_line = 15},
    {.name = "dwarf-use-ranges",
     .match = PREFIX,
     .handler = on_dwarf_use_ranges,
     .form = "--dwarf-use-ranges=<value>",
     .help = "use range lists in DWARF info: never, auto or always",
     .description = "Says when functions and blocks get range lists: `never`, as without this option, `auto` where "
                    "there is more than one range, or `always`. Any value but `never` makes the sections DWARF 3 "
                    "instead of DWARF 2. An unknown value is passed over.",
     .argument = option_argument::WORD,
     .words = "never auto always"},
    {.name = "dwarf-use-loclists",
     .match = PREFIX,
     .handler = on_dwarf_use_loclists,
     .form = "--dwarf-use-loclists=<value>",
     .help = "use location lists in DWARF info: never, auto or always",
     .description = "With `auto` or `always`, gives a variable that moves a location list. With `never`, as without "
                    "this option, a variable has the first of its locations that is no register. Any value but "
                    "`never` makes the sections DWARF 3 instead of DWARF 2. An unknown value is passed over.",
     .argument = option_argument::WORD,
     .words = "never auto always"},
    {.name = "dwarf-addr-size",
     .match = PREFIX,
     .handler = on_dwarf_addr_size,
     .form = "--dwarf-addr-size=<value>",
     // The misspelling belongs to the text.
     .help = "in case of ELF output format, size of addresses in buyes",
     .description = "The size of an address in the debugging sections, in bytes: 1, 2, 4 or 8. 3 counts as 4, and 5 "
                    "to 7 count as 8. Required for every ELF file with debugging sections.",
     .argument = option_argument::WORD,
     .words = "1 2 4 8",
     .usage_line = 14},
    {.name = "ver",
     .match = WHOLE,
     .handler = on_ver,
     .form = "--ver",
     .help = "print the version",
     .description = "Prints the version on the standard output stream and ends with status 0."},
    {.name = "psect-flags",
     .match = PREFIX,
     .handler = on_psect_flags,
     .form = "--psect-flags=<name>=<flags>[,...]",
     .help = "set the flags of psects: letters of w, x, s and f",
     .description = "Sets the flags of psects by name, in place of those that follow from their spaces: `w` writable, "
                    "`x` executable, `s` not in the program image, `f` made up, which keeps it out of all segments. "
                    "Other letters are passed over. In a legacy symbol file these names alone tell which symbols are "
                    "bounds of psects.",
     .argument = option_argument::LIST},
    {.name = "code-delta",
     .match = PREFIX,
     .handler = on_code_delta,
     .form = "--code-delta=<n>",
     .help = "bytes in an address unit of stray data",
     .description = "How many bytes an address of program memory holds, for bytes of an image that lie in no segment "
                    "of the map file; 1 without this option.",
     .argument = option_argument::NUMBER},
    {.name = "zrdebug",
     .match = PREFIX,
     .handler = on_zrdebug,
     .form = "--zrdebug=<spec>",
     .all_forms = "--zrdebug=<sub-option>[,...]",
     .help = "trace what the run does",
     .description = "Says what to record of a run, as sub-options parted by commas. Only the first such option "
                    "counts, and what stands before it on the command line is not recorded.",
     .argument = option_argument::LIST,
     .audience = option_audience::SUPPORT},
    {.name = "code-spaces",
     .match = NAME,
     .handler = on_code_spaces,
     .form = "--code-spaces=<n>[,<n>...]",
     .help = "number the code spaces",
     .description = "The numbers of the memory spaces that hold program code. Required, but for `-c` and `-d`.",
     .argument = option_argument::LIST},
    {.name = "data-spaces",
     .match = NAME,
     .handler = on_data_spaces,
     .form = "--data-spaces=<n>[,<n>...]",
     .help = "number the data spaces",
     .description = "The numbers of the memory spaces that hold data. Required, but for `-c` and `-d`. No space can "
                    "be of both kinds.",
     .argument = option_argument::LIST},
    {.name = "eeprom-spaces",
     .match = NAME,
     .handler = on_eeprom_spaces,
     .form = "--eeprom-spaces=<n>[,<n>...]",
     .help = "number the EEPROM spaces",
     .description = "The numbers of the memory spaces of EEPROM. They mark sections of ELF files.",
     .argument = option_argument::LIST},
    {.name = "Werror",
     .match = MESSAGE_LAYER,
     .handler = on_werror,
     .form = "--Werror[=<n>]",
     .help = "make warnings errors",
     .description = "Makes every warning an error, or the one with this number. `all` stands for every warning. The "
                    "short `-Werror` is not this option.",
     .argument = option_argument::WARNING,
     .argument_optional = true,
     .words = "all"},
    {.name = "Wno-error",
     .match = MESSAGE_LAYER,
     .handler = on_werror,
     .form = "--Wno-error[=<n>]",
     .help = "leave warnings warnings",
     .description = "Takes back `--Werror`, or keeps the warning with this number a warning.",
     .argument = option_argument::WARNING,
     .argument_optional = true,
     .words = "all"},
    // Offered, one column out of line, and refused.
    {.name = "force-emachine",
     .match = NEVER,
     .form = "--force-emachine=<num>",
     .help = "Write the e_machine <num> in the ELF header",
     .description = "Stands in the usage text and is not recognised: it ends the run as an unknown option does.",
     .usage_line = 16,
     .usage_columns = option_row::USAGE_COLUMNS - 1},
};

constexpr bool is_whole(const option_row &row)
{
    return row.name != nullptr && row.form != nullptr && row.help != nullptr && row.description != nullptr &&
           (row.handler != nullptr) == (row.match != NEVER);
}
static_assert(std::all_of(std::begin(option_rows), std::end(option_rows), is_whole));

} // namespace

constinit const std::span<const option_row> option_table = option_rows;
