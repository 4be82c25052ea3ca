// SPDX-License-Identifier: MIT
// The option state of a run. The driver sets it while it reads the command line; all other rooms only read it, but for
// the byte order, which COFF and ELF files set as they are identified, read or written.
#pragma once

#include <array>
#include <cstdint>

#include "common/vector_of.h"

inline constexpr std::uint32_t OPTION_LIST_MAX = 128; // inputs, outputs and processor words

extern std::uint8_t opt_verbose;                                 // -v, -c
extern bool opt_identify;                                        // -c
extern bool opt_dump;                                            // -d
extern bool opt_big_endian;                                      // -b
extern bool opt_fake_abs;                                        // -a
extern bool opt_fake_locals;                                     // -f; nothing reads it
extern bool opt_fake_blocks;                                     // -k
extern bool opt_strip_underscore;                                // -m
extern bool opt_strip_ext;                                       // -e
extern const char *processor_name;                               // -p, first piece; cached or null
extern std::array<const char *, OPTION_LIST_MAX> processor_args; // -p, the others; null behind the last
extern std::uint32_t code_delta;                                 // --code-delta=
extern std::uint32_t input_format;                               // -i; 0 detects
extern vector_of<const char *> input_files;
extern std::uint32_t output_count;
extern std::array<std::uint32_t, OPTION_LIST_MAX> output_formats; // format numbers
extern std::array<const char *, OPTION_LIST_MAX> output_names;    // null where none was given
extern const char *command_file; // the argument "@file" that the command was read from, or null

// Reads the arguments behind the program's name, left to right. Ends the process for -h, -l, --ver and bad options.
void parse_options(int count, char *const *arguments);
