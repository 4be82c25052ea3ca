// SPDX-License-Identifier: MIT
// Where each input has a process of its own, nothing has to be put back.
#include "tests/fuzz/program_state.h"

void state_initialise() {}

void state_begin() {}

void state_end() {}
