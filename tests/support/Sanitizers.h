#pragma once

// Which sanitizer this program runs under, and what no test may do then.

#ifdef __clang__
#if __has_feature(address_sanitizer)
#define QV_HAS_ADDRESS_SANITIZER
#endif
#if __has_feature(thread_sanitizer)
#define QV_HAS_THREAD_SANITIZER
#endif
#else
#ifdef __SANITIZE_ADDRESS__
#define QV_HAS_ADDRESS_SANITIZER
#endif
#ifdef __SANITIZE_THREAD__
#define QV_HAS_THREAD_SANITIZER
#endif
#endif

namespace QVTest {

#ifdef QV_HAS_ADDRESS_SANITIZER
inline constexpr bool kHasAddressSanitizer = true;
#else
inline constexpr bool kHasAddressSanitizer = false;
#endif
#ifdef QV_HAS_THREAD_SANITIZER
inline constexpr bool kHasThreadSanitizer = true;
#else
inline constexpr bool kHasThreadSanitizer = false;
#endif

/// Whether a child of a process with several threads may go on: ThreadSanitizer ends it when it
/// starts some of its own, and AddressSanitizer may wait for ever for another thread of the parent
/// that was just allocating.
inline constexpr bool kChildrenMayGoOn = !kHasAddressSanitizer && !kHasThreadSanitizer;

/// Whether a thread may end in the middle: gcc's check of references takes the exception that this
/// is for a null pointer wherever it is caught.
#ifdef __clang__
inline constexpr bool kThreadsMayEnd = true;
#else
inline constexpr bool kThreadsMayEnd = !kHasAddressSanitizer;
#endif

}  // namespace QVTest
