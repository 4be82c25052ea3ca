// SPDX-License-Identifier: MIT
// A new program model for a test that needs several in one process.
#pragma once

#include <vector>

#include "compiler/tarnwick/consolidate.h"
#include "compiler/tarnwick/model.h"

// Makes the model anew, unconsolidated. Models live until the process ends, so the one before is kept, and no leak.
inline void fresh_model()
{
    static auto *kept = new std::vector<const void *>; // outlives the leak check
    kept->insert(kept->end(), {file_list.raw(), files_by_name.raw(), symbol_list.raw(), symbols_by_name.raw(),
                               symbols_by_value.raw(), line_list.raw(), psect_table.raw(), psect_flags_table.raw(),
                               seg_list.raw(), data_list.raw(), code_spaces, data_spaces, eeprom_spaces});
    model_create();
    consolidation_reset();
}
