// SPDX-License-Identifier: MIT
// Vantrel COFF files: the row of the format table, and the settings that the operations share.
#include "compiler/tarnwick/coff_file.h"
#include "compiler/tarnwick/format.h"

coff_settings coff;

constinit const format_descriptor format_vcoff = {
    .identify = vcoff_identify,
    .read = vcoff_read,
    .write = vcoff_write,
    .dump = vcoff_dump,
    .name = "Vantrel COFF",
    .key = "vcoff",
    .ext = "cof",
    .binary = true,
};
