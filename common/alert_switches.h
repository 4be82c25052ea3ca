// SPDX-License-Identifier: MIT
// What the user's switches make of a message: `--Werror` and the override stack. The message layer asks here for each
// report; the operations that set the switches stand in common/alert.h.
#pragma once

#include <cstdint>

#include "common/catalogue.h"

// Changes type and level of the message in place. `warning_level` is the level in force.
void alert_apply_switches(message_entry *message, std::int32_t warning_level);
