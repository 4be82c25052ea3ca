// SPDX-License-Identifier: MIT
// Runs of the whole program, each in a process of its own and in an empty folder.
#include "compiler/tarnwick/driver.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/resource.h>

#include <gtest/gtest.h>

#include "common/alert.h"
#include "compiler/tarnwick/model.h"
#include "compiler/tarnwick/options.h"
#include "tests/unit/scenario.h"

namespace {

const std::string ONE_BYTE = ":0100000055AA\n:00000001FF\n";
const std::string ONE_BYTE_S19 = "S104000055A6\n"; // 04 + 55 is 59

const std::vector<std::string> SPACES = {"--code-spaces=1", "--data-spaces=2"};

int run(const std::vector<std::string> &arguments)
{
    std::vector<char *> pointers = {const_cast<char *>("tarnwick")};
    for (const std::string &argument : arguments) {
        pointers.push_back(const_cast<char *>(argument.c_str()));
    }
    const auto count = static_cast<int>(pointers.size());
    pointers.push_back(nullptr);
    return tarnwick_run(count, pointers.data());
}

// The same with both kinds of space given.
int run_with_spaces(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), SPACES.begin(), SPACES.end());
    return run(arguments);
}

// What lies in the current folder.
void note_folder()
{
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(".")) {
        if (!entry.is_directory()) {
            names.push_back(entry.path().string().substr(2));
        }
    }
    std::sort(names.begin(), names.end());
    std::string text;
    for (const std::string &name : names) {
        text += name + " ";
    }
    note("%s", text.c_str());
}

// A run over the inputs "a.hex", "b.x.hex" and "plain", all with one byte.
void expect_files(const std::vector<std::string> &arguments, const std::string &errors, const std::string &folder,
                  int status = 0)
{
    expect_run(
        [&] {
            enter_scratch_folder();
            for (const char *name : {"a.hex", "b.x.hex", "plain"}) {
                write_file(name, ONE_BYTE);
            }
            const int result = run_with_spaces(arguments);
            note_folder();
            std::exit(result);
        },
        errors + folder, status);
}

void expect_end(const std::vector<std::string> &arguments, const std::string &errors, int status)
{
    expect_run(
        [&] {
            enter_scratch_folder();
            write_file("a.hex", ONE_BYTE);
            std::exit(run(arguments));
        },
        errors, status);
}

} // namespace

TEST(Driver, ConvertsAnImage)
{
    expect_run(
        [] {
            enter_scratch_folder();
            write_file("a.hex", ONE_BYTE);
            note("%d", run_with_spaces({"a.hex", "-os19", "b.s19"}));
            note("%s", read_file("b.s19").c_str());
        },
        "0\n" + ONE_BYTE_S19 + "\n");
}

TEST(Driver, OutputNames)
{
    const std::string inputs = "a.hex b.x.hex plain ";
    expect_files({"a.hex", "-os19", "out"}, "", "a.hex b.x.hex out.hex plain \n");
    expect_files({"a.hex", "-os19", "x.y.z"}, "", inputs + "x.y.z \n");
    expect_files({"b.x.hex", "-ivi", "-ielf", "-oubrof"}, "(604) unknown file format name \"vi\"\n", "", 1);
    // Behind the last point the extension is another.
    expect_files({"b.x.hex", "-oubrof"}, "", "a.hex b.x.d43 b.x.hex plain \n");
    expect_files({"plain", "-oubrof"}, "", "a.hex b.x.hex plain plain.d43 \n");
    // A second nameless output follows the first; a named one lends its name likewise.
    expect_files({"a.hex", "-oubrof", "-oorbell"}, "", "a.d43 a.hex a.sym b.x.hex plain \n");
    expect_files({"a.hex", "-oubrof", "n.one", "-oorbell"}, "", "a.hex b.x.hex n.one n.sym plain \n");
    expect_files({"a.hex", "-oubrof", "-oorbell", "n.two", "-os19"}, "", "a.d43 a.hex b.x.hex n.hex n.two plain \n");
    // The input's own name: the last point of the path counts, even in a folder.
    expect_run(
        [] {
            enter_scratch_folder();
            std::filesystem::create_directory("d.x");
            write_file("d.x/plain", ONE_BYTE);
            run_with_spaces({"d.x/plain", "-oubrof"});
            note_folder();
        },
        "d.d43 d.x/plain \n");
}

