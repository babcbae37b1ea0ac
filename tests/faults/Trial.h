#pragma once

#include <array>

#include "tests/faults/Fault.h"
#include "tests/faults/Flow.h"

/// What came of an operation with one fault.
struct Outcome {
  bool hasFailed = false;  // whether there were so many calls that the fault came about
  std::array<long, kCallCount> counts{};
  std::string complaint;  // empty when all that is promised held
};

/// Runs the operation in a process of its own, and the application's next run in another one.
Outcome tryOut(const FlowKind& kind, const Fault& fault);
