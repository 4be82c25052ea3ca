// SPDX-License-Identifier: MIT
// Integers of the target: byte order and LEB128. `opt_big_endian` chooses the row of `byte_ops`; each put stores at a
// position and returns the position behind the stored bytes.
#pragma once

#include <cstdint>

struct uint128_value {
    std::uint64_t low = 0;
    std::uint64_t high = 0;
};

struct byte_operations {
    std::uint16_t (*get16)(const std::uint8_t *p);
    std::uint32_t (*get32)(const std::uint8_t *p);
    std::uint64_t (*get64)(const std::uint8_t *p);
    uint128_value (*get128)(const std::uint8_t *p);
    std::uint8_t *(*put16)(std::uint8_t *p, std::uint16_t value);
    std::uint8_t *(*put32)(std::uint8_t *p, std::uint32_t value);
    std::uint8_t *(*put64)(std::uint8_t *p, std::uint64_t value);
    std::uint8_t *(*put128)(std::uint8_t *p, uint128_value value);
};

// Row 0 is little-endian, row 1 big-endian.
extern const byte_operations byte_ops[2];

// In the byte order in force.
std::uint8_t get8(const std::uint8_t *p);
std::uint16_t get16(const std::uint8_t *p);
std::uint32_t get32(const std::uint8_t *p);
std::uint64_t get64(const std::uint8_t *p);
uint128_value get128(const std::uint8_t *p);
std::uint8_t *put8(std::uint8_t *p, std::uint8_t value);
std::uint8_t *put16(std::uint8_t *p, std::uint16_t value);
std::uint8_t *put32(std::uint8_t *p, std::uint32_t value);
std::uint8_t *put64(std::uint8_t *p, std::uint64_t value);
std::uint8_t *put128(std::uint8_t *p, uint128_value value);

// LEB128 as DWARF defines it: they move the position; the puts return the number of bytes stored.
std::uint32_t uleb_put(std::uint8_t **p, std::uint64_t value);
std::uint32_t sleb_put(std::uint8_t **p, std::int64_t value);
std::uint64_t uleb_get(const std::uint8_t **p);
std::int64_t sleb_get(const std::uint8_t **p); // extends the sign only if fewer than 64 bits were read
