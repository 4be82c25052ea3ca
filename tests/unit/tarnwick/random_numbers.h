// SPDX-License-Identifier: MIT
// Numbers of 32 bits that are the same in every run of a test.
#pragma once

#include <cstdint>
#include <random>

class random_numbers {
public:
    explicit random_numbers(std::uint32_t seed) : engine_(seed) {}

    std::uint32_t operator()() { return static_cast<std::uint32_t>(engine_()); }

private:
    std::mt19937 engine_;
};
