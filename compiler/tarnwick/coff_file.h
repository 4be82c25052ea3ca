// SPDX-License-Identifier: MIT
// Vantrel COFF files: the four operations of the format and what they share. The layout is in coff.h.
#pragma once

#include <cstdint>
#include <cstdio>

// What the operations keep for each other: the reader takes it from the optional header, the writer from the processor
// words. It stays as the last operation left it.
struct coff_settings {
    std::uint32_t processor = 0; // chip identifier
    std::uint32_t rom_width = 8; // bits of a program word; 0 where the chip's is not known
    std::uint32_t ram_width = 8; // bits of a data word
    std::uint32_t rom_unit = 1;  // bytes of a program address unit
    std::uint32_t ram_unit = 1;  // bytes of a data address unit
};

extern coff_settings coff;

// True if the stream starts with this format. From the magic on, the byte order is little-endian and stays so.
bool vcoff_identify(std::FILE *stream);
// Reads the whole file into the program model; true on success. Raises messages 633, 639, 1037, 1038 and 1043.
bool vcoff_read(std::FILE *stream, const char *path);
// Writes the model and the symbol database as one file; the byte order is little-endian from here on. Raises the fatal
// messages 413 and 600.
bool vcoff_write(std::FILE *stream, const char *path);
// Prints the file on the standard output stream; false on failure.
bool vcoff_dump(std::FILE *stream);
