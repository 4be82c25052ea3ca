// SPDX-License-Identifier: MIT
// Raising source files to modules, and giving modules, functions, blocks and variables their address ranges. Both run
// once, before debugging information is written.
#pragma once

#include "compiler/tarnwick/sdb.h"

// Turns the tree around: every source file that a module marks becomes a module of its own, or joins one of its name.
void sdb_raise_all_files();
// Fills the ranges of modules, functions and blocks and rewrites the locations of autos and parameters.
// Raises fatal message 1314 for a function whose range ends before it begins, and 294 for ranges and locations out of
// all proportion to the input. Variables must not go through it twice.
void sdb_calc_ranges();
// Appends a range to the list of a block.
void add_range(sdb_block *block, std::uint32_t low, std::uint32_t high);
