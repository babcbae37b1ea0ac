#include <QVPlatform/SystemConfiguration/Kernel/KernelReachabilitySource.h>

#include <QVPlatform/Foundation/ForkMutex.h>
#include <QVPlatform/Foundation/Lasting.h>
#include <QVPlatform/SystemConfiguration/Kernel/HostResolver.h>
#include <QVPlatform/SystemConfiguration/Kernel/RouteMonitor.h>
#include <QVPlatform/SystemConfiguration/Kernel/RouteQuery.h>

#include <array>
#include <cerrno>
#include <memory>
#include <optional>
#include <utility>

// The flags of an address are those of the way to it: the kernel is asked for the route that it
// would take now, and for the interface of that route (RouteQuery). Nothing is sent anywhere, and
// nothing is remembered, so that the answer is that of the moment. A name has the best of the flags
// of its addresses, which HostResolver looks up in the background. RouteMonitor says when the
// kernel changed something; docs/reachability.md tells which fact makes which flag.

namespace QVPlatform {
namespace {

using Flags = NetworkReachabilityFlags;

constexpr Flags kReachable = kSCNetworkReachabilityFlagsReachable;
constexpr Flags kIsDirect = kSCNetworkReachabilityFlagsIsDirect;

/// Addresses in the midst of the Internet, those of a root name server: what leads there is what
/// leads anywhere. The kernel is asked for its way to them; nothing is ever sent there.
const NetworkAddress& farAddress(bool isIPv6) {
  static const NetworkAddress v4 = NetworkAddress::v4({198, 41, 0, 4});
  static const NetworkAddress v6 =
      NetworkAddress::v6({0x20, 0x01, 0x05, 0x03, 0xba, 0x3e, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0x30});
  return isIPv6 ? v6 : v4;
}

Flags flagsOf(const Route& route, const NetworkInterface& interface) {
  if (!interface.carriesTraffic() && !interface.awaitsConnection()) return 0;
  if (route.isLocal) return kReachable | kIsDirect | kSCNetworkReachabilityFlagsIsLocalAddress;
  Flags flags = kReachable;
  if (!route.gateway) flags |= kIsDirect;
  if (interface.isModem()) flags |= kSCNetworkReachabilityFlagsIsWWAN;
  if (interface.isDialled()) flags |= kSCNetworkReachabilityFlagsTransientConnection;
  if (interface.awaitsConnection()) {
    flags |= kSCNetworkReachabilityFlagsConnectionRequired;
    flags |= interface.isDialled() ? kSCNetworkReachabilityFlagsConnectionOnTraffic
                                   : kSCNetworkReachabilityFlagsConnectionOnDemand;
  }
  return flags;
}

Flags flagsOfPath(RouteQuery& query, const NetworkAddress& to) {
  const auto route = query.route(to);
  if (!route) return 0;
  const auto interface = query.interface(route->interface);
  return interface ? flagsOf(*route, *interface) : 0;
}

bool isReadyForUse(Flags flags) {
  return (flags & kReachable) && !(flags & kSCNetworkReachabilityFlagsConnectionRequired);
}

/// Of several ways the first that is ready for use, else the first that there is.
template <class Ways, class FlagsOfWay>
Flags bestFlags(const Ways& ways, const FlagsOfWay& flagsOfWay) {
  Flags best = 0;
  for (const auto& way : ways) {
    const Flags flags = flagsOfWay(way);
    if (isReadyForUse(flags)) return flags;
    if (best == 0) best = flags;
  }
  return best;
}

/// No single address is meant, so none is direct.
Flags flagsOfInternet(RouteQuery& query) {
  return bestFlags(std::array{false, true}, [&](bool isIPv6) {
    return flagsOfPath(query, farAddress(isIPv6)) & ~kIsDirect;
  });
}

Flags flagsOfLocalNetwork(RouteQuery& query) {
  for (const auto& interface : query.interfacesWithAddress()) {
    if (interface.isLocalNetwork()) return kReachable | kIsDirect;
  }
  return 0;
}

Flags flagsOfAddress(RouteQuery& query, const NetworkAddress& address) {
  if (address.isUnspecified()) return flagsOfInternet(query);
  if (address == NetworkAddress::v4({169, 254, 0, 0})) return flagsOfLocalNetwork(query);
  return flagsOfPath(query, address);
}

Flags flagsOfName(RouteQuery& query, const String& name) {
  if (const auto literal = NetworkAddress::parse(name.view())) {
    return flagsOfAddress(query, *literal);
  }
  return bestFlags(HostResolver::shared().addresses(name),
                   [&](const NetworkAddress& address) { return flagsOfPath(query, address); });
}

/// Tells whether the way into the Internet is another one than at the last question. Kernel events
/// come for many small reasons (a scan for wireless networks, a renewed lease); names are looked up
/// anew for this one only.
class PathWatch {
 public:
  PathWatch() { hasChanged(); }

  bool hasChanged() {
    RouteQuery query;
    Path path{usableRoute(query, false), usableRoute(query, true)};
    const Lock lock(mutex_);
    return std::exchange(path_, path) != path;
  }

 private:
  using Path = std::array<std::optional<Route>, 2>;

  static std::optional<Route> usableRoute(RouteQuery& query, bool isIPv6) {
    const auto route = query.route(farAddress(isIPv6));
    if (!route) return std::nullopt;
    const auto interface = query.interface(route->interface);
    return interface && interface->carriesTraffic() ? route : std::nullopt;
  }

  ForkMutex mutex_;
  Path path_ QV_GUARDED_BY(mutex_);
};

class KernelReachabilitySource final : public ReachabilitySource {
 public:
  bool getFlags(const ReachabilityTarget& target, Flags* flags) override {
    RouteQuery query;
    const Flags found = target.hostName.isNull()
                            ? flagsOfAddress(query, NetworkAddress::v4(target.address.address))
                            : flagsOfName(query, target.hostName);
    if (query.hasFailed()) {
      const int error = errno;
      RouteMonitor::shared().callWhenKernelAnswers(error);
      errno = error;
      return false;
    }
    *flags = found;
    return true;
  }

  std::shared_ptr<void> subscribe(const ReachabilityTarget& target, Changed changed) override {
    const String& name = target.hostName;
    if (name.isNull() || NetworkAddress::parse(name.view())) {
      return RouteMonitor::shared().subscribe(std::move(changed));
    }
    return subscribeToName(name, changed);
  }

 private:
  static std::shared_ptr<void> subscribeToName(const String& name, const Changed& changed) {
    auto routes =
        RouteMonitor::shared().subscribe([name, changed, watch = std::make_shared<PathWatch>()] {
          if (watch->hasChanged()) HostResolver::shared().refresh(name);
          changed();
        });
    if (!routes) return nullptr;
    using Subscriptions = std::pair<std::shared_ptr<void>, std::shared_ptr<void>>;
    return std::make_shared<Subscriptions>(std::move(routes),
                                           HostResolver::shared().subscribe(name, changed));
  }
};

}  // namespace

const std::shared_ptr<ReachabilitySource>& kernelReachabilitySource() {
  struct Shared {
    const std::shared_ptr<ReachabilitySource> source = std::make_shared<KernelReachabilitySource>();
  };
  return Lasting<Shared>::object().source;
}

}  // namespace QVPlatform
