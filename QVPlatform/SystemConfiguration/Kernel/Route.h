#pragma once

#include <QVPlatform/SystemConfiguration/Kernel/NetworkAddress.h>

#include <optional>

namespace QVPlatform {

/// Where the kernel sends packets for some address.
struct Route {
  unsigned interface = 0;
  /// The address is one of this system.
  bool isLocal = false;
  /// Nothing when the address is reached directly.
  std::optional<NetworkAddress> gateway;

  friend bool operator==(const Route&, const Route&) = default;
};

}  // namespace QVPlatform
