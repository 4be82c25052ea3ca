// SPDX-License-Identifier: MIT
#include "compiler/tarnwick/options.h"

#include <cstdlib>
#include <initializer_list>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/alert.h"
#include "common/trace.h"
#include "compiler/common/lists.h"
#include "compiler/common/zrdebug.h"
#include "compiler/tarnwick/dwarf_options.h"
#include "compiler/tarnwick/model.h"
#include "compiler/tarnwick/option_table.h"
#include "compiler/tarnwick/usage.h"
#include "tests/unit/scenario.h"
#include "tests/unit/tarnwick/trace_log.h"

namespace {

const std::string USAGE =
    "Tarnwick: the symbol file reformatter\n"
    "Usage: tarnwick [options] input_files ... -o<format> [-i<format> ... ] output_file\n"
    "Options:\n"
    "                         -v: verbose\n"
    "                         -d: dump input file\n"
    "                         -c: identify input files only\n"
    "                         -f: fake local symbols as globals\n"
    "                         -k: fake variable redefinitions with inner blocks\n"
    "                 -o<format>: set output format\n"
    "                 -i<format>: set input format\n"
    "                         -l: list available formats\n"
    "                         -b: specify big-endian byte ordering\n"
    "                         -m: strip underscore character\n"
    "                         -e: strip file extensions\n"
    "                     -pname: set processor name\n"
    "           --standard-dwarf: in case of ELF output format, enforce standard DWARF debugging information (not "
    "recommended)\n"
    "  --dwarf-addr-size=<value>: in case of ELF output format, size of addresses in buyes\n"
    "            --disable-dwarf: don't include DWARF info in ELF output\n"
    "    --force-emachine=<num>: Write the e_machine <num> in the ELF header\n"
    "\n"
    "The output file type is required.\n"
    "The input file type(s) will be auto-detected if not specified.\n";

const std::string FORMATS = "Formats available are:\n"
                            "\n"
                            "Key        Name\n"
                            "\n"
                            "tarnsym    Kelvar ZRT Tarnwick Map File\n"
                            "orbell     Orbell Software\n"
                            "ihex       Intel HEX\n"
                            "s19        Motorola HEX\n"
                            "vcoff      Vantrel COFF\n"
                            "elf        ELF/DWARF\n"
                            "ubrof      UBROF\n"
                            "\n"
                            "Keys may be unambiguously abbreviated.\n";

void parse(const std::vector<std::string> &arguments)
{
    model_create();
    input_files.free();
    input_files = vector_of<const char *>::make();
    std::vector<char *> pointers;
    for (const std::string &argument : arguments) {
        pointers.push_back(const_cast<char *>(argument.c_str()));
    }
    parse_options(static_cast<int>(pointers.size()), pointers.data());
}

// The options of these arguments, in a process of its own; `look` notes what is of interest.
template <typename Look>
void expect_options(const std::vector<std::string> &arguments, Look look, const std::string &errors, int status = 0)
{
    expect_run(
        [&] {
            parse(arguments);
            look();
        },
        errors, status);
}

void expect_end(const std::vector<std::string> &arguments, const std::string &errors, int status)
{
    expect_options(
        arguments, [] { note("went on"); }, errors, status);
}

void note_inputs()
{
    for (const char *path : each(input_files)) {
        note("in %s", path);
    }
}

void note_outputs()
{
    for (std::uint32_t k = 0; k < output_count; ++k) {
        note("out %u %s", output_formats[k], output_names[k] != nullptr ? output_names[k] : "-");
    }
}

} // namespace

