// SPDX-License-Identifier: MIT
// Vantrel COFF files: the row of the format table, and the settings that the operations share.
#include "compiler/tarnwick/coff_file.h"
#include "compiler/tarnwick/format.h"

coff_settings coff;

constinit const format_descriptor format_vcoff = {
    .identify = format_no_identify,
    .read = format_no_transfer,
    .write = format_no_transfer,
    .dump = format_no_dump,
    .name = "Vantrel COFF",
    .key = "vcoff",
    .ext = "cof",
    .binary = true,
};
