// SPDX-License-Identifier: MIT
// Several files in one input. A line "==== " and a name begins each file:
//
//     ==== command
//     -oelf out.elf prog.tmf
//     ==== prog.tmf
//     %TMF
//
// What stands in front of the first such line is a file too, without a name.
#pragma once

#include <string_view>

inline constexpr std::string_view PART_MARK = "==== ";

struct input_part {
    std::string_view name;
    std::string_view content;
};

// Takes the first part off `rest`; false when nothing is left.
bool take_part(std::string_view *rest, input_part *part);