TEST(Driver, NamelessOutputShortensTheNameThatItFollows)
{
    // The message layer's file is the first input: it loses its extension too.
    expect_run(
        [] {
            enter_scratch_folder();
            write_file("a.hex", ONE_BYTE);
            run_with_spaces({"a.hex", "-oubrof", "-oorbell"});
            alert(634, "x");
            note("%s %s %s %s", input_files.get(0), output_path, output_files.get(0), output_files.get(1));
        },
        "a: (634) error dumping \"x\" (warning)\na a.sym a a.sym\n");
}

TEST(Driver, ImagesAreReadFirst)
{
    expect_run(
        [] {
            enter_scratch_folder();
            for (const char *name : {"m", "p.hex", "q.HEX"}) {
                write_file(name, ONE_BYTE);
            }
            run({"-c", "m", "p.hex", "q.HEX"});
        },
        "==> Checking 'q.HEX' file type ...\n==> Not Kelvar ZRT Tarnwick Map File\n==> Not Orbell Software\n"
        "==> Confirmed as Intel HEX\n"
        "==> Checking 'p.hex' file type ...\n==> Not Kelvar ZRT Tarnwick Map File\n==> Not Orbell Software\n"
        "==> Confirmed as Intel HEX\n"
        "==> Checking 'm' file type ...\n==> Not Kelvar ZRT Tarnwick Map File\n==> Not Orbell Software\n"
        "==> Confirmed as Intel HEX\n"
        "==> Read 3 input files\n");
}

TEST(Driver, VerboseNotes)
{
    expect_run(
        [] {
            enter_scratch_folder();
            write_file("a.hex", ONE_BYTE);
            std::exit(run_with_spaces({"-v", "-iihex", "a.hex", "-os19", "b.s19", "-oubrof", "b.d43"}));
        },
        "==> Checking 'a.hex' file type ...\n"
        "==> Defaulting to Intel HEX\n"
        "==> Reading 'a.hex' as Intel HEX\n"
        "==> Read 1 input files\n"
        // One block is in hand: the total leaves the first one out, and the stray segment holds it.
        "\nData blocks: 1, total size 0\n"
        "\nSegments: 1\n\t_stray_data_0_ 0-0\n\n"
        "\nFiles: 0, syms: 0, lines: 0\n"
        "==> Writing 'b.s19' as Motorola HEX\n"
        "==> Writing 'b.d43' as UBROF\n"
        "==> Wrote 2 output files\n");
}

TEST(Driver, OneOutputIsNotCounted)
{
    expect_run(
        [] {
            enter_scratch_folder();
            write_file("a.hex", ":00000001FF\n");
            run_with_spaces({"-v", "-ii", "a.hex", "-os", "b"});
        },
        "==> Checking 'a.hex' file type ...\n==> Defaulting to Intel HEX\n==> Reading 'a.hex' as Intel HEX\n"
        "==> Read 1 input files\n\nFiles: 0, syms: 0, lines: 0\n==> Writing 'b.hex' as Motorola HEX\n");
}

TEST(Driver, VerboseNoteIsSilentOtherwise)
{
    expect_run(
        [] {
            verbose_note("no %d", 1);
            opt_verbose = 1;
            verbose_note("yes %d", 2);
        },
        "==> yes 2\n");
}

