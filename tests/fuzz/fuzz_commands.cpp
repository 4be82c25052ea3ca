// SPDX-License-Identifier: MIT
// Commands: the reading of arguments, the options, and catalogues.
#include <cstdlib>

#include "common/alert.h"
#include "common/catalogue.h"
#include "common/getargs.h"
#include "compiler/common/zrdebug.h"
#include "compiler/tarnwick/driver.h"
#include "compiler/tarnwick/model.h"
#include "compiler/tarnwick/options.h"
#include "tests/fuzz/command.h"
#include "tests/fuzz/host.h"
#include "tests/fuzz/targets.h"

void fuzz_arguments(std::string_view input)
{
    alert_set_exit(tarn_exit);
    host_open_stdin(input);
    int count = 0;
    for (char **argument = getargs("tarnwick"); *argument != nullptr; ++argument) {
        ++count;
    }
    if (count == 0) {
        std::abort(); // the prompt is always there
    }
}

// A command that the program reads for itself. Its files are not there, but for one image.
void fuzz_options(std::string_view input)
{
    host_add_file("one.hex", ":0400000001020304F2\n:00000001FF\n");
    host_open_stdin(input);
    command_run({});
}

// The catalogue decides the texts, which are formats for arguments of kinds it does not know.
void fuzz_catalogue(std::string_view input)
{
    alert_set_exit(tarn_exit);
    host_add_file("30000000000000_en.txt", input);
    open_edf("30000000000000_en.txt");
    for (const std::uint32_t number : {602u, 613u, 634u, 141u, 1437u, 636u, 627u, 1289u, 296u}) {
        for (const int mode : {0, 1}) {
            alert_set_format_mode(mode);
            const message_type type = message_table && message_table.get(number) != nullptr
                                          ? message_table.get(number)->type
                                          : MESSAGE_UNTYPED;
            if (type != MESSAGE_FATAL) { // which would end the run
                alert(number, "a text", 7u);
                alert_noline(number, 7u, "a text");
                alert_once_noline(number);
            }
        }
    }
}
