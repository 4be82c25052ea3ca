// SPDX-License-Identifier: MIT
// The program `tarnwick`.
#include "common/alloc.h"
#include "common/osdep.h"
#include "compiler/tarnwick/driver.h"

int main(int argc, char **argv)
{
    prepare_streams();
    xalloc_report_all();
    return tarnwick_run(argc, argv);
}