TEST(Driver, SpacesAreChecked)
{
    expect_end({"a.hex", "-os19"}, "(1451) no code spaces have been defined\n(1451) no data spaces have been defined\n",
               1);
    expect_end({"--code-spaces=1", "a.hex", "-os19"}, "(1451) no data spaces have been defined\n", 1);
    expect_end({"--code-spaces=1,2", "--data-spaces=3,2", "a.hex", "-os19"},
               "(1452) one or more spaces are defined as data and code\n", 1);
    // EEPROM may be anywhere.
    expect_end({"--code-spaces=1", "--data-spaces=2", "--eeprom-spaces=1,2", "a.hex", "-os19"}, "", 0);
}

TEST(Driver, MissingThings)
{
    // The position of reports is the first input, from the checks of the spaces on.
    expect_end({"--data-spaces=1", "a.hex"},
               "(1451) no code spaces have been defined\na.hex: (613) no output file format specified\n", 1);
    expect_end({"--code-spaces=1", "--data-spaces=2", "-os19"}, "(614) no input files specified\n", 1);
    expect_end({"-d"}, "(614) no input files specified\n", 1);
    expect_end({"-c"}, "(614) no input files specified\n", 1);
}

TEST(Driver, ReportsThatGoOnWhenLowered)
{
    // A catalogue that makes warnings of fatal reports.
    const std::string catalogue =
        "141 8 open %s %s\n378 8 create %s %s\n605 8 format\n613 8 no output\n614 8 no input\n";
    const auto lowered = [&](const std::vector<std::string> &arguments) {
        return [&catalogue, arguments] {
            enter_scratch_folder();
            write_file("99999999999999_en.msgs", catalogue);
            write_file("a.hex", ONE_BYTE);
            write_file("rubbish", "rubbish\n");
            const int result = run_with_spaces(arguments);
            if (std::filesystem::exists("out.hex")) {
                note("%s", read_file("out.hex").c_str());
            }
            std::exit(result);
        };
    };
    // An input that cannot be opened or recognised is passed over.
    expect_run(lowered({"none", "rubbish", "a.hex", "-os19", "out"}),
               "a.hex: (141) open input none (warning)\na.hex: (605) format (warning)\n" + ONE_BYTE_S19 + "\n");
    // An output that cannot be created is not written; the next one is.
    expect_run(lowered({"a.hex", "-oubrof", "no/out", "-os19", "out"}),
               "a.hex: (378) create output no/out.d43 (warning)\n" + ONE_BYTE_S19 + "\n");
    expect_run(lowered({"a.hex"}), "a.hex: (613) no output (warning)\n");
    // No input and no name: there is nothing to name the output after.
    expect_run(lowered({"-os19"}), "(614) no input (warning)\n");
    expect_run(lowered({"-os19", "out"}), "(614) no input (warning)\n\n");
}

TEST(Driver, FilesThatCannotBeOpened)
{
    expect_end({"--code-spaces=1", "--data-spaces=2", "none.hex", "-os19"},
               "none.hex: (141) can't open input file \"none.hex\": No such file or directory\n", 1);
    expect_end({"--code-spaces=1", "--data-spaces=2", ".", "-os19"},
               ".: (141) can't open input file \".\": Is a directory\n", 1);
    expect_end({"@none"}, "(141) can't open command file \"none\": No such file or directory\n", 1);
    expect_end({"--code-spaces=1", "--data-spaces=2", "a.hex", "-os19", "no/such.hex"},
               "a.hex: (378) can't create output file \"no/such.hex\"\n", 1);
}

TEST(Driver, FilesThatNoFormatTakes)
{
    expect_run(
        [] {
            enter_scratch_folder();
            write_file("x", std::string(100, '\x01') + "\n");
            run({"-v", "-c", "x"});
        },
        "==> Checking 'x' file type ...\n"
        "==> Not Kelvar ZRT Tarnwick Map File\n"
        "==> Not Orbell Software\n"
        "==> Not Intel HEX\n"
        "==> Not Motorola HEX\n"
        "==> Not Vantrel COFF\n"
        "Magic number not ELF\n" // the ELF room's own words, from -v -v on
        "==> Not ELF/DWARF\n"
        "==> Not UBROF\n"
        "x: (605) did not recognize format of input file\n",
        1);
}

