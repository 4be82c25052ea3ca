// SPDX-License-Identifier: MIT
// Integers of the target.
#include "compiler/tarnwick/encdec.h"

#include <concepts>

#include "compiler/tarnwick/options.h"

namespace {

enum class byte_order : std::uint8_t { LITTLE, BIG };

// The position, counted from the lowest-valued byte, of the byte at `index`.
template <byte_order Order>
constexpr std::uint32_t significance(std::uint32_t index, std::uint32_t size)
{
    return Order == byte_order::LITTLE ? index : size - 1 - index;
}

template <byte_order Order, std::unsigned_integral T>
T get(const std::uint8_t *p)
{
    std::uint64_t value = 0;
    for (std::uint32_t i = 0; i < sizeof(T); ++i) {
        value |= std::uint64_t{p[i]} << significance<Order>(i, sizeof(T)) * 8;
    }
    return static_cast<T>(value);
}

template <byte_order Order, std::unsigned_integral T>
std::uint8_t *put(std::uint8_t *p, T value)
{
    for (std::uint32_t i = 0; i < sizeof(T); ++i) {
        p[i] = static_cast<std::uint8_t>(std::uint64_t{value} >> significance<Order>(i, sizeof(T)) * 8);
    }
    return p + sizeof(T);
}

constexpr std::uint32_t HALF = sizeof(std::uint64_t);

template <byte_order Order>
uint128_value get_wide(const std::uint8_t *p)
{
    const auto first = get<Order, std::uint64_t>(p);
    const auto second = get<Order, std::uint64_t>(p + HALF);
    return Order == byte_order::LITTLE ? uint128_value{first, second} : uint128_value{second, first};
}

template <byte_order Order>
std::uint8_t *put_wide(std::uint8_t *p, uint128_value value)
{
    const bool little = Order == byte_order::LITTLE;
    p = put<Order, std::uint64_t>(p, little ? value.low : value.high);
    return put<Order, std::uint64_t>(p, little ? value.high : value.low);
}

template <byte_order Order>
constexpr byte_operations operations_of = {
    get<Order, std::uint16_t>, get<Order, std::uint32_t>, get<Order, std::uint64_t>, get_wide<Order>,
    put<Order, std::uint16_t>, put<Order, std::uint32_t>, put<Order, std::uint64_t>, put_wide<Order>,
};

const byte_operations &in_force()
{
    return byte_ops[opt_big_endian ? 1 : 0];
}

constexpr std::uint8_t LEB_MORE = 0x80;
constexpr std::uint8_t LEB_PAYLOAD = 0x7F;
constexpr std::uint8_t LEB_SIGN = 0x40;
constexpr std::uint32_t LEB_BITS = 7;
constexpr std::uint32_t VALUE_BITS = 64;

// Reads groups up to the last one, of any number: what lies above 64 bits is dropped. `bits` receives how many bits the
// groups held and `last` the last group.
std::uint64_t leb_get(const std::uint8_t **p, std::uint32_t *bits, std::uint8_t *last)
{
    std::uint64_t value = 0;
    std::uint32_t shift = 0;
    std::uint8_t group = 0;
    do {
        group = *(*p)++;
        if (shift < VALUE_BITS) {
            value |= std::uint64_t{static_cast<std::uint8_t>(group & LEB_PAYLOAD)} << shift;
            shift += LEB_BITS;
        }
    } while ((group & LEB_MORE) != 0);
    *bits = shift;
    *last = group;
    return value;
}

} // namespace

constinit const byte_operations byte_ops[2] = {operations_of<byte_order::LITTLE>, operations_of<byte_order::BIG>};

std::uint8_t get8(const std::uint8_t *p)
{
    return *p;
}

std::uint16_t get16(const std::uint8_t *p)
{
    return in_force().get16(p);
}

std::uint32_t get32(const std::uint8_t *p)
{
    return in_force().get32(p);
}

std::uint64_t get64(const std::uint8_t *p)
{
    return in_force().get64(p);
}

uint128_value get128(const std::uint8_t *p)
{
    return in_force().get128(p);
}

std::uint8_t *put8(std::uint8_t *p, std::uint8_t value)
{
    *p = value;
    return p + 1;
}

std::uint8_t *put16(std::uint8_t *p, std::uint16_t value)
{
    return in_force().put16(p, value);
}

std::uint8_t *put32(std::uint8_t *p, std::uint32_t value)
{
    return in_force().put32(p, value);
}

std::uint8_t *put64(std::uint8_t *p, std::uint64_t value)
{
    return in_force().put64(p, value);
}

std::uint8_t *put128(std::uint8_t *p, uint128_value value)
{
    return in_force().put128(p, value);
}

std::uint32_t uleb_put(std::uint8_t **p, std::uint64_t value)
{
    std::uint32_t count = 0;
    do {
        const auto group = static_cast<std::uint8_t>(value & LEB_PAYLOAD);
        value >>= LEB_BITS;
        *(*p)++ = value != 0 ? group | LEB_MORE : group;
        ++count;
    } while (value != 0);
    return count;
}

std::uint32_t sleb_put(std::uint8_t **p, std::int64_t value)
{
    std::uint32_t count = 0;
    bool more = true;
    while (more) {
        const auto group = static_cast<std::uint8_t>(value & LEB_PAYLOAD);
        value >>= LEB_BITS; // keeps the sign
        // The last group is the one whose sign bit speaks for all that is left.
        more = (group & LEB_SIGN) != 0 ? value != -1 : value != 0;
        *(*p)++ = more ? group | LEB_MORE : group;
        ++count;
    }
    return count;
}

std::uint64_t uleb_get(const std::uint8_t **p)
{
    std::uint32_t bits = 0;
    std::uint8_t last = 0;
    return leb_get(p, &bits, &last);
}

std::int64_t sleb_get(const std::uint8_t **p)
{
    std::uint32_t bits = 0;
    std::uint8_t last = 0;
    std::uint64_t value = leb_get(p, &bits, &last);
    if (bits < VALUE_BITS && (last & LEB_SIGN) != 0) {
        value |= ~std::uint64_t{0} << bits;
    }
    return static_cast<std::int64_t>(value);
}
