// SPDX-License-Identifier: MIT
// A run of the program, from the argument vector to its exit status.
#pragma once

#include "common/base.h"
#include "common/vector_of.h"

extern vector_of<const char *> output_files; // paths of the outputs so far; null before the output loop
extern const char *output_path;              // the output being written, or null

// The whole run; its result is the exit status.
int tarnwick_run(int count, char **arguments);

// When `opt_verbose` is on: "==> ", the text and a newline on the standard error stream.
void verbose_note(const char *format, ...) PRINTF_LIKE(1, 2);
// Runs the end-of-run steps and ends the process.
[[noreturn]] void tarn_exit(int status);
