// SPDX-License-Identifier: MIT
// Printing the debugging sections of an ELF file. A damaged section ends with a warning, and the next one goes on.
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>
#include <string_view>

// Finds and prints them all, on the standard output stream. `headers` are the section headers as they stand in the file,
// 40 bytes each, in the byte order in force; `names` is the section name table. Raises messages 157, 666, 667 and 1301.
void dwarf_find_secs(std::FILE *stream, std::span<const std::uint8_t> headers, std::string_view names);
