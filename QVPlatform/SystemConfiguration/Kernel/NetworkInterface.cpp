#include <QVPlatform/SystemConfiguration/Kernel/NetworkInterface.h>

#include <linux/if.h>
#include <linux/if_arp.h>

#include <fstream>

namespace QVPlatform {
namespace {

// Newer than the oldest kernel headers that this is built with.
constexpr unsigned kTypeRawIP = 519;

bool has(unsigned set, unsigned flags) { return (set & flags) == flags; }

/// A driver marks its modems in sysfs. The directory may show another namespace's interfaces, in
/// which the name may belong to something else: hence the look at the index.
bool isMarkedAsModem(const NetworkInterface& interface) {
  std::ifstream file("/sys/class/net/" + interface.name + "/uevent");
  bool isMarked = false;
  bool isSame = false;
  for (std::string line; std::getline(file, line);) {
    isMarked = isMarked || line == "DEVTYPE=wwan";
    isSame = isSame || line == "IFINDEX=" + std::to_string(interface.index);
  }
  return isMarked && isSame;
}

}  // namespace

bool NetworkInterface::carriesTraffic() const {
  return has(flags, IFF_UP | IFF_RUNNING | IFF_LOWER_UP);
}

bool NetworkInterface::isDialled() const {
  return type == ARPHRD_PPP || kind == "ppp" || name.starts_with("ppp");
}

bool NetworkInterface::isModem() const {
  if (isDialled() || type == kTypeRawIP || kind == "wwan" || kind == "rmnet") return true;
  return name.starts_with("ww") || name.starts_with("rmnet") || isMarkedAsModem(*this);
}

bool NetworkInterface::awaitsConnection() const {
  if (!has(flags, IFF_UP) || has(flags, IFF_RUNNING)) return false;
  return isDialled() || (operationalState == IF_OPER_DORMANT && isModem());
}

bool NetworkInterface::isLocalNetwork() const {
  return carriesTraffic() && has(flags, IFF_BROADCAST) && !has(flags, IFF_LOOPBACK) && !isModem();
}

}  // namespace QVPlatform
