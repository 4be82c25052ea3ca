// SPDX-License-Identifier: MIT
// The host as the program sees it inside a fuzz target. Files are in memory, and there are no others: whatever path an
// input makes up, nothing of the machine is opened, written or removed. The end of the process is the end of the run.
#pragma once

#include <string_view>

// The folder that is the current one of every run.
inline constexpr std::string_view HOST_FOLDER = "/in";

// To be called once, ahead of the first run.
void host_initialise();

// Lets the program find a file with this content. The content must live until the run ends.
void host_add_file(std::string_view name, std::string_view content);
// Makes a file the standard input stream.
void host_open_stdin(std::string_view content);

// Ends a run, as the end of the process does.
[[noreturn]] void host_leave(int status);

// Runs a target on an input. The result is the exit status, 0 when the target came to its end. Nothing of the run is
// left behind: streams are as before, and all files are gone.
int host_run(void (*target)(std::string_view input), std::string_view input);