TEST(Driver, DumpNeedsNoSpacesAndNoOutput)
{
    // Images have no dump: the report is a warning, and a newline follows on the standard output.
    expect_run(
        [] {
            enter_scratch_folder();
            write_file("a.hex", ONE_BYTE);
            if (std::freopen("stdout.txt", "w", stdout) == nullptr) {
                std::exit(9);
            }
            const int result = run({"-d", "a.hex"});
            note("%d %s", result, read_file("stdout.txt") == "\n" ? "newline" : "other");
        },
        "a.hex: (634) error dumping \"a.hex\" (warning)\n0 newline\n");
    // Nothing was read: an output is written from empty tables.
    expect_run(
        [] {
            enter_scratch_folder();
            write_file("a.hex", ONE_BYTE);
            run({"-d", "a.hex", "-oihex", "b"});
            note("%s", read_file("b.hex").c_str());
        },
        "a.hex: (634) error dumping \"a.hex\" (warning)\n:00000001FF\n\n");
}

TEST(Driver, IdentifyEndsBeforeAnyOutput)
{
    expect_run(
        [] {
            enter_scratch_folder();
            write_file("a.hex", ONE_BYTE);
            std::atexit(note_folder);
            run({"-c", "-iihex", "a.hex", "-oihex", "b"});
            note("went on");
        },
        "==> Checking 'a.hex' file type ...\n==> Defaulting to Intel HEX\n==> Read 1 input files\na.hex \n");
}

TEST(Driver, BinaryFormatsAreReadFromTheStart)
{
    expect_run(
        [] {
            enter_scratch_folder();
            write_file("a", "x");
            run({"-c", "-iubrof", "a"});
        },
        "==> Checking 'a' file type ...\n==> Defaulting to UBROF\n==> Read 1 input files\n");
}

TEST(Driver, ArgumentsFromTheStandardInput)
{
    const auto with_input = [](const std::string &text) {
        return [text] {
            enter_scratch_folder();
            write_file("a.hex", ONE_BYTE);
            write_file("input", text);
            if (std::freopen("input", "r", stdin) == nullptr) {
                std::exit(9);
            }
            const int result = run({});
            note("%s", std::filesystem::exists("b.s19") ? read_file("b.s19").c_str() : "nothing");
            std::exit(result);
        };
    };
    expect_run(with_input("--code-spaces=1 --data-spaces=2\na.hex -os19 b.s19\n"), ONE_BYTE_S19 + "\n");
    expect_run(with_input(""),
               "(1451) no code spaces have been defined\n(1451) no data spaces have been defined\n"
               "(613) no output file format specified\n",
               1);
    expect_run(with_input("-o\n"), "(602) null file format name\n", 1);
}

TEST(Driver, ArgumentsFromAFile)
{
    expect_run(
        [] {
            enter_scratch_folder();
            write_file("a.hex", ONE_BYTE);
            write_file("cmd", "--code-spaces=1 --data-spaces=2 a.hex\n-os19 \"b c.s19\"\n");
            const int result = run({"@cmd"});
            note("%s", read_file("b c.s19").c_str());
            std::exit(result);
        },
        ONE_BYTE_S19 + "\n");
    // With a second argument it is an input of that name, and so it is within the file.
    expect_end({"@cmd", "-d"}, "@cmd: (141) can't open input file \"@cmd\": No such file or directory\n", 1);
    expect_run(
        [] {
            enter_scratch_folder();
            write_file("cmd", "@more -d\n");
            run({"@cmd"});
        },
        "@more: (141) can't open input file \"@more\": No such file or directory\n", 1);
}