TEST(Options, Defaults)
{
    expect_options(
        {},
        [] {
            note("%d %d %d %d %d %d %d %d %d", opt_verbose, opt_identify, opt_dump, opt_big_endian, opt_fake_abs,
                 opt_fake_locals, opt_fake_blocks, opt_strip_underscore, opt_strip_ext);
            note("%d %u %u %u %u", processor_name == nullptr, code_delta, input_format, input_files.count(),
                 output_count);
            note("%d %d %d %d %d", enable_dwarf, standard_dwarf, dwarf_use_ranges, dwarf_use_loclists, dwarf_addr_size);
            note("%d %d %d", psect_flags_given, processor_args[0] == nullptr, output_names[0] == nullptr);
        },
        "0 0 0 0 0 0 0 0 0\n"
        "1 1 0 0 0\n"
        "1 0 0 0 0\n"
        "0 1 1\n");
}

TEST(Options, FlagsInEitherCase)
{
    const auto look = [] {
        note("v%d c%d d%d b%d a%d f%d k%d m%d e%d", opt_verbose, opt_identify, opt_dump, opt_big_endian, opt_fake_abs,
             opt_fake_locals, opt_fake_blocks, opt_strip_underscore, opt_strip_ext);
    };
    expect_options({"-v"}, look, "v1 c0 d0 b0 a0 f0 k0 m0 e0\n");
    expect_options({"-V", "-v"}, look, "v2 c0 d0 b0 a0 f0 k0 m0 e0\n");
    expect_options({"-c"}, look, "v1 c1 d0 b0 a0 f0 k0 m0 e0\n");
    expect_options({"-D"}, look, "v0 c0 d1 b0 a0 f0 k0 m0 e0\n");
    expect_options({"-b", "-a"}, look, "v0 c0 d0 b1 a1 f0 k0 m0 e0\n");
    expect_options({"-F", "-k"}, look, "v0 c0 d0 b0 a0 f1 k1 m0 e0\n");
    expect_options({"-M", "-e"}, look, "v0 c0 d0 b0 a0 f0 k0 m1 e1\n");
}

TEST(Options, RestOfAFlagIsNotLookedAt)
{
    expect_options(
        {"-anything", "-bold", "-dx", "-kk", "-mud", "-fog", "-vvv"},
        [] {
            note("%d %d %d %d %d %d %d", opt_fake_abs, opt_big_endian, opt_dump, opt_fake_blocks, opt_strip_underscore,
                 opt_fake_locals, opt_verbose);
        },
        "1 1 1 1 1 1 1\n");
}

TEST(Options, VerboseCountsInEightBits)
{
    expect_options(
        std::vector<std::string>(256, "-v"), [] { note("%d", opt_verbose); }, "0\n");
}

TEST(Options, UsageAndFormatList)
{
    expect_end({"-h"}, USAGE, 1);
    expect_end({"-Help"}, USAGE, 1);
    expect_end({"-l"}, FORMATS, 0);
    expect_end({"-l", "-oelf"}, FORMATS, 0);
}

TEST(Options, UnknownOptions)
{
    expect_end({"-x=3"}, "Unrecognized option '-x=3'" + USAGE, 1);
    expect_end({"-"}, "Unrecognized option '-'" + USAGE, 1);
    expect_end({"--"}, "Unrecognized option '--'" + USAGE, 1);
    expect_end({"--bogus=7"}, "Unrecognized option '--bogus'" + USAGE, 1);
    // It stands in the usage text, and is recognised nowhere.
    expect_end({"--force-emachine=3"}, "Unrecognized option '--force-emachine'" + USAGE, 1);
    // A name with a value where none may be, and without one where one must be.
    expect_end({"--ver=1"}, "Unrecognized option '--ver'" + USAGE, 1);
    expect_end({"--emax"}, "Unrecognized option '--emax'" + USAGE, 1);
    expect_end({"--standard-dwarfs"}, "Unrecognized option '--standard-dwarfs'" + USAGE, 1);
    expect_end({"--code-space=1"}, "Unrecognized option '--code-space'" + USAGE, 1);
}

TEST(Options, InputsWithImagesFirst)
{
    expect_options({"m.tmf", "p.hex", "q.HEX", "n.hexx", ".hex"}, note_inputs,
                   "in .hex\nin q.HEX\nin p.hex\nin m.tmf\nin n.hexx\n");
}

