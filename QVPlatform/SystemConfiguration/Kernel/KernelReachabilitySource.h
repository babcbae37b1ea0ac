#pragma once

#include <QVPlatform/SystemConfiguration/ReachabilitySource.h>

#include <memory>

namespace QVPlatform {

/// The default source: the routes, links and addresses of the kernel. docs/reachability.md says
/// which fact makes which flag. One for the process, never destroyed.
const std::shared_ptr<ReachabilitySource>& kernelReachabilitySource();

}  // namespace QVPlatform
