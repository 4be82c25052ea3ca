// SPDX-License-Identifier: MIT
// The problem package: a zip with the trace file and the outputs of a run, for a report to the makers of the tool chain.
// What fails here is told by a warning, and the run goes on.
#pragma once

// The sub-option `zip`: "<path>" for a new package, "+<path>" for one that is added to, null for a new one under its
// default name.
void package_parse(const char *argument);

// Adds a file to the package; `comment` may be null. Nothing happens without a package or without such a file.
void zrdebug_add_file(const char *path, const char *comment);
