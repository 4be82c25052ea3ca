// SPDX-License-Identifier: MIT
// Texts that help with the command line.
#pragma once

// Both print on the standard error stream.
void print_usage();
void print_format_list();