TEST(Driver, FakeSegmentForAbsoluteSymbols)
{
    expect_run(
        [] {
            enter_scratch_folder();
            write_file("a.hex", ":00000001FF\n");
            run({"-a", "--code-spaces=1", "--data-spaces=7,4", "a.hex", "-os19"});
            const tarn_segment *seg = seg_list.get(0);
            note("%u %u %s %u %u %u %u %u %u %u", fake_abs_segment, seg_list.count(), seg->sg_name, seg->sg_index,
                 seg->sg_space, seg->sg_flags, seg->sg_addr, seg->sg_load, seg->sg_size, seg->sg_delta);
        },
        "1 1 $FAKE_ABS4 0 4 5 0 0 0 0\n");
    // Not for a look at files.
    expect_run(
        [] {
            enter_scratch_folder();
            write_file("a.hex", ONE_BYTE);
            run({"-a", "-d", "--data-spaces=4", "a.hex"});
            note("%u %u", fake_abs_segment, seg_list.count());
        },
        "a.hex: (634) error dumping \"a.hex\" (warning)\n0 0\n");
}

TEST(Driver, ExitStatusOfTheMessageLayer)
{
    expect_end({"--code-spaces=1", "--data-spaces=2", "--eeprom-spaces=x", "a.hex", "-os19"},
               "(1450) invalid --eeprom-spaces argument (x)\n", 1);
    expect_run(
        [] {
            enter_scratch_folder();
            write_file("a.hex", "rubbish\n");
            const int result = run_with_spaces({"-w0!", "-iihex", "a.hex", "-os19"});
            note("%d", result);
        },
        "a.hex: (635) invalid HEX file \"a.hex\" on line 1 (warning)\n1\n");
}

TEST(Driver, FailedReadIsNoFailedRun)
{
    expect_run(
        [] {
            enter_scratch_folder();
            write_file("a.hex", ":0100000055AA\n:0100010055AA\n:0100020055A8\n");
            const int result = run_with_spaces({"a.hex", "-os19", "b.s19"});
            note("%d %s", result, read_file("b.s19").c_str());
        },
        // The block of the bad line is there, what comes behind it is not: 05 + 55 + 55 is AF.
        "a.hex: (636) checksum error in Intel HEX file \"a.hex\" on line 2 (warning)\n0 S1050000555550\n\n");
}

TEST(Driver, NoHalfOfAnOutputIsLeft)
{
    // The ELF writer reports a write that failed: here one beyond a limit on the size of files.
    const auto fail_while_writing = [](const std::string &path, const std::string &link) {
        return [=] {
            enter_scratch_folder();
            std::string image;
            for (int line = 0; line < 128; ++line) {
                char head[16];
                std::snprintf(head, sizeof head, "S113%04X", static_cast<unsigned>(line * 16));
                image += head + std::string(34, '0') + "\n"; // no reader tests the checksum
            }
            write_file("a.hex", image);
            if (!link.empty()) {
                std::filesystem::create_symlink("real", link);
            }
            std::atexit(note_folder);
            std::signal(SIGXFSZ, SIG_IGN);
            const rlimit limit = {1000, 1000}; // enough for what this process prints
            setrlimit(RLIMIT_FSIZE, &limit);
            run_with_spaces({"a.hex", "-oubrof", "whole", "-oelf", path});
        };
    };
    expect_run(fail_while_writing("half", ""), "a.hex: (413) write error on \"half.elf\"\na.hex whole.d43 \n", 1);
    // The file that was really made goes.
    expect_run(fail_while_writing(".\\half.elf", ""), "a.hex: (413) write error on \".\\half.elf\"\na.hex whole.d43 \n",
               1);
    // What is reached through a link is not ours to remove.
    expect_run(fail_while_writing("half.elf", "half.elf"),
               "a.hex: (413) write error on \"half.elf\"\na.hex half.elf real whole.d43 \n", 1);
}

TEST(Driver, OutputThatWasWrittenStays)
{
    // The run ends after the outputs are whole: between two of them nothing is in hand.
    expect_run(
        [] {
            enter_scratch_folder();
            write_file("a.hex", ONE_BYTE);
            std::atexit(note_folder);
            run_with_spaces({"a.hex", "-os19", "one", "-oubrof", "no/two"});
        },
        "a.hex: (378) can't create output file \"no/two.d43\"\na.hex one.hex \n", 1);
}
