// SPDX-License-Identifier: MIT
// Reading a command from the standard input stream.
#pragma once

// The argument vector: `prompt` first, then what the lines of the standard input hold, null behind the last. The array
// is one global; a second call replaces it. Raises message 917 for an argument that is too long.
char **getargs(const char *prompt);
