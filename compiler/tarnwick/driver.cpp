// SPDX-License-Identifier: MIT
// A run of the program. `tarnwick_run` at the end of the file names the steps in their order.
//
// The standard streams are the files in hand: each input is opened by reopening the standard input stream on it, and
// each output by reopening the standard output stream. Reports go to the standard error stream.
#include "compiler/tarnwick/driver.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <sys/stat.h>

#include "common/alert.h"
#include "common/alloc.h"
#include "common/getargs.h"
#include "common/osdep.h"
#include "common/stringcache.h"
#include "common/version.h"
#include "compiler/common/problem_package.h"
#include "compiler/common/zrdebug.h"
#include "compiler/tarnwick/complete.h"
#include "compiler/tarnwick/consolidate.h"
#include "compiler/tarnwick/format.h"
#include "compiler/tarnwick/model.h"
#include "compiler/tarnwick/options.h"
#include "compiler/tarnwick/sdb.h"

vector_of<const char *> output_files;
const char *output_path = nullptr;

namespace {

constexpr char COMMAND_FILE_MARK = '@';

bool output_in_hand = false; // the standard output stream is an output that is being written

struct argument_vector {
    int count = 0;
    char **arguments = nullptr;
};

const char *first_input()
{
    return input_files.get(0); // null when there is none
}

// --- start -----------------------------------------------------------------------------------------------------------

argument_vector read_arguments()
{
    argument_vector vector;
    vector.arguments = getargs(VERSION_COMPONENT);
    while (vector.arguments[vector.count] != nullptr) {
        ++vector.count;
    }
    return vector;
}

// The arguments of the run, without the program's own name: those given, those of the one "@file" argument, or with
// none at all those that the standard input holds.
argument_vector start_arguments(argument_vector given)
{
    if (given.count <= 1) {
        given = read_arguments();
    } else if (given.count == 2 && given.arguments[1][0] == COMMAND_FILE_MARK) {
        command_file = given.arguments[1];
        const char *path = command_file + 1;
        if (file_reopen(path, "r", stdin) == nullptr) {
            alert(141, "command", path);
            return {};
        }
        given = read_arguments();
        if (std::ferror(stdin) != 0) {
            alert(141, "command", path);
            return {};
        }
    }
    return {given.count - 1, given.arguments + 1};
}

void create_tables()
{
    opt_big_endian = false;
    model_create();
    input_files = vector_of<const char *>::make();
}

// --- checks ----------------------------------------------------------------------------------------------------------

void check_spaces()
{
    if (set_is_empty(code_spaces)) {
        alert(1451, "code");
    }
    if (set_is_empty(data_spaces)) {
        alert(1451, "data");
    }
    if (set_intersects(code_spaces, data_spaces)) {
        alert(1452);
    }
}

// A segment without bytes, to which absolute symbols belong under -a. Its stored number stays 0.
void add_fake_abs_segment()
{
    fake_abs_segment = seg_list.count() + 1;
    const auto space = static_cast<std::uint32_t>(set_min(data_spaces));
    tarn_segment record;
    record.sg_name = str_printf("$FAKE_ABS%u", space);
    record.sg_space = space;
    record.sg_flags = PDB_WRITE | PDB_NOSPACE;
    tarn_add_segment(record);
}

void check_options()
{
    if (opt_dump || opt_identify) {
        // Spaces don't matter to a look at files.
        alert_set_position(first_input(), nullptr);
    } else {
        check_spaces();
        if (opt_fake_abs) {
            add_fake_abs_segment();
        }
        alert_set_position(first_input(), nullptr);
        if (output_count == 0) {
            alert(613);
        }
    }
    if (input_files.empty()) {
        alert(614);
    }
}

// --- inputs ----------------------------------------------------------------------------------------------------------

bool open_input(const char *path, const char *mode)
{
    if (file_reopen(path, mode, stdin) == nullptr) {
        alert(141, "input", path);
        return false;
    }
    return true;
}

// False for a pipe, which gives its bytes only once; `errno` tells why.
bool input_can_start_again()
{
    return std::fseek(stdin, 0, SEEK_SET) == 0;
}

// False, with a report, for a device such as /dev/zero that starts again at will and still gives bytes without end.
bool has_end(const char *path)
{
    if (!file_is_device(stdin) || !input_can_start_again() || std::getc(stdin) == EOF) {
        return true;
    }
    errno = EFBIG;
    alert(141, "input", path);
    return false;
}

// The format of the open input, or null when no row takes it. Identification sees the bytes as they are.
const format_descriptor *detect_format(const char *path)
{
    if (!input_can_start_again()) {
        alert(141, "input", path);
        return nullptr;
    }
    for (const format_descriptor *format : format_table) {
        std::rewind(stdin);
        if (format->identify(stdin)) {
            verbose_note("Confirmed as %s", format->name);
            return format;
        }
        verbose_note("Not %s", format->name);
    }
    alert(605);
    return nullptr;
}

const format_descriptor *choose_format(const char *path)
{
    if (input_format == 0) {
        return detect_format(path);
    }
    const format_descriptor *format = format_table[input_format - 1];
    verbose_note("Defaulting to %s", format->name);
    return format;
}

// Sends what is buffered for the standard output stream. False, with a report, when not all that went there did arrive.
bool finish_writing(const char *name)
{
    const bool flushed = std::fflush(stdout) == 0;
    if (!flushed || std::ferror(stdout) != 0) {
        alert(413, name);
        return false;
    }
    return true;
}

void dump_input(const format_descriptor *format, const char *path)
{
    std::fflush(stderr);
    if (!format->dump(stdin)) {
        alert(634, path);
    }
    std::fputc('\n', stdout);
    finish_writing("standard output");
}

void read_input(const format_descriptor *format, const char *path)
{
    verbose_note("Reading '%s' as %s", path, format->name);
    std::fflush(stderr);
    format->read(stdin, path);
    std::fflush(stdout);
}

// False when the input was passed over.
bool take_input(const char *path)
{
    if (!open_input(path, "rb") || !has_end(path)) {
        return false;
    }
    verbose_note("Checking '%s' file type ...", path);
    const format_descriptor *format = choose_format(path);
    if (format == nullptr) {
        return false;
    }
    if (format->binary) {
        std::rewind(stdin);
    } else if (input_can_start_again() && !open_input(path, "r")) { // a pipe whose format is given is read as it comes
        return false;
    }
    if (opt_dump) {
        dump_input(format, path);
    } else if (!opt_identify) {
        read_input(format, path);
    }
    return true;
}

void take_inputs()
{
    int count = 0;
    for (const char *path : each(input_files)) {
        count += take_input(path) ? 1 : 0;
    }
    verbose_note("Read %d input files", count);
    if (opt_verbose != 0) {
        sdb_dump();
    }
}

// --- completion ------------------------------------------------------------------------------------------------------

void complete_model()
{
    ensure_contiguous_data();
    std::size_t name_width = 0;
    if (opt_verbose != 0) {
        std::fprintf(stderr, "\nFiles: %u, syms: %u, lines: %u\n", file_list.count(), symbol_list.count(),
                     line_list.count());
        for (const tarn_segment *seg : each(seg_list)) {
            name_width = std::max(name_width, std::strlen(seg->sg_name));
        }
    }
    line_span_fixup();
    distribute_by_file(static_cast<std::uint32_t>(name_width));
}

// --- outputs ---------------------------------------------------------------------------------------------------------

const char *named_output(const char *name, const char *extension)
{
    return std::strchr(name, '.') != nullptr ? name : str_add_ext(name, extension);
}

// The next output's path follows `base`. The base loses its extension where it stands: whatever else holds that cached
// text, such as the file that reports name, or the list of outputs, sees it shortened from here on. The last "." counts
// even if it belongs to a folder.
const char *follow_output(const char *base, const char *extension)
{
    char *point = const_cast<char *>(std::strrchr(base, '.'));
    if (point != nullptr) {
        *point = '\0';
    }
    return str_printf("%s.%s", base, extension);
}

// Null when there is nothing to name the output after.
const char *next_output_path(const char *name, const char *extension)
{
    if (name != nullptr) {
        return named_output(name, extension);
    }
    const char *base = output_path != nullptr ? output_path : first_input();
    return base != nullptr ? follow_output(base, extension) : nullptr;
}

// False when the output was not written.
bool write_output(const format_descriptor *format, const char *name)
{
    const char *path = next_output_path(name, format->ext);
    if (path == nullptr) {
        return false;
    }
    output_path = path;
    output_files.push(path);
    if (file_reopen(path, format->binary ? "wb" : "w", stdout) == nullptr) {
        alert(378, "output", path);
        return false;
    }
    output_in_hand = true;
    verbose_note("Writing '%s' as %s", path, format->name);
    std::fflush(stderr);
    format->write(stdout, path);
    const bool written = finish_writing(path); // writers of text don't look at the results of their prints
    output_in_hand = false;
    return written;
}

void write_outputs()
{
    file_close_input(stdin);
    output_files = vector_of<const char *>::make();
    int count = 0;
    for (std::uint32_t k = 0; k < output_count; ++k) {
        count += write_output(format_table[output_formats[k] - 1], output_names[k]) ? 1 : 0;
    }
    if (count != 1) {
        verbose_note("Wrote %d output files", count);
    }
}

// --- end -------------------------------------------------------------------------------------------------------------

// A run that ends while it writes leaves no half of an output behind. Links and devices stay.
void remove_half_output()
{
    struct stat opened = {};
    struct stat named = {};
    const bool is_link = ::lstat(output_path, &named) == 0 && S_ISLNK(named.st_mode);
    if (!is_link && ::fstat(::fileno(stdout), &opened) == 0 && S_ISREG(opened.st_mode)) {
        file_remove(output_path);
    }
}

void end_of_run()
{
    zrdebug_close();
    std::fflush(stdout); // a fatal report leaves the last output half written
    for (const char *path : each(output_files)) {
        zrdebug_add_file(path, nullptr);
    }
}

} // namespace

void verbose_note(const char *format, ...)
{
    if (opt_verbose == 0) {
        return;
    }
    std::fflush(stdout);
    std::fputs("==> ", stderr);
    std::va_list arguments;
    va_start(arguments, format);
    std::vfprintf(stderr, format, arguments);
    va_end(arguments);
    std::fputc('\n', stderr);
    std::fflush(stderr);
}

void tarn_exit(int status)
{
    static bool ending = false;
    if (!ending) { // a report from the steps themselves ends the process at once
        ending = true;
        end_of_run();
    }
    if (output_in_hand) {
        remove_half_output();
    }
    std::exit(status);
}

int tarnwick_run(int count, char **arguments)
{
    // Reports of the lower rooms end the run here, and their traces go to the trace file.
    alert_set_exit(tarn_exit);
    zrdebug_install();

    const argument_vector given = start_arguments({count, arguments});
    create_tables();
    parse_options(given.count, given.arguments);
    check_options();

    // Every input goes into the model.
    take_inputs();
    if (opt_identify) {
        std::exit(EXIT_SUCCESS);
    }

    // The model is whole from here on: all bytes in segments, lines with their ends, symbols and lines with their
    // files.
    complete_model();

    write_outputs();
    end_of_run();
    return alert_exit_status();
}
