// SPDX-License-Identifier: MIT
// Why reports are made and what to do about them, for the reference of messages. Texts are in the markup of the pages.
#pragma once

#include <cstdint>
#include <span>

struct message_cause {
    std::uint32_t number;
    const char *cause;
    const char *remedy;
};

// A report by its text: one that has no number, or one of the texts that a numbered message carries.
struct text_cause {
    const char *text;
    const char *cause;
};

// One for each row of the built-in catalogue, in its order.
std::span<const message_cause> message_causes();
// The texts of message 1437.
std::span<const text_cause> map_file_causes();
// Reports that have no number.
std::span<const text_cause> plain_causes();
