// SPDX-License-Identifier: MIT
// The program's state between two inputs of one process. A run leaves behind filled tables and memory that belongs to
// them, for the program ends after it. Here everything is put back: global data of the program's library get the bytes
// they had before the first run, and each block of memory that is still allocated is released. So each input finds the
// program as it starts, and a pointer that survives is seen by the address sanitizer.
#pragma once

void state_initialise(); // takes the picture that is put back
void state_begin();      // memory allocated from here on belongs to the run
void state_end();
