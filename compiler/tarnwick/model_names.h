// SPDX-License-Identifier: MIT
// What the rooms of the program model share among themselves.
#pragma once

// The cached name under which a file stands in the tables: without its extension under `opt_strip_ext`. Null for null.
const char *model_file_name(const char *name);
// Forgets what the look-ups remember of tables that are no more.
void model_finders_reset();
void model_segments_reset();
