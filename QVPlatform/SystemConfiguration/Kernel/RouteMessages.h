#pragma once

#include <QVPlatform/SystemConfiguration/Kernel/NetworkInterface.h>
#include <QVPlatform/SystemConfiguration/Kernel/Route.h>

#include <linux/netlink.h>

#include <optional>

namespace QVPlatform {

// These read one message of the kernel. They return nothing when it is of another kind or cut
// short.

/// Nothing as well when the route refuses or drops packets.
std::optional<Route> readRoute(const nlmsghdr* message);
std::optional<NetworkInterface> readInterface(const nlmsghdr* message);
/// The index of the interface that the address belongs to.
std::optional<unsigned> readAddressOwner(const nlmsghdr* message);

}  // namespace QVPlatform
