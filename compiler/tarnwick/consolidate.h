// SPDX-License-Identifier: MIT
// Consolidation: every byte of data in a segment, and each segment a single run of bytes in one block.
#pragma once

#include "compiler/tarnwick/model.h"

// The whole of it; does nothing when it has been done or while there is no data.
void ensure_contiguous_data();

// Its steps.
void map_data_list_to_segments();
// Cuts the |count| first (count above 0) or last bytes off a block into a new one at the end of `data_list`.
void split_data(tarn_data *dp, std::int64_t count);
void split_segment(tarn_segment *oldsp, vector_of<tarn_data *> datals);
// Forgets that it was done, and the stray segment in use: for a new model in the same process.
void consolidation_reset();
