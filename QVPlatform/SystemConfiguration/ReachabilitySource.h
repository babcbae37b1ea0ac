#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/String.h>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>

namespace QVPlatform {

/// A set of the constants below. 0 means: not reachable.
using NetworkReachabilityFlags = std::uint32_t;

/// Reached over a connection that comes and goes, such as PPP.
inline constexpr NetworkReachabilityFlags kSCNetworkReachabilityFlagsTransientConnection = 0x1;
/// Reached with the network as it is set up now, if need be after a connection is established.
inline constexpr NetworkReachabilityFlags kSCNetworkReachabilityFlagsReachable = 0x2;
/// A connection must be established first.
inline constexpr NetworkReachabilityFlags kSCNetworkReachabilityFlagsConnectionRequired = 0x4;
/// Any traffic towards the target establishes the connection.
inline constexpr NetworkReachabilityFlags kSCNetworkReachabilityFlagsConnectionOnTraffic = 0x8;
/// Somebody must do something, such as type a password, before the connection is established.
inline constexpr NetworkReachabilityFlags kSCNetworkReachabilityFlagsInterventionRequired = 0x10;
/// The connection is established for whoever asks the system for it.
inline constexpr NetworkReachabilityFlags kSCNetworkReachabilityFlagsConnectionOnDemand = 0x20;
/// The target is an address of this system.
inline constexpr NetworkReachabilityFlags kSCNetworkReachabilityFlagsIsLocalAddress = 0x10000;
/// The target is reached without a gateway.
inline constexpr NetworkReachabilityFlags kSCNetworkReachabilityFlagsIsDirect = 0x20000;
/// The target is reached over the cellular network.
inline constexpr NetworkReachabilityFlags kSCNetworkReachabilityFlagsIsWWAN = 0x40000;

/// An IPv4 socket address; port and address are in network order, so 169.254.0.0 is {169, 254}.
struct SocketAddress {
  static constexpr std::uint8_t kLength = 16;
  static constexpr std::uint8_t kFamilyIPv4 = 2;

  std::uint8_t length = kLength;
  std::uint8_t family = kFamilyIPv4;
  std::array<std::uint8_t, 2> port{};
  std::array<std::uint8_t, 4> address{};
  std::array<std::uint8_t, 8> zero{};

  friend bool operator==(const SocketAddress&, const SocketAddress&) = default;
};
static_assert(sizeof(SocketAddress) == SocketAddress::kLength);

/// What is to be reached.
struct ReachabilityTarget {
  /// A host name, or an address in text form; null when `address` is the target.
  String hostName;
  /// 0.0.0.0 stands for any route to the Internet, 169.254.0.0 for the local network; any other
  /// address for itself.
  SocketAddress address{};
};

/// Where reachability flags come from. The system's own network is the default; a host that knows
/// better (a set-top box that asks its modem, a test) hands in a source of its own with
/// NetworkReachability::setSource().
///
/// Threads: both operations are called from any thread, also from several at once. Lifetime: the
/// source is kept as long as a target made while it was set.
class QVPLATFORM_EXPORT ReachabilitySource {
 public:
  using Changed = std::function<void()>;

  virtual ~ReachabilitySource();

  /// Stores the target's flags as they are at this moment. False, and nothing stored, when they
  /// cannot be told; errno then says why (left alone, it counts as "Operation not supported").
  /// Called on the threads of the core's users, so it must not wait for the network.
  virtual bool getFlags(const ReachabilityTarget& target, NetworkReachabilityFlags* flags) = 0;

  /// Returns a subscription: until it is released, which may happen on any thread, the source calls
  /// `changed` whenever the target's flags may have changed. Null to refuse, with errno as above.
  /// The source may call `changed` from any thread, also when nothing has changed after all, and
  /// still once while the subscription is being released. `changed` returns at once, throws
  /// nothing, and does not call the source before it has returned. A source needs no class for its
  /// subscriptions: it can return a std::shared_ptr to a copy of `changed`, keep a std::weak_ptr to
  /// that, and call what this still leads to.
  virtual std::shared_ptr<void> subscribe(const ReachabilityTarget& target, Changed changed) = 0;
};

}  // namespace QVPlatform
