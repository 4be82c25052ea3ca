// SPDX-License-Identifier: MIT
// The warnings of the field diagnosis. The run goes on without what failed.
#pragma once

#include "common/base.h"

// "ZRDEBUG (warning): " and the text, as a report with no position.
void zrdebug_warn(const char *format, ...) PRINTF_LIKE(1, 2);
