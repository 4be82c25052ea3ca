// SPDX-License-Identifier: MIT
// The readable dump of a 32-bit ELF file, on the standard output stream.
#pragma once

#include <cstdint>
#include <cstdio>

// The more `opt_verbose` counts the more is shown: from 1 on symbols and strings, from 2 on all of the headers, from 3 on
// the numbers behind the names, and data. Raises messages 1037, 1291 and 1302, and those of the debugging sections.
bool elf_dump(std::FILE *stream);

// Bytes of a file, 16 in a row, as far as the file holds them.
void elf_hex_rows(std::uint32_t offset, std::uint32_t length, std::FILE *stream);
