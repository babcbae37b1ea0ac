#include <QVPlatform/SystemConfiguration/Kernel/NetworkAddress.h>

#include <arpa/inet.h>
#include <net/if.h>

#include <algorithm>
#include <string>

namespace QVPlatform {

NetworkAddress NetworkAddress::v4(std::array<std::uint8_t, 4> bytes) {
  NetworkAddress address;
  std::copy(bytes.begin(), bytes.end(), address.storage.begin());
  return address;
}

NetworkAddress NetworkAddress::v6(std::array<std::uint8_t, 16> bytes, unsigned scope) {
  return {true, bytes, scope};
}

std::optional<NetworkAddress> NetworkAddress::parse(std::string_view text) {
  const std::size_t percent = text.find('%');
  const std::string host(text.substr(0, percent));
  NetworkAddress address;
  if (percent == std::string_view::npos &&
      inet_pton(AF_INET, host.c_str(), address.storage.data()) == 1) {
    return address;
  }
  if (inet_pton(AF_INET6, host.c_str(), address.storage.data()) != 1) return std::nullopt;
  address.isIPv6 = true;
  if (percent != std::string_view::npos) {
    address.scope = if_nametoindex(std::string(text.substr(percent + 1)).c_str());
    if (address.scope == 0) return std::nullopt;
  }
  return address;
}

bool NetworkAddress::isUnspecified() const {
  return std::ranges::all_of(bytes(), [](std::uint8_t byte) { return byte == 0; });
}

}  // namespace QVPlatform
