// SPDX-License-Identifier: MIT
// The program `tarnwick`.
#include "compiler/tarnwick/driver.h"

int main(int argc, char **argv)
{
    return tarnwick_run(argc, argv);
}
