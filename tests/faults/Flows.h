#pragma once

#include "tests/faults/Flow.h"

template <class Kind>
std::unique_ptr<Flow> make(const std::string& container) {
  return std::make_unique<Kind>(container);
}

/// What ends at the disk.
std::vector<FlowKind> fileFlows();
/// What goes to the network, to a server at that URL that answers "ok".
std::vector<FlowKind> networkFlows(const std::string& server);
