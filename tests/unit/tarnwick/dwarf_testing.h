// SPDX-License-Identifier: MIT
// What the tests of the debugging sections share: expected bytes put together by hand, and a run in which the report of
// an internal error does not end the process.
#pragma once

#include <cstdint>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "common/alert.h"
#include "common/catalogue.h"
#include "compiler/tarnwick/dwarf_accessors.h"
#include "compiler/tarnwick/dwarf_options.h"
#include "compiler/tarnwick/options.h"
#include "tests/unit/tarnwick/trace_log.h"

// Expected bytes in the byte order in force, by arithmetic of their own.
class section_bytes : public std::vector<std::uint8_t> {
public:
    section_bytes() = default;
    section_bytes(const std::uint8_t *data, std::size_t size) : std::vector<std::uint8_t>(data, data + size) {}

    section_bytes &number(std::uint64_t v, std::size_t width)
    {
        for (std::size_t i = 0; i < width; ++i) {
            const std::size_t place = opt_big_endian ? width - 1 - i : i;
            push_back(static_cast<std::uint8_t>(v >> (8 * place)));
        }
        return *this;
    }
    section_bytes &b1(std::uint64_t v) { return number(v, 1); }
    section_bytes &b2(std::uint64_t v) { return number(v, 2); }
    section_bytes &b4(std::uint64_t v) { return number(v, 4); }
    section_bytes &text(std::string_view text)
    {
        insert(end(), text.begin(), text.end());
        push_back(0);
        return *this;
    }
    section_bytes &zeros(std::size_t count)
    {
        insert(end(), count, 0);
        return *this;
    }
    section_bytes &bytes(const section_bytes &others)
    {
        insert(end(), others.begin(), others.end());
        return *this;
    }
    // Bytes as they stand, such as those of a LEB128 number.
    section_bytes &raw(std::initializer_list<std::uint8_t> list)
    {
        insert(end(), list);
        return *this;
    }
};

// The byte-addressed target, with every mode at its start.
class dwarf_room {
public:
    explicit dwarf_room(bool big_endian = false)
    {
        dwarf_access = &dwarf_byte_accessors;
        opt_big_endian = big_endian;
        dwarf_use_ranges = DWARF_USE_NEVER;
        dwarf_use_loclists = DWARF_USE_NEVER;
    }
    ~dwarf_room()
    {
        dwarf_access = nullptr;
        opt_big_endian = false;
        dwarf_use_ranges = DWARF_USE_NEVER;
        dwarf_use_loclists = DWARF_USE_NEVER;
    }
    dwarf_room(const dwarf_room &) = delete;
    dwarf_room &operator=(const dwarf_room &) = delete;
};

inline constexpr std::uint32_t INTERNAL_ERROR = 1521;
inline const std::string INTERNAL_ERROR_TEXT =
    "(1521) internal error encountered creating DWARF information; contact Vantrel support with details";

// While it lives, internal errors are ordinary errors, as a catalogue may make them, and the `dwarf` class is traced.
class survived_errors {
public:
    survived_errors()
    {
        alert_initialise();
        entry_ = message_table.get(INTERNAL_ERROR);
        entry_->type = MESSAGE_ERROR;
        old_limit_ = set_maxerrors(1000000);
        errors_before_ = alert_error_count();
        trace_log::lines().clear(); // what the load of the catalogue traced
        gDebugMask = TRACE_DWARF;
        testing::internal::CaptureStderr();
    }
    ~survived_errors()
    {
        testing::internal::GetCapturedStderr();
        set_maxerrors(old_limit_);
        entry_->type = MESSAGE_FATAL;
    }
    survived_errors(const survived_errors &) = delete;
    survived_errors &operator=(const survived_errors &) = delete;

    std::uint32_t count() const { return alert_error_count() - errors_before_; }
    // Trace lines; a line number behind a source file's name reads N.
    static std::vector<std::string> traced()
    {
        std::vector<std::string> lines;
        for (const std::string &line : trace_log::lines()) {
            lines.push_back(std::regex_replace(line, std::regex(R"(\.cpp : \d+\))"), ".cpp : N)"));
        }
        return lines;
    }
    static const std::vector<std::string> &failed() { return trace_log::failed(); }

private:
    trace_log log_;
    message_entry *entry_ = nullptr;
    std::int32_t old_limit_ = 0;
    std::uint32_t errors_before_ = 0;
};
