#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace QVPlatform {

/// An address of either family, in network order; of IPv4 the first four bytes count.
struct NetworkAddress {
  bool isIPv6 = false;
  std::array<std::uint8_t, 16> storage{};
  /// The interface that an IPv6 link-local address belongs to; 0 for none.
  unsigned scope = 0;

  static NetworkAddress v4(std::array<std::uint8_t, 4> bytes);
  static NetworkAddress v6(std::array<std::uint8_t, 16> bytes, unsigned scope = 0);
  /// The address that the text spells out; nothing for a name.
  static std::optional<NetworkAddress> parse(std::string_view text);

  std::span<const std::uint8_t> bytes() const { return {storage.data(), isIPv6 ? 16U : 4U}; }
  /// 0.0.0.0 or ::, which stand for any route.
  bool isUnspecified() const;

  friend bool operator==(const NetworkAddress&, const NetworkAddress&) = default;
};

}  // namespace QVPlatform
