// SPDX-License-Identifier: MIT
// A fuzz target is a function that feeds one input to the part of the program it is named after. It is called through
// `host_run`, and may leave by any way out that the program has.
#pragma once

#include <string_view>

#define FUZZ_TARGET(name, longest, dictionaries) void fuzz_##name(std::string_view input);
#include "tests/fuzz/targets.def"
#undef FUZZ_TARGET