TEST(Options, AtFileAmongOthersIsAnInput)
{
    expect_options({"a.tmf", "@b"}, note_inputs, "in a.tmf\nin @b\n");
}

TEST(Options, NamesBehindOutputFormats)
{
    // Only the last name behind each format counts.
    expect_options({"-oelf", "out.bin", "x.bin"}, note_outputs, "out 6 x.bin\n");
    // A format given again changes nothing: its name is the latest output's.
    expect_options({"a.tmf", "-oelf", "-oelf", "b"}, note_outputs, "out 6 b\n");
    expect_options({"a.tmf", "-oelf", "b.elf", "-ovcoff", "c.cof", "-oelf", "d"}, note_outputs,
                   "out 6 b.elf\nout 5 d\n");
    expect_options({"a.tmf", "-oelf", "-ovcoff"}, note_outputs, "out 6 -\nout 5 -\n");
    // Images behind an output are its names too.
    expect_options({"-oihex", "p.hex"}, note_inputs, "");
}

TEST(Options, OutputKeyAsTheNextArgument)
{
    expect_options({"-o", "elf", "x"}, note_outputs, "out 6 x\n");
    expect_options({"-O", "s19"}, note_outputs, "out 4 -\n");
    expect_end({"-o", "-v"}, "(602) null file format name\n", 1);
    expect_end({"-o"}, "(602) null file format name\n", 1);
    expect_end({"-o", ""}, "(602) null file format name\n", 1);
}

TEST(Options, FormatKeys)
{
    const auto look = [] { note("%u", input_format); };
    expect_options({"-iihex"}, look, "3\n");
    expect_options({"-ielf", "a", "-is19"}, look, "4\n");
    expect_options({"-it"}, look, "1\n");
    expect_end({"-i"}, "(602) null file format name\n", 1);
    expect_end({"-iELF"}, "(604) unknown file format name \"ELF\"\n", 1);
    expect_end({"-oelfs"}, "(604) unknown file format name \"elfs\"\n", 1);
}

TEST(Options, LoweredReportsGoOn)
{
    expect_options(
        {"--msgdisable=0", "a"}, [] { note("%u %u", input_format, output_count); }, "0 0\n");
    // Fatal reports can be lowered by a catalogue only; what follows is then the state without the option.
    expect_run(
        [] {
            enter_scratch_folder();
            write_file("99999999999999_en.msgs", "393 8 no number\n602 8 no key\n609 8 no processor\n");
            parse({"-o", "-v", "-p", "-wx", "-i", "in"});
            note("%u %u %d %s", output_count, input_format, processor_name == nullptr, input_files.get(0));
        },
        "(602) no key (warning)\n"
        "(609) no processor (warning)\n"
        "(393) no number (warning)\n"
        "(602) no key (warning)\n"
        "0 0 1 in\n");
}

TEST(Options, Processor)
{
    const auto look = [] {
        note("%s", processor_name != nullptr ? processor_name : "-");
        for (const char *piece : processor_args) {
            if (piece != nullptr) {
                note(" %s", piece);
            }
        }
    };
    expect_options({"-pH2A,18F0,KOR18"}, look, "H2A\n 18F0\n KOR18\n");
    expect_options({"-P,,x,,y,"}, look, "x\n y\n");
    expect_options({"-p,"}, look, "-\n");
    expect_end({"-p"}, "(609) missing processor spec after -P\n", 1);
}

TEST(Options, ProcessorPiecesBeyondTheListAreDropped)
{
    std::string option = "-pN";
    for (int i = 0; i < 130; ++i) {
        option += "," + std::to_string(i);
    }
    expect_options(
        {option}, [] { note("%s %s", processor_args[0], processor_args[127]); }, "0 127\n");
}

TEST(Options, MemoryDescriptionOnlyFailsOrDoesNothing)
{
    expect_end({"-snonsense"}, "(449) syntax error in -A spec: nonsense\n", 1);
}

