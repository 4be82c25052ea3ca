// SPDX-License-Identifier: MIT
// What the program says about itself.
#pragma once

inline constexpr const char *VERSION_PRODUCT = "ZRT";
inline constexpr const char *VERSION_COMPONENT = "tarnwick"; // also the program's name in reports and traces
inline constexpr const char *VERSION_STRING = "2.46";
inline constexpr char VERSION_SUFFIX = ' ';
inline constexpr const char *VERSION_BUILD_DATE = "Jan  4 2024";
inline constexpr const char *VERSION_RELEASE = "";
inline constexpr const char *VERSION_BUILD_NUMBER = "20240104201356";
inline constexpr const char *VERSION_COPYRIGHT = "Copyright (c) 2026 The Tarnwick authors";

// Prints the banner of `--ver` on the standard output.
void version_banner();
