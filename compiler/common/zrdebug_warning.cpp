// SPDX-License-Identifier: MIT
#include "compiler/common/zrdebug_warning.h"

#include <cstdarg>
#include <cstddef>
#include <cstdio>

#include "common/alert.h"

void zrdebug_warn(const char *format, ...)
{
    constexpr std::size_t WARNING_SIZE = 8192; // what the message layer prints at the most
    char text[WARNING_SIZE];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    alert_plain("ZRDEBUG (warning): %s", text);
}
