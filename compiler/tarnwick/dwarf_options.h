// SPDX-License-Identifier: MIT
// The options of the debugging sections.
#pragma once

#include <cstdint>

enum dwarf_use_mode : std::uint8_t {
    DWARF_USE_NEVER = 0,
    DWARF_USE_AUTO = 1,
    DWARF_USE_ALWAYS = 2,
};

extern bool enable_dwarf;                 // --disable-dwarf clears it
extern bool standard_dwarf;               // --standard-dwarf; accepted and read by nothing
extern dwarf_use_mode dwarf_use_ranges;   // --dwarf-use-ranges=
extern dwarf_use_mode dwarf_use_loclists; // --dwarf-use-loclists=
extern std::uint8_t dwarf_addr_size;      // --dwarf-addr-size=, low byte; 0 when not given

// "never", "auto" or "always", in any case; any other text is a failed assertion and leaves the mode as it was.
void dwarf_parse_use_option(dwarf_use_mode *mode, const char *sub_opt);
