// SPDX-License-Identifier: MIT
// One target as libFuzzer calls it. The build names the target by TARN_FUZZ_TARGET.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "tests/fuzz/host.h"
#include "tests/fuzz/program_state.h"
#include "tests/fuzz/targets.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    host_initialise();
    state_initialise();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const int status = host_run(TARN_FUZZ_TARGET, {reinterpret_cast<const char *>(data), size});
    if (status != EXIT_SUCCESS && status != EXIT_FAILURE) {
        std::abort(); // the program has no other exit status
    }
    return 0;
}
