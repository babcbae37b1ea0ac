#pragma once

#include <QVPlatform/SystemConfiguration/NetworkReachability.h>

#include <memory>

namespace QVBenchmark {

/// Reachable whatever the machine's network is like: the benchmarks use 127.0.0.1 only.
class AlwaysReachable : public QVPlatform::ReachabilitySource {
 public:
  static void use() {
    QVPlatform::NetworkReachability::setSource(std::make_shared<AlwaysReachable>());
  }
  bool getFlags(const QVPlatform::ReachabilityTarget&,
                QVPlatform::NetworkReachabilityFlags* flags) override {
    *flags = QVPlatform::kSCNetworkReachabilityFlagsReachable;
    return true;
  }
  std::shared_ptr<void> subscribe(const QVPlatform::ReachabilityTarget&, Changed) override {
    return std::make_shared<int>();
  }
};

}  // namespace QVBenchmark
