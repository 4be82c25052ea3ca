// SPDX-License-Identifier: MIT
// Field diagnosis under `--zrdebug=`: the trace file and the assertion handler. It stands behind the calls of
// common/trace.h once it is installed.
#pragma once

#include <cstdint>

#include "common/base.h"
#include "common/hash_of.h"

// Names given to the `debug` sub-option, without regard to case; null before the first. Nothing consults it yet.
extern hash_of<const char *, const char *> gDebugTargets;

// Makes this module the owner of the tracing. Nothing is written before `zrdebug_parse` has opened a trace file.
void zrdebug_install();

// Takes a "zrdebug=..." option; only the first one counts. Raises message 141 for a trace file that cannot be opened.
void zrdebug_parse(const char *option);

// Traces the arguments of the command; the first call also names the program.
void trace_args(int count, char *const *arguments);

// A dump of `size` bytes, `width` in a row; a width of 0 puts all into one row. As for function entries, the caller
// tests a class bit first.
void trace_hexdump(const char *name, const void *address, std::uint32_t size, std::uint32_t width, bool show_text,
                   birth_place where = birth_place::here());

// The end of the run: a trace file under its default name goes into the problem package, and the containers' master lists
// go to the trace.
void zrdebug_close();
