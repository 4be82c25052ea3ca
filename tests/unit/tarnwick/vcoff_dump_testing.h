// SPDX-License-Identifier: MIT
// What the tests of the COFF dump share: what is printed of a file that is put together byte by byte.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include "common/alert.h"
#include "compiler/tarnwick/coff_file.h"
#include "compiler/tarnwick/format.h"
#include "compiler/tarnwick/options.h"
#include "tests/unit/tarnwick/coff_bytes.h"
#include "tests/unit/tarnwick/image_testing.h"

namespace vcoff_dump_testing {

using namespace coff_bytes;

struct dump_result {
    bool result;
    std::string output;
    std::string errors;

    bool operator==(const dump_result &) const = default;
};

inline void PrintTo(const dump_result &r, std::ostream *out)
{
    *out << (r.result ? "true" : "false") << "\noutput:\n" << r.output << "\nerrors:\n" << r.errors;
}

inline std::string short_read(const std::string &label)
{
    return "(1037) short read on " + label + "\n";
}

inline const std::string SYMBOL_COUNT = "(1039) inconsistent symbol count\n";

// What a file of two sections prints in front of its symbols.
inline const std::string SYMBOLS_START = "Symbol table:\n";

class vcoff_dump_test : public testing::Test {
protected:
    void SetUp() override
    {
        setenv("TZ", "UTC", 1);
        tzset();
        set_maxerrors(1000000);
        alert_set_position(nullptr, nullptr);
        alert_set_format_mode(0);
        opt_big_endian = false;
        opt_verbose = 0;
    }
    void TearDown() override
    {
        opt_big_endian = false;
        opt_verbose = 0;
    }

    static dump_result dump_bytes(const std::string &content, std::uint8_t verbose = 0)
    {
        opt_verbose = verbose;
        const image_file file(content);
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        const bool result = format_vcoff.dump(file.stream());
        std::fflush(stdout);
        opt_verbose = 0;
        return {result, testing::internal::GetCapturedStdout(), testing::internal::GetCapturedStderr()};
    }
    static dump_result dump(const file_fields &file, std::uint8_t verbose = 0)
    {
        return dump_bytes(file.bytes(), verbose);
    }
    // The output of a clean dump from the first appearance of a text on.
    static std::string from(const std::string &text, const file_fields &file, std::uint8_t verbose = 0)
    {
        const dump_result r = dump(file, verbose);
        EXPECT_TRUE(r.result);
        EXPECT_EQ(r.errors, "");
        const std::size_t start = r.output.find(text);
        return start == std::string::npos ? "no \"" + text + "\"" : r.output.substr(start);
    }
    // The rows of these entries, in a file with the sections "code" and "a_long_section".
    static std::string rows(const std::string &symbols)
    {
        const std::string output = from(SYMBOLS_START, with_symbols(symbols), 1);
        EXPECT_EQ(output.substr(output.size() - 2), "\n\n");
        return output.substr(SYMBOLS_START.size(), output.size() - SYMBOLS_START.size() - 1);
    }
    static std::string row(const symbol_fields &symbol, const std::string &aux = "")
    {
        return rows(symbol.bytes() + aux);
    }
    static file_fields with_symbols(const std::string &symbols)
    {
        return {.sections = {{}, {.name = long_name(4)}},
                .symbols = symbols,
                .strings = string_table({"a_long_section", "source_file.c"})};
    }
};

} // namespace vcoff_dump_testing
