// SPDX-License-Identifier: MIT
// What depends on the host: splitting and joining path names, tests for files, opening files. A path part ends at `\`
// or `/`, and `:` ends a drive prefix. Results are freshly allocated (release with `free`) unless noted.
#pragma once

#include <cstdio>
#include <optional>

constexpr bool path_is_separator(char c)
{
    return c == '\\' || c == '/';
}

char *path_join(const char *directory, const char *name); // null when the directory is null or empty
bool path_is_absolute(const char *path);                  // second character ":", or "\\" in front, or "/" in front
char *path_normalize(const char *path);
char *path_absolute(const char *path);
const char *path_tail(const char *path);      // into the path
char *path_basename(const char *path);        // the tail
char *path_stem(const char *path);            // the tail up to and with its last "."
const char *path_extension(const char *path); // into the path: the last "." and what follows, or ""
char *path_directory(const char *path);       // null when there is no separator
char *program_path();                         // real path of the running executable
char *working_directory();

bool file_exists(const char *path); // false for null
bool is_directory(const char *path);
bool is_regular_file(const char *path);
bool file_is_device(std::FILE *stream); // a character device, such as a terminal

// To be called at start-up. A standard stream that came closed gets a descriptor on which its use fails, so that no file
// takes its number. A pipe whose reader has gone, and a file at the host's limit of size, are failed writes from here on.
void prepare_streams();

// Opening files. A name that holds `\` is tried as it stands and, when there is no such file, with every `\` turned into
// `/`, so that names from a Windows tool chain work here. `errno` is that of the last attempt.
std::FILE *file_open(const char *path, const char *mode);
std::FILE *file_reopen(const char *path, const char *mode, std::FILE *stream);
int file_remove(const char *path);
char *file_host_name(const char *path); // what the operations above open for `path`
// Ends the use of an input. A standard stream is left open on an empty file, so that it can be reopened later.
void file_close_input(std::FILE *stream);

// The time that is written to files: `SOURCE_DATE_EPOCH` when it holds a decimal number, else the clock.
long long output_time();
std::optional<long long> fixed_output_time(); // the variable's alone
