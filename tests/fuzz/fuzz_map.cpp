// SPDX-License-Identifier: MIT
// Map files and symbol databases, alone and together.
#include <cstdint>

#include "common/alert.h"
#include "common/catalogue.h"
#include "common/set.h"
#include "compiler/common/tmf.h"
#include "compiler/tarnwick/driver.h"
#include "compiler/tarnwick/model.h"
#include "compiler/tarnwick/options.h"
#include "compiler/tarnwick/sdb.h"
#include "compiler/tarnwick/sdb_ranges.h"
#include "tests/fuzz/command.h"
#include "tests/fuzz/host.h"
#include "tests/fuzz/parts.h"
#include "tests/fuzz/targets.h"

namespace {

constexpr std::int32_t ANY_ERRORS = 100000;

void prepare()
{
    alert_set_exit(tarn_exit);
    set_maxerrors(ANY_ERRORS);
    model_create();
    set_add(code_spaces, 1);
    set_add(data_spaces, 2);
    set_add(eeprom_spaces, 3);
}

// Makes fatal reports warnings, as a catalogue can: whoever raised one then goes on behind it.
void lower_fatal_reports()
{
    alert_initialise();
    for (message_entry *entry : each(message_table)) {
        if (entry != nullptr && entry->type == MESSAGE_FATAL) {
            entry->type = MESSAGE_WARNING;
        }
    }
}

// Symbols that a database's variables and functions find, on both sides of its name rules.
void add_symbols()
{
    std::uint32_t value = 0x10;
    for (const char *name :
         {"_main", "main", "_x", "x", "main@x", "F1_x", "_inlined$_main", "__end_of_main", "__Lbss"}) {
        tarn_symbol record;
        record.sy_name = name;
        record.sy_value = value;
        record.sy_space = 1 + value % 3;
        tarn_add_symbol(record);
        value += 0x11;
    }
}

// The queries of the store, as the import, the ranges of functions and the writers make them.
void query_store()
{
    for (const tmf_symbol *symbol : each(tmf_symbols())) {
        tmf_symbol_psect(symbol);
        tmf_entry_ranges(symbol->tmfsy_name);
        tmf_find_dabs(symbol->tmfsy_name);
    }
    for (const char *object : each(tmf_line_objects())) {
        tmf_lines_of(object);
        tmf_lines_of(object);
    }
    tmf_psects();
    tmf_segments();
    tmf_notes();
    tmf_splits();
    tmf_dabs();
}

// Adds all files of the input. Without a name it is a map file.
void add_parts(std::string_view input)
{
    for (input_part part; take_part(&input, &part);) {
        host_add_file(part.name.empty() ? "prog.tmf" : part.name, part.content);
    }
}

} // namespace

void fuzz_map(std::string_view input)
{
    prepare();
    host_open_stdin(input);
    tmf_isTMF(stdin);
    tmf_read(stdin, "prog.tmf");
    query_store();
}

// The length of the input chooses the variant, so that mutation does too.
void fuzz_database(std::string_view input)
{
    prepare();
    if (input.size() / 2 % 2 != 0) {
        lower_fatal_reports();
    }
    add_symbols();
    processor_name = input.find("KORH") < input.find('\n') ? "H1A" : "KOR18";
    opt_fake_blocks = input.size() % 2 != 0;
    host_add_file("m.sdb", input);
    sdb_read("m.obj");
    opt_verbose = 1;
    sdb_dump();
    sdb_raise_all_files();
    sdb_calc_ranges();
    sdb_dump();
}

void fuzz_import(std::string_view input)
{
    add_parts(input);
    command_run({"-pN4A,14A0,KOR18,KORM", "--code-spaces=1", "--data-spaces=2", "--eeprom-spaces=3", "--emax=100000",
                 "-v", "-v", "prog.tmf", "-oorbell", "out.sym"});
}
