#pragma once

#include <QVPlatform/SystemConfiguration/ReachabilitySource.h>

#include <memory>

/// Reachability for a machine without a route to the Internet whose hits go to itself: the network
/// is there, and never changes.
class AlwaysReachable final : public QVPlatform::ReachabilitySource {
 public:
  bool getFlags(const QVPlatform::ReachabilityTarget&,
                QVPlatform::NetworkReachabilityFlags* flags) override {
    *flags = QVPlatform::kSCNetworkReachabilityFlagsReachable;
    return true;
  }
  std::shared_ptr<void> subscribe(const QVPlatform::ReachabilityTarget&, Changed changed) override {
    return std::make_shared<Changed>(std::move(changed));
  }
};
