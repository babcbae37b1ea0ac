#pragma once

#include <QVPlatform/SystemConfiguration/ReachabilitySource.h>

#include <string>

namespace QVPlatform {

/// What the kernel tells about one network interface.
struct NetworkInterface {
  unsigned index = 0;
  unsigned flags = 0;                  // IFF_...
  unsigned short type = 0;             // ARPHRD_...
  unsigned char operationalState = 0;  // IF_OPER_...
  std::string name;
  std::string kind;  // of the driver ("ppp", "veth"); empty for plain hardware

  /// Up, with a carrier, and not held back by its driver or by a log-in that is not done yet.
  bool carriesTraffic() const;
  /// A connection that is dialled and hung up: PPP.
  bool isDialled() const;
  /// A mobile modem; every dialled connection counts as one.
  bool isModem() const;
  /// Set up, but connected only when there is a need.
  bool awaitsConnection() const;
  /// A network of neighbours that are reached without a router: not the loopback, a tunnel or a
  /// modem.
  bool isLocalNetwork() const;
};

}  // namespace QVPlatform
