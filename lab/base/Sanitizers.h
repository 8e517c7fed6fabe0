// SPDX-License-Identifier: Apache-2.0
// Whether this is a build with a sanitizer that has an allocator and memory of its own.

#pragma once

namespace lab {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define BOOTVIGIL_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define BOOTVIGIL_SANITIZED 1
#endif
#endif
#ifndef BOOTVIGIL_SANITIZED
#define BOOTVIGIL_SANITIZED 0
#endif

constexpr bool kSanitized = BOOTVIGIL_SANITIZED != 0;

}  // namespace lab
