// SPDX-License-Identifier: MIT
// The formats that are a single file: identification, reading, and the readable dumps.
#include "common/fileutils.h"
#include "tests/fuzz/command.h"
#include "tests/fuzz/host.h"
#include "tests/fuzz/targets.h"

namespace {

constexpr std::size_t VERBOSITIES = 4; // none, and the three that add something

// How much is shown depends on the number of -v; the length of the input chooses it, so that mutation does too.
void add_verbosity(std::string_view input)
{
    for (std::size_t count = input.size() % VERBOSITIES; count > 0; --count) {
        command_add("-v");
    }
}

// Reads a file as one format; what was understood goes out again in another that needs nothing else.
void read_as(std::string_view format, std::string_view output, std::string_view input)
{
    host_add_file("input", input);
    command_start();
    for (const char *argument :
         {"-pN4A,14A0,KOR18,KORM", "--code-spaces=0,1", "--data-spaces=2", "--eeprom-spaces=3", "--emax=100000"}) {
        command_add(argument);
    }
    add_verbosity(input);
    command_add(format);
    command_add("input");
    command_add(output);
    command_add("output");
    command_run();
}

void dump_as(std::string_view format, std::string_view input)
{
    host_add_file("input", input);
    command_start();
    add_verbosity(input);
    command_add("--emax=100000");
    command_add("-d");
    command_add(format);
    command_add("input");
    command_run();
}

} // namespace

// The formats of the driver, and the classes of files that only their names and contents tell.
void fuzz_identify(std::string_view input)
{
    for (const char *name : {"input", "input.o", "input.obj", "input.p1", "input.lib", "input.a", "input.elf",
                             "input.as", "input.hex", "input.sdb"}) {
        host_add_file(name, input);
        fileid(name);
        scan(name);
        which_elf(name);
        fileid_is_p1(name);
        fileid_is_obj(name);
        fileid_is_library(name);
    }
    command_run({"-c", "input"});
}

void fuzz_ihex(std::string_view input)
{
    read_as("-iihex", "-os19", input);
}

void fuzz_s19(std::string_view input)
{
    read_as("-is19", "-oihex", input);
}

void fuzz_orbell(std::string_view input)
{
    read_as("-iorbell", "-oorbell", input);
}

void fuzz_coff_read(std::string_view input)
{
    read_as("-ivcoff", "-oorbell", input);
}

void fuzz_coff_dump(std::string_view input)
{
    dump_as("-ivcoff", input);
}

void fuzz_elf_dump(std::string_view input)
{
    dump_as("-ielf", input);
}

void fuzz_ubrof_dump(std::string_view input)
{
    dump_as("-iubrof", input);
}