TEST(Options, WarningLevel)
{
    const auto raise_level_8 = [] { note("%d", alert(634, "x")); };
    const std::string shown = "(634) error dumping \"x\" (warning)\n1\n";
    expect_options({"-w0"}, raise_level_8, shown);
    expect_options({"-w-9"}, raise_level_8, shown);
    expect_options({"-w1"}, raise_level_8, "0\n");
    expect_options({"-W9"}, raise_level_8, "0\n");
    // A level below -9 is refused and the old one stays in force.
    expect_options({"-w1", "-w-10"}, raise_level_8, "0\n");
    expect_options({"-w-10"}, raise_level_8,
                   "(523) argument to -W option (-10) illegal and ignored (warning)\n" + shown);
    expect_end({"-w"}, "(393) missing argument to -W\n", 1);
    expect_end({"-wx"}, "(393) missing argument to -W\n", 1);
    expect_end({"-w!"}, "(393) missing argument to -W\n", 1);
    // With one dash it is the option -w.
    expect_end({"-Werror"}, "(393) missing argument to -W\n", 1);
}

TEST(Options, FailOnWarning)
{
    const auto look = [] {
        alert(634, "x");
        note("%d", alert_exit_status());
    };
    const std::string shown = "(634) error dumping \"x\" (warning)\n";
    expect_options({"-w0"}, look, shown + "0\n");
    expect_options({"-w0!"}, look, shown + "1\n");
    expect_options({"-w-1!2"}, look, shown + "1\n");
}

TEST(Options, ErrorFormat)
{
    const auto look = [] {
        alert(634, "x");
        note("%d", opt_strip_ext);
    };
    expect_options({"-e"}, look, "(634) error dumping \"x\" (warning)\n1\n");
    expect_options({"-e2"}, look, ": : (634) error dumping \"x\" (warning)\n0\n");
    expect_options({"-e0"}, look, "(634) error dumping \"x\" (warning)\n0\n");
    // The mode stays in force when only the flag is set.
    expect_options({"-e1", "-e"}, look, ": : (634) error dumping \"x\" (warning)\n1\n");
}

TEST(Options, ReportsToAFile)
{
    expect_run(
        [] {
            enter_scratch_folder();
            write_file("log", "old\n");
            parse({"-elog", "--code-spaces=x"});
            std::fflush(stderr);
            const bool same = read_file("log") == "old\n: : (1450) invalid --code-spaces argument (x) (error)\n";
            std::exit(same ? 0 : 3);
        },
        "");
    // Two digits are a name.
    expect_run(
        [] {
            enter_scratch_folder();
            parse({"-e12"});
            std::exit(std::filesystem::exists("12") ? 0 : 3);
        },
        "");
    // A file that cannot be opened is not spoken of; reports are lost.
    expect_run([] { parse({"-e/no/such/folder/log", "--code-spaces=x"}); }, "");
}

TEST(Options, CataloguesAndLimits)
{
    expect_end({"--edf=/no/such/file"}, "Could not open error description file /no/such/file\n\nwent on\n", 0);
    const auto raise_two = [] {
        alert(1450, "code", "x");
        alert(1450, "code", "y");
    };
    expect_options({"--emax=1"}, raise_two, "(1450) invalid --code-spaces argument (x)\ntoo many errors (2)\n", 1);
    expect_options({"--EMAX=0"}, raise_two, "too many errors (1)\n", 1);
    expect_options({"--msgdisable=1450:off"}, raise_two, "");
}

