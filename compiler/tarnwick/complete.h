// SPDX-License-Identifier: MIT
// Completing the model after all inputs were read: end addresses of lines, and symbols and lines by file.
#pragma once

#include "compiler/tarnwick/model.h"

// Gives each line its end address. Raises message 1289 for a line of a file that spans more than 255 units.
void line_span_fixup();
// Gathers each file's symbols and lines, and prints them when `opt_verbose` is on; `name_width` is the column of
// segment names. Raises messages 606 and 607.
void distribute_by_file(std::uint32_t name_width);
