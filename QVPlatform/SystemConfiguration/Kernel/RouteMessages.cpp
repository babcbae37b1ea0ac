#include <QVPlatform/SystemConfiguration/Kernel/RouteMessages.h>

#include <libmnl/libmnl.h>
#include <linux/if_addr.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

namespace QVPlatform {
namespace {

template <class Header>
const Header* headerOf(const nlmsghdr* message, std::uint16_t type) {
  if (message->nlmsg_type != type || mnl_nlmsg_get_payload_len(message) < sizeof(Header)) {
    return nullptr;
  }
  return static_cast<const Header*>(mnl_nlmsg_get_payload(message));
}

/// Routes that carry packets; the other types refuse or drop them.
bool leadsSomewhere(unsigned char routeType) {
  return routeType == RTN_UNICAST || routeType == RTN_LOCAL || routeType == RTN_BROADCAST ||
         routeType == RTN_ANYCAST || routeType == RTN_MULTICAST;
}

/// The address in the attribute, after `skipped` bytes; unspecified when there are too few.
NetworkAddress addressIn(const nlattr* attribute, bool isIPv6, std::size_t skipped) {
  NetworkAddress address;
  address.isIPv6 = isIPv6;
  const std::size_t size = address.bytes().size();
  if (mnl_attr_get_payload_len(attribute) >= skipped + size) {
    const auto* bytes = static_cast<const std::uint8_t*>(mnl_attr_get_payload(attribute));
    std::copy_n(bytes + skipped, size, address.storage.begin());
  }
  return address;
}

std::string textIn(const nlattr* attribute) {
  return mnl_attr_validate(attribute, MNL_TYPE_NUL_STRING) == 0 ? mnl_attr_get_str(attribute) : "";
}

template <class Visitor>
int visit(const nlattr* attribute, void* visitor) {
  (*static_cast<Visitor*>(visitor))(attribute, mnl_attr_get_type(attribute));
  return MNL_CB_OK;
}

/// Calls the visitor with each attribute behind the header and its type.
template <class Header, class Visitor>
void forEachAttribute(const nlmsghdr* message, Visitor visitor) {
  mnl_attr_parse(message, sizeof(Header), &visit<Visitor>, &visitor);
}

std::string kindIn(const nlattr* linkInfo) {
  std::string kind;
  auto visitor = [&](const nlattr* attribute, int type) {
    if (type == IFLA_INFO_KIND) kind = textIn(attribute);
  };
  mnl_attr_parse_nested(linkInfo, &visit<decltype(visitor)>, &visitor);
  return kind;
}

}  // namespace

std::optional<Route> readRoute(const nlmsghdr* message) {
  const auto* header = headerOf<rtmsg>(message, RTM_NEWROUTE);
  if (!header || !leadsSomewhere(header->rtm_type)) return std::nullopt;
  const bool isIPv6 = header->rtm_family == AF_INET6;
  Route route;
  route.isLocal = header->rtm_type == RTN_LOCAL;
  forEachAttribute<rtmsg>(message, [&](const nlattr* attribute, int type) {
    if (type == RTA_OIF && mnl_attr_validate(attribute, MNL_TYPE_U32) == 0) {
      route.interface = mnl_attr_get_u32(attribute);
    } else if (type == RTA_GATEWAY) {
      route.gateway = addressIn(attribute, isIPv6, 0);
    } else if (type == RTA_VIA) {  // an IPv6 gateway of an IPv4 route, behind its family
      route.gateway = addressIn(attribute, !isIPv6, sizeof(rtvia));
    }
  });
  return route;
}

std::optional<NetworkInterface> readInterface(const nlmsghdr* message) {
  const auto* header = headerOf<ifinfomsg>(message, RTM_NEWLINK);
  if (!header) return std::nullopt;
  NetworkInterface interface;
  interface.index = static_cast<unsigned>(header->ifi_index);
  interface.flags = header->ifi_flags;
  interface.type = header->ifi_type;
  forEachAttribute<ifinfomsg>(message, [&](const nlattr* attribute, int type) {
    if (type == IFLA_IFNAME) interface.name = textIn(attribute);
    if (type == IFLA_LINKINFO) interface.kind = kindIn(attribute);
    if (type == IFLA_OPERSTATE && mnl_attr_validate(attribute, MNL_TYPE_U8) == 0) {
      interface.operationalState = mnl_attr_get_u8(attribute);
    }
  });
  return interface;
}

std::optional<unsigned> readAddressOwner(const nlmsghdr* message) {
  const auto* header = headerOf<ifaddrmsg>(message, RTM_NEWADDR);
  // Another system on the link holds an address that failed the check for duplicates.
  if (!header || (header->ifa_flags & IFA_F_DADFAILED)) return std::nullopt;
  return header->ifa_index;
}

}  // namespace QVPlatform
