// SPDX-License-Identifier: MIT
// Hexadecimal text in steps of sixteen bytes, as most records hold them, on hosts with vectors: SSE2 is part of every
// x86-64. Elsewhere, and for what is left over, the callers go byte by byte.
#pragma once

#include <cstddef>
#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace hexwide {

inline constexpr std::uint32_t STEP_BYTES = 16;
inline constexpr std::uint32_t STEP_DIGITS = 2 * STEP_BYTES;

#if defined(__SSE2__)

// The values of 16 digits; `good` loses the places of characters that are none.
inline __m128i values_of(__m128i text, __m128i *good)
{
    const __m128i number = _mm_sub_epi8(text, _mm_set1_epi8('0'));
    const __m128i letter = _mm_sub_epi8(_mm_or_si128(text, _mm_set1_epi8('a' - 'A')), _mm_set1_epi8('a'));
    const __m128i in_numbers = _mm_cmpeq_epi8(_mm_min_epu8(number, _mm_set1_epi8(9)), number);
    const __m128i in_letters = _mm_cmpeq_epi8(_mm_min_epu8(letter, _mm_set1_epi8(5)), letter);
    *good = _mm_and_si128(*good, _mm_or_si128(in_numbers, in_letters));
    const __m128i letter_value = _mm_add_epi8(letter, _mm_set1_epi8(10));
    return _mm_or_si128(_mm_and_si128(in_numbers, number), _mm_andnot_si128(in_numbers, letter_value));
}

// What pairs of digit values give, each in 16 bits. The first of a pair, the upper half of its byte, stands lower.
inline __m128i joined(__m128i values)
{
    const __m128i both = _mm_or_si128(_mm_slli_epi16(values, 4), _mm_srli_epi16(values, 8));
    return _mm_and_si128(both, _mm_set1_epi16(0xFF));
}

// The digits of 16 values below 16, upper case.
inline __m128i digits_of(__m128i values)
{
    const __m128i beyond_nine = _mm_cmpgt_epi8(values, _mm_set1_epi8(9));
    const __m128i from_letter = _mm_and_si128(beyond_nine, _mm_set1_epi8('A' - '0' - 10));
    return _mm_add_epi8(_mm_add_epi8(values, _mm_set1_epi8('0')), from_letter);
}

inline std::uint32_t sum_of(__m128i bytes)
{
    const __m128i halves = _mm_sad_epu8(bytes, _mm_setzero_si128());
    return static_cast<std::uint32_t>(_mm_cvtsi128_si32(halves) + _mm_extract_epi16(halves, 4));
}

// Decodes bytes from the front of `count` pairs of characters, in whole steps up to one that holds a character that is no
// digit; the number of bytes that it stored and added to `sum`.
inline std::uint32_t decode(const char *text, std::uint32_t count, std::uint8_t *out, std::uint32_t *sum)
{
    std::uint32_t done = 0;
    for (; count - done >= STEP_BYTES; done += STEP_BYTES, text += STEP_DIGITS) {
        const auto *digits = reinterpret_cast<const __m128i *>(text);
        __m128i good = _mm_set1_epi8(-1);
        const __m128i first = joined(values_of(_mm_loadu_si128(digits), &good));
        const __m128i second = joined(values_of(_mm_loadu_si128(digits + 1), &good));
        if (_mm_movemask_epi8(good) != 0xFFFF) {
            break;
        }
        const __m128i bytes = _mm_packus_epi16(first, second);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out + done), bytes);
        *sum += sum_of(bytes);
    }
    return done;
}

// Writes the digits of bytes from the front of `count`, in whole steps; the number of bytes that it wrote and added to `sum`.
inline std::uint32_t encode(const std::uint8_t *bytes, std::uint32_t count, char *text, std::uint32_t *sum)
{
    std::uint32_t done = 0;
    for (; count - done >= STEP_BYTES; done += STEP_BYTES, text += STEP_DIGITS) {
        const __m128i values = _mm_loadu_si128(reinterpret_cast<const __m128i *>(bytes + done));
        const __m128i low = _mm_and_si128(values, _mm_set1_epi8(0xF));
        const __m128i high = _mm_and_si128(_mm_srli_epi16(values, 4), _mm_set1_epi8(0xF));
        auto *digits = reinterpret_cast<__m128i *>(text);
        _mm_storeu_si128(digits, digits_of(_mm_unpacklo_epi8(high, low)));
        _mm_storeu_si128(digits + 1, digits_of(_mm_unpackhi_epi8(high, low)));
        *sum += sum_of(values);
    }
    return done;
}

#else

inline std::uint32_t decode(const char *, std::uint32_t, std::uint8_t *, std::uint32_t *)
{
    return 0;
}

inline std::uint32_t encode(const std::uint8_t *, std::uint32_t, char *, std::uint32_t *)
{
    return 0;
}

#endif

} // namespace hexwide
