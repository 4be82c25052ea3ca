// SPDX-License-Identifier: MIT
// Messages of every kind, for the tests of the message layer.
#pragma once

#include <cstdint>
#include <string>

#include "common/alert.h"
#include "tests/unit/scenario.h"

// Numbers of the built-in catalogue, by what they are.
inline constexpr std::uint32_t A_MESSAGE = 1;         // "too many errors (%u)"
inline constexpr std::uint32_t A_FATAL = 296;         // "out of memory"
inline constexpr std::uint32_t A_WARNING = 634;       // level 0, "error dumping \"%s\""
inline constexpr std::uint32_t A_HIGH_WARNING = 1304; // level 5, "unknown register name: \"%s\""
inline constexpr std::uint32_t A_LOW_WARNING = 1289;  // level -9
inline constexpr std::uint32_t AN_ERROR = 1437;       // "TMF error: %s"
inline constexpr std::uint32_t AN_ERRNO_FATAL = 141;  // "can't open %s file \"%s\": %m"
inline constexpr std::uint32_t BAD_WERROR = 1606;     // raised without a position
inline constexpr std::uint32_t UNKNOWN = 9;           // in no catalogue

inline constexpr std::uint32_t LINE = 12;
inline constexpr std::uint32_t BASE = 100;
inline constexpr std::uint32_t COLUMN = 105;

inline const std::string BAD_WERROR_LINE =
    "(1606) w[no-]error option has been passed an invalid or missing message identifier\n";

inline void note_counts()
{
    note("errors %u warnings %u status %d", alert_error_count(), alert_warning_count(), alert_exit_status());
}

// One report of each kind that does not end the process, and what was counted.
inline void probe_kinds()
{
    alert(A_MESSAGE, 7U);
    alert(AN_ERROR, "x");
    alert(A_WARNING, "x");
    note_counts();
}
