#pragma once

#include "CoreTest.h"

namespace QVTest {

/// The shared network manager, in a process without a log and without a web view.
class NetworkManagerTest : public CoreTest {
 protected:
  NetworkManagerTest() {
    QVDebug::setDebugLevel(6);
    QVDebug::useCustomWKProcessPool(true);  // no user agent is sought
  }

  /// Makes the manager with a network that is down, so that nothing leaves its queues.
  void beOffline() {
    network->change(0);
    manager = QVNetworkManager::sharedInstance();
  }
  static void request(const Dictionary& userInfo) { post(kQVNotification_HTTPRequest, userInfo); }
  std::vector<Dictionary> queued() const {
    std::vector<Dictionary> list;
    for (const auto& operation : manager->operationQueue()->operations()) {
      list.push_back(std::static_pointer_cast<QVHTTPOperation>(operation)->userInfo());
    }
    return list;
  }
  bool hitsAreHeld() const { return manager->operationQueue()->isSuspended(); }

  std::shared_ptr<QVNetworkManager> manager;
};

}  // namespace QVTest
