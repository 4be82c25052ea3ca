// SPDX-License-Identifier: MIT
// The causes of reports and their remedies.
#include "docs/reference/message_causes.h"

namespace {

constexpr const char *RUN_COMPILER_AGAIN = "Compile the module again. If the report stays, the compiler wrote a faulty "
                                           "database: report it to its makers.";
constexpr const char *MAKE_COFF_AGAIN = "Make the file again.";
constexpr const char *MAKE_UBROF_AGAIN = "Make the file again. What was printed up to here is sound.";
constexpr const char *REPORT_FAULT = "Report it with a trace of the run (`--zrdebug=on,dwarf`) and its inputs.";
constexpr const char *CHECK_MEMORY_SPEC =
    "Write the text of `-s` as `<number>,<space>:<value>@<class>=<low>-<high>`, or "
    "leave the option out: it has no other effect.";

constexpr message_cause causes[] = {
    {1,
     "More errors than `--emax=` allows, which is 20 when the option is not given. The last one is counted and not "
     "printed. The report itself comes without its number.",
     "Mend the errors above it, or raise the limit with `--emax=`."},
    {141,
     "A file cannot be opened for reading, or a trace file for writing. The first word says which: \"command\" is an "
     "`@file` argument, \"input\" an input, \"debug-out\" the trace file of `--zrdebug=`. The text behind the colon is "
     "the system's.",
     "Check the name, and the permissions of the file and its folders."},
    {157, "There was no memory for a debugging section that was to be printed. The section is left out.",
     "Free memory, or check the section's size: a damaged file can claim any."},
    {294, "A symbol database asks for more ranges, locations or type elements than memory or a sane program can hold.",
     "Compile the module again; with a sound database, free memory."},
    {296, "The system gave no more memory.",
     "Free memory, or raise the limit under which the program runs. A small input that leads here is damaged."},
    {378, "An output cannot be created.",
     "Check its folder, the permissions, and that no folder of that name is there."},
    {393, "`-w` stands without a number. `-Werror` with one dash counts as `-w`, too.",
     "Put a number from -9 to 9 behind the letter; write `--Werror` with two dashes."},
    {413,
     "The output could not be written to its end, usually because the disk is full. The half of it that was written is "
     "removed.",
     "Make room, and run again."},
    {442, "A memory description ends where an address, a class or its size should stand.", CHECK_MEMORY_SPEC},
    {443, "The low address of a range in a memory description is not a number.", CHECK_MEMORY_SPEC},
    {444, "In a memory description something else than a hyphen stands behind the low address of a range.",
     CHECK_MEMORY_SPEC},
    {445, "The high address of a range in a memory description is not a number.", CHECK_MEMORY_SPEC},
    {448,
     "The overrun or the repeat count of a range in a memory description is not a number, or the counts add up to "
     "far more copies than there are addresses.",
     CHECK_MEMORY_SPEC},
    {449,
     "Something stands behind the last range or the size of a memory description, or one of its separators is missing.",
     CHECK_MEMORY_SPEC},
    {523, "The number behind `-w` is below -9. The warning level stays as it was.", "Give a level from -9 to 9."},
    {600,
     "A COFF output needs to know the chip. There is no `-p`, its first word is not a hexadecimal number, or its "
     "second "
     "word begins with `KOR` and goes on with something else than 12, 14, 16 or 18.",
     "Give the chip, for instance `-pN4A,1234,KOR14`."},
    {602, "`-o` or `-i` stands without a format. The key of `-i` must stand directly behind the letter.",
     "Give a key; `tarnwick -l` lists them."},
    {603, "The key of a format is cut so short that it fits several.",
     "Write more of the key; `tarnwick -l` lists them."},
    {604, "No format has this key. Unlike options, keys are compared with regard to case.",
     "`tarnwick -l` lists the keys."},
    {605, "No format recognises the input.",
     "Check that it is the right file and whole. `tarnwick -c` tells what was tried, and `-i<format>` says what it "
     "is."},
    {606, "A file of the program model has fewer symbols than were counted for it. No input should lead here.",
     REPORT_FAULT},
    {607, "A file of the program model has fewer lines than were counted for it. No input should lead here.",
     REPORT_FAULT},
    {609, "`-p` stands without a name.", "Put the processor directly behind the letter: `-pN4A,KORM`."},
    {611, "There are 128 inputs; 127 are the most.", "Convert in several runs."},
    {612, "There are 128 outputs; 127 are the most.", "Convert in several runs."},
    {613, "There is no `-o`, and neither `-c` nor `-d` asks for anything else.",
     "Ask for an output, for instance `-oelf`."},
    {614, "There is no input. Plain arguments behind the first `-o` are names of outputs.",
     "Name the inputs in front of the first `-o`."},
    {621,
     "A debugging section could not be written, usually because the disk is full. The half of the file that was "
     "written "
     "is removed.",
     "Make room, and run again."},
    {623, "A type that was read from a symbol database is of no known kind. No input should lead here.", REPORT_FAULT},
    {624, "A type that was read from a symbol database is of no known kind. No input should lead here.", REPORT_FAULT},
    {627, "A record of a symbol database does not end where it should.", RUN_COMPILER_AGAIN},
    {629, "A variable in a symbol database has a storage class that does not exist.", RUN_COMPILER_AGAIN},
    {630, "A symbol database does not begin with its prefix list \"[p\".",
     "Check that the file named is a symbol database; then compile the module again."},
    {631,
     "A symbol database holds a record that does not exist, or one where it cannot stand. It may follow from a warning "
     "above: a record that was dropped in its middle leaves its end behind.",
     RUN_COMPILER_AGAIN},
    {632, "The address size of the debugging sections was not given (0) or is above 8.",
     "Give `--dwarf-addr-size=4`, or `--disable-dwarf` for a file without debugging sections."},
    {633, "A COFF file has a symbol of a class that does not exist. The symbol is left out.", MAKE_COFF_AGAIN},
    {634,
     "An input could not be printed. It is damaged, as a report above tells, or its format cannot be printed: only "
     "COFF, "
     "ELF and UBROF files can.",
     "Without a report above, look at the file with `tarnwick -c`: its format may be none that can be printed."},
    {635, "A line of an Intel HEX file does not begin with a colon. Reading stops there; what came before is kept.",
     "Take out lines that are no records, or make the file again."},
    {636,
     "The checksum of a record in an Intel HEX file is wrong, or its byte count is not a number. Reading stops there; "
     "what came before is kept.",
     "Make the file again."},
    {637,
     "The prefix list of a symbol database holds a word that the chosen machine does not know. The word is passed "
     "over.",
     "Check `-p`: the module may have been compiled for another family."},
    {638, "A COFF file was written for another version of the dialect. It is printed all the same.",
     "Do not rely on what is printed of fields that have changed."},
    {639,
     "The optional header of a COFF file tells no width of program or data memory, or is missing. Addresses count "
     "bytes "
     "then.",
     "Check addresses of program memory if the chip counts words."},
    {666, "A debugging section reaches beyond the end of the file. It is left out.", "Make the file again."},
    {667, "An ELF file has a section .debug_info and no section .debug_abbrev, without which it cannot be read.",
     "Make the file again, and strip debugging sections together or not at all."},
    {668,
     "No machine has all words of the first symbol database's prefix list, and `-p` names none that is known. The run "
     "ends.",
     "Name the processor with `-p`."},
    {669,
     "Both machines have all words of the first symbol database's prefix list, and `-p` names none that is known. The "
     "run ends.",
     "Name the processor with `-p`."},
    {917,
     "An argument on the standard input stream or in an `@file` has more than 2047 characters. It is cut, and what "
     "follows is not read.",
     "Shorten the argument; perhaps a quote is missing."},
    {1036,
     "The optional header of a COFF file that is printed has another length than this dialect's. The header is passed "
     "over.",
     "Check that the file is of this dialect."},
    {1037, "A COFF or ELF file ends in front of the part that is named, or its headers claim more than there is.",
     "The file was cut short or is damaged: make it again."},
    {1038, "The string table of a COFF file claims to be smaller than its own length field.", MAKE_COFF_AGAIN},
    {1039, "In a COFF file that is printed, the auxiliary entries of a symbol reach beyond the symbol table.",
     MAKE_COFF_AGAIN},
    {1043,
     "A COFF file has no optional header, or one of another length than this dialect's. Reading goes on without it.",
     "Check that the file is of this dialect: widths of memories are not known, and addresses count bytes."},
    {1044,
     "A UBROF file ends in the middle, or is empty. Numbers whose bytes are missing are printed with bytes of 255.",
     MAKE_UBROF_AGAIN},
    {1045, "A UBROF file ends in the middle of a block of bytes.", MAKE_UBROF_AGAIN},
    {1046, "A UBROF file ends in the middle of a string.", MAKE_UBROF_AGAIN},
    {1047, "A file that is printed as UBROF does not begin as such a file does.",
     "Leave out `-iubrof`, or check the file."},
    {1048, "The date at the start of a UBROF file does not exist.", "Check that the file is a UBROF file."},
    {1049, "The check number of a stretch of a UBROF file does not fit its bytes.",
     "Make the file again. With `-v` the bytes of the stretch are printed."},
    {1050, "The date in a debug record of a UBROF file does not exist.", MAKE_UBROF_AGAIN},
    {1051,
     "The date in a program record of a UBROF file does not exist. The text says 0x01 for records of type 0x02, too.",
     MAKE_UBROF_AGAIN},
    {1052, "A UBROF file holds a record of a type that does not exist.", MAKE_UBROF_AGAIN},
    {1289,
     "More than 255 address units lie between a line and the next one of the same file. The line counts for its first "
     "address only, so a debugger finds no source for the others. Large tables in program memory do this.",
     "Nothing, usually. The warning shows with `-w-9` only."},
    {1291, "The header of an ELF file names a section of section names that does not exist.", "Make the file again."},
    {1292, "A define of a symbol database does not end behind its value.", RUN_COMPILER_AGAIN},
    {1293,
     "A variable or a member of a structure has a type that no debugging entry could be made for. It is left out of "
     "the "
     "debugging sections.",
     "The symbol database may be damaged: compile the module again."},
    {1301,
     "The name of a section of an ELF file lies outside of the table of names. The section is passed over in the "
     "search "
     "for debugging sections.",
     "Make the file again."},
    {1302,
     "No back end of ELF files takes the family of the processor. One of them takes all, so no input should lead here.",
     REPORT_FAULT},
    {1303,
     "A symbol database gives a variable a location that the machine does not have, for instance a stack offset "
     "outside "
     "of any function. The location is dropped, and the variable stays. The message may come twice for one record.",
     "Nothing, usually. The warning shows with `-w-5` and below only."},
    {1304,
     "A symbol database puts a variable into a register that the machine does not have. The record is dropped, and its "
     "end is reported as message 631.",
     "Check `-p`: the module may have been compiled for another family."},
    {1305, "A variable that is known already comes again with another storage class. The later record is dropped.",
     "Declare the variable alike in all modules, and compile them all again."},
    {1306,
     "A variable that is known already comes again with another size: the first number is the known one, the second "
     "the "
     "new one. The later record is dropped.",
     "Declare the variable alike in all modules, and compile them all again."},
    {1314,
     "A range of addresses ends before it begins: in a memory description of `-s`, or in the lines of a function.",
     "Correct the range, or make the map file again."},
    {1437,
     "The map file has a fault, which the text tells; the texts are listed below. The position is that of the line at "
     "fault.",
     "Link again. If the report stays, the linker and this program do not fit together: check their versions."},
    {1450,
     "A piece of the list behind `--code-spaces=`, `--data-spaces=` or `--eeprom-spaces=` is not a number. It is "
     "passed over.",
     "Give decimal numbers with commas between them."},
    {1451, "`--code-spaces=` or `--data-spaces=` is missing or holds no number.",
     "Give both; the numbers are those of the map file's memory spaces."},
    {1452, "A memory space is named as a code space and as a data space.", "Name each space in one of the lists."},
    {1501, "An internal check failed, and `--zrdebug=assert:warning` asks to be told.", REPORT_FAULT},
    {1502, "An internal check failed, and `--zrdebug=assert:error` makes this an error.", REPORT_FAULT},
    {1503, "An internal check failed, and `--zrdebug=assert:fatal` makes this the end of the run.", REPORT_FAULT},
    {1521,
     "An ELF file's debugging sections cannot be made: a limit of the format was passed or the program contradicts "
     "itself. It also ends a run in which a piece of a segment would get a name that another segment has, and the "
     "printing of a line program with an unknown operation.",
     "Name segments without a `$` and a number at their ends. Otherwise report it with a trace of the run "
     "(`--zrdebug=on,dwarf`), which tells the cause; `--disable-dwarf` makes a file without these sections."},
    {1606,
     "`--Werror=` or `--Wno-error=` is followed by nothing, by 0, or by a number with something behind it. In the last "
     "case the number holds all the same.",
     "Give one number, or `all`; repeat the option for further numbers."},
};

constexpr text_cause map_causes[] = {
    {"no token at index %u", "The line has too few fields. They are counted from 0."},
    {"token %u is not unsigned long of base %d", "A field is not a number. It stands as far as it could be read."},
    {"Nameless object file", "A `$` line names no object."},
    {"psect defined outside of an object file", "A psect stands in front of the first `$` line."},
    {"duplicate psect entry", "Follows the report that names the psect."},
    {"%s address of token %u is not an unsigned long of base %d",
     "A bound of an unused range is not a hexadecimal number."},
    {"token %u is not a valid range token", "An unused range is not two addresses with a hyphen between them."},
    {"line number (%s) is not an unsigned long of base 10", "A line record's number is not decimal."},
    {"missing line:file token", "A line record has no `>` with something behind it. It is dropped."},
    {"Invalid line:file token", "What stands behind the `>` of a line record is not a number, a colon and a name."},
    {"note-psect \"%s\" has length %u, but read only %u bytes", "A note holds fewer or more bytes than its head says."},
    {"missing note-psect name", "The head of a note has no name."},
    {"note-psect cannot have zero length", "The head of a note says that it holds nothing."},
    {"missing note-psect name and length", "Bytes of a note stand in front of any head."},
    {"line must contain (0,%u] bytes of data",
     "A row of a note is empty or holds more bytes than this. The first ones count."},
    {"value of token %u (base %d) is wider than unsigned char", "A byte of a note is above FF. Its low byte counts."},
    {"Did not find section %s", "A section is missing, or the sections are not in their order. Reading ends."},
    {"psect name is NULL or an empty string", "A psect has no name."},
    {"psect object file name is NULL or an empty string", "A psect has no object."},
    {"psect (%s) from object file \"%s\" already defined", "An object names a psect twice. The first one counts."},
    {"psect's class name is an empty string", "A psect has no class."},
    {"psect with a zero length", "A psect is empty; such psects should not be listed."},
    {"psect with a zero delta", "A psect's addresses would count no bytes."},
    {"psect reloc is not a power of 2", "The alignment of a psect is not 1, 2, 4 and so on."},
    {"unused memory in a class with a NULL name or empty string", "An unused range has no class. It is dropped."},
    {"unused memory low address (0x%X) is > high address (0x%X)", "An unused range ends before it begins."},
    {"unused memory range with a delta of 0", "An unused range's addresses would count no bytes."},
    {"symbol name is NULL or an empty string", "A symbol has no name. It is dropped."},
    {"symbol with the same name (%s) already in the table", "A symbol comes twice. The first one counts."},
    {"symbol's (%s) linker class is an empty string", "A symbol has no class; a hyphen stands for none."},
    {"symbol's (%s) psect is an empty string", "A symbol has no psect; a hyphen stands for none."},
    {"symbol's (%s) object file name is an empty string", "A symbol has no object; a hyphen stands for none."},
    {"parent of a psect split is NULL or an empty string", "A split names no psect that was split. It is dropped."},
    {"child of a psect split is NULL or an empty string", "A split names no part. It is dropped."},
    {"dabs label is an empty string", "Absolute data has no label; a hyphen stands for none."},
    {"segment name is NULL or an empty string", "A segment has no name. It is dropped."},
    {"segment (%s) already defined", "A segment comes twice. The first one counts."},
    {"segment (%s) has a zero delta", "A segment's addresses would count no bytes."},
};

constexpr text_cause plain_texts[] = {
    {"Unrecognized option '%s'", "There is no such option. The text stops at the first \"=\", and the usage text "
                                 "follows at once. Ends the run with "
                                 "status 1. `--force-emachine` leads here, though the usage text names it."},
    {"Invalid code space delta specified (%s)",
     "The value of `--code-delta=` is 0 or not a number. Counts as an error."},
    {"Could not open error description file %s",
     "The catalogue of `--edf=` is not there or cannot be read. The run goes on."},
    {"Malformed error information on line %u, in file %s", "A line of a message catalogue is not a number, a class and "
                                                           "a text. The line is passed over; the file named is the "
                                                           "catalogue in force before it."},
    {"malformed almanac in .SDB file %s", "An almanac of a symbol database ends at once. Counts as an error."},
    {"Unknown almanac in .SDB file %s", "A symbol database holds an almanac of an unknown kind. Counts as an error."},
    {"Unknown qualifier %c",
     "A type in a symbol database has a qualifier that the machine does not have. It is passed over; check `-p`."},
    {"Encountered type string %s", "A type in a symbol database begins with a character that no type begins with."},
    {"ZRDEBUG (warning): %s",
     "A sub-option of `--zrdebug=` is wrong or cannot be done, as the text says. The run goes on."},
};

} // namespace

std::span<const message_cause> message_causes()
{
    return causes;
}

std::span<const text_cause> map_file_causes()
{
    return map_causes;
}

std::span<const text_cause> plain_causes()
{
    return plain_texts;
}
