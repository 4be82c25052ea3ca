// SPDX-License-Identifier: MIT
// Whether this build runs under the address sanitizer. Each compiler tells it in its own way.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool IS_SANITIZED = true;
#elif defined(__has_feature)
inline constexpr bool IS_SANITIZED = __has_feature(address_sanitizer);
#else
inline constexpr bool IS_SANITIZED = false;
#endif