TEST(Options, Werror)
{
    const auto look = [] {
        alert(634, "x");
        note("%u", alert_error_count());
    };
    expect_options({"--Werror"}, look, "(634) error dumping \"x\"\n1\n");
    expect_options({"--werror=634"}, look, "(634) error dumping \"x\"\n1\n");
    expect_options({"--Werror=635"}, look, "(634) error dumping \"x\" (warning)\n0\n");
    expect_options({"--Werror", "--Wno-error=634"}, look, "(634) error dumping \"x\" (warning)\n0\n");
    expect_options(
        {"--Werror=zero"}, [] {},
        "(1606) w[no-]error option has been passed an invalid or missing message identifier\n");
    expect_end({"--Werrors"}, "Unrecognized option '--Werrors'" + USAGE, 1);
}

TEST(Options, DebuggingSections)
{
    const auto look = [] {
        note("%d %d %d %d %d", enable_dwarf, standard_dwarf, dwarf_use_ranges, dwarf_use_loclists, dwarf_addr_size);
    };
    expect_options({"--disable-dwarf"}, look, "0 0 0 0 0\n");
    expect_options({"--Standard-DWARF"}, look, "1 1 0 0 0\n");
    expect_options({"--dwarf-use-ranges=ALWAYS"}, look, "1 0 2 0 0\n");
    expect_options({"--dwarf-use-loclists=auto"}, look, "1 0 0 1 0\n");
    expect_options({"--dwarf-use-ranges=always", "--dwarf-use-ranges=never"}, look, "1 0 0 0 0\n");
    // Any other word leaves the mode as it was, without a message.
    expect_options({"--dwarf-use-ranges=auto", "--dwarf-use-ranges=sometimes"}, look, "1 0 1 0 0\n");
    expect_options({"--dwarf-use-ranges="}, look, "1 0 0 0 0\n");
    expect_options({"--dwarf-addr-size=4"}, look, "1 0 0 0 4\n");
    expect_options({"--dwarf-addr-size=260"}, look, "1 0 0 0 4\n");
    expect_options({"--dwarf-addr-size=four"}, look, "1 0 0 0 0\n");
}

TEST(Options, DebuggingSectionAssertions)
{
    const trace_log log;
    dwarf_use_mode mode = DWARF_USE_AUTO;
    dwarf_parse_use_option(&mode, "sometimes");
    dwarf_parse_use_option(&mode, "");
    dwarf_parse_use_option(&mode, nullptr);
    EXPECT_EQ(mode, DWARF_USE_AUTO);
    EXPECT_EQ(trace_log::failed(), (std::vector<std::string>{"0", "sub_opt[0] != '\\0'", "0", "sub_opt != NULL"}));
    trace_log::lines().clear();
    parse({"--dwarf-addr-size=259"});
    EXPECT_EQ(trace_log::lines(),
              std::vector<std::string>{"main: \"dwarf_addr_size\" command line option is specified with value 3"});
    dwarf_addr_size = 0;
}

TEST(Options, Version)
{
    // The banner goes to the standard output.
    expect_end({"--ver"}, "", 0);
    expect_end({"--VER", "--bogus"}, "", 0);
}

TEST(Options, PsectFlags)
{
    const auto look = [] {
        note("%d", psect_flags_given);
        for (const char *name : {"a", "b", "c"}) {
            note("%s %d %u", name, psect_flags_table.contains(name), psect_flags_table.get(name));
        }
    };
    expect_options({"--psect-flags=a=wxsf,b=xq,,c"}, look, "1\na 1 15\nb 1 2\nc 1 0\n");
    // The later entry counts.
    expect_options({"--psect-flags=a=w,a=s", "--psect-flags=b=w", "--psect-flags=b=f"}, look,
                   "1\na 1 4\nb 1 8\nc 0 0\n");
    expect_options({"--psect-flags="}, look, "1\na 0 0\nb 0 0\nc 0 0\n");
    expect_options({"--psect-flags==,="}, look, "1\na 0 0\nb 0 0\nc 0 0\n");
}

