#pragma once

#include <QVPlatform/SystemConfiguration/Kernel/NetworkAddress.h>
#include <QVPlatform/SystemConfiguration/Kernel/NetworkInterface.h>
#include <QVPlatform/SystemConfiguration/Kernel/Route.h>

#include <optional>
#include <vector>

namespace QVPlatform {

/// Questions to the kernel about its routes and links. Made for a few questions, used by one
/// thread, in that thread's network namespace. Every answer comes at once.
class RouteQuery {
 public:
  /// The way that a packet would take; nothing when no route leads to the address.
  std::optional<Route> route(const NetworkAddress& to);
  /// Nothing when there is no such interface.
  std::optional<NetworkInterface> interface(unsigned index);
  /// Those that have an address of their own, IPv4 or IPv6.
  std::vector<NetworkInterface> interfacesWithAddress();

  /// Whether the kernel could not be asked, so that an answer of "nothing" has no meaning; errno
  /// says why.
  bool hasFailed() const noexcept { return hasFailed_; }

 private:
  bool hasFailed_ = false;
};

}  // namespace QVPlatform
