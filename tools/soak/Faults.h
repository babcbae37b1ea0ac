#pragma once

#include <random>

#include "tests/faults/Fault.h"
#include "tests/support/Sanitizers.h"

/// Sanitizers have functions of their own in the place of those that fail.
inline constexpr bool kCanFail = !QVTest::kHasAddressSanitizer && !QVTest::kHasThreadSanitizer;

/// What fails in a host for a while, of all that its own threads and the core's call: a disk that
/// is full or broken, no descriptor left, a network that breaks, no thread, no memory for one
/// thing.
struct Trouble {
  Fault fault;
  bool isOfDisk;
  bool isOfNetwork;
};

/// One of them at random.
Trouble chooseTrouble(std::mt19937& random);