TEST(Options, CodeDelta)
{
    const auto look = [] { note("%u", code_delta); };
    expect_options({"--code-delta=2"}, look, "2\n");
    expect_options({"--code-delta=3bytes"}, look, "3\n");
    // What was converted stays in force, and nothing stops.
    expect_options({"--code-delta=0"}, look, "(0) Invalid code space delta specified (0)\n0\n");
    expect_options({"--code-delta=4", "--code-delta=x"}, look, "(0) Invalid code space delta specified (x)\n4\n");
    expect_options({"--code-delta="}, look, "(0) Invalid code space delta specified ()\n1\n");
}

TEST(Options, Spaces)
{
    const auto look = [] {
        for (const set *spaces : {code_spaces, data_spaces, eeprom_spaces}) {
            note("%u %u", set_size(spaces), static_cast<unsigned>(set_min(spaces)));
        }
    };
    expect_options({"--code-spaces=1,3,1", "--DATA-SPACES=2", "--eeprom-spaces=70"}, look, "2 1\n1 2\n1 70\n");
    expect_options({"--code-spaces=4", "--code-spaces=5"}, look, "2 4\n0 0\n0 0\n");
    // Trailing text behind a number is not looked at; what is no number is reported and passed over.
    expect_options({"--code-spaces=x,4y,-", "--data-spaces=,,", "--eeprom-spaces"}, look,
                   "(1450) invalid --code-spaces argument (x)\n"
                   "(1450) invalid --code-spaces argument (-)\n"
                   "1 4\n0 0\n0 0\n");
    expect_options(
        {"--data-spaces=d"}, [] {}, "(1450) invalid --data-spaces argument (d)\n");
    expect_options(
        {"--eeprom-spaces=e"}, [] {}, "(1450) invalid --eeprom-spaces argument (e)\n");
}

TEST(Options, TooManyInputs)
{
    std::vector<std::string> arguments(127, "a.tmf");
    expect_options(
        arguments, [] { note("%u", input_files.count()); }, "127\n");
    arguments.emplace_back("b.hex");
    arguments.emplace_back("-h"); // not seen any more
    expect_end(arguments, "(611) too many input files\n", 1);
}

TEST(Options, TraceArguments)
{
    // Before the option nothing is traced; with it the arguments of the command are.
    expect_run(
        [] {
            enter_scratch_folder();
            zrdebug_install();
            command_file = "@cmd";
            parse({"-v", "--zrdebug=on,out:t.log", "a.tmf"});
            const std::string trace_text = read_file("t.log");
            note("%s", trace_text.c_str());
        },
        "\nAPP: TARNWICK\nARGS: @cmd\nARGS: -v --zrdebug=on,out:t.log a.tmf\n\n");
}

TEST(OptionTable, NamesAreToldApart)
{
    std::set<std::string> seen;
    for (const option_row &row : option_table) {
        EXPECT_TRUE(seen.insert(row.name).second) << row.name;
        EXPECT_EQ(row.handler == nullptr, row.match == option_match::NEVER) << row.name;
        EXPECT_STRNE(row.help, "") << row.name;
        const std::string form = row.form;
        EXPECT_TRUE(form.starts_with("-")) << form;
        if (row.match == option_match::LETTER) {
            EXPECT_EQ(form[1], row.name[0]) << form;
        } else {
            EXPECT_TRUE(form.starts_with(std::string("--") + row.name)) << form;
        }
    }
}

TEST(OptionTable, LongOptionsAreTriedInOrder)
{
    const std::vector<std::string> order = {
        "edf",
        "emax",
        "msgdisable",
        "standard-dwarf",
        "disable-dwarf",
        "dwarf-use-ranges",
        "dwarf-use-loclists",
        "dwarf-addr-size",
        "ver",
        "psect-flags",
        "code-delta",
        "zrdebug",
        "code-spaces",
        "data-spaces",
        "eeprom-spaces",
        "Werror",
        "Wno-error",
    };
    std::vector<std::string> found;
    for (const option_row &row : option_table) {
        if (row.match != option_match::LETTER && row.match != option_match::NEVER) {
            found.emplace_back(row.name);
        }
    }
    EXPECT_EQ(found, order);
}
