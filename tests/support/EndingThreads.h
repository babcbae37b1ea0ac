#pragma once

#include <pthread.h>
#include "Test.h"

namespace QVTest {

/// Whether a thread may end in the middle: gcc's check of references takes the exception that this
/// is for a null pointer wherever it is caught.
#ifdef __SANITIZE_ADDRESS__
inline constexpr bool kThreadsMayEnd = false;
#else
inline constexpr bool kThreadsMayEnd = true;
#endif

}  // namespace QVTest
