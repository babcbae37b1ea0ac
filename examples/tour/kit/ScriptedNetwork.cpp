#include "tour/kit/ScriptedNetwork.h"

#include <utility>

bool ScriptedNetwork::getFlags(const QVPlatform::ReachabilityTarget&,
                               QVPlatform::NetworkReachabilityFlags* flags) {
  const std::lock_guard lock(mutex_);
  *flags = isUp_ ? QVPlatform::kSCNetworkReachabilityFlagsReachable : 0;
  return true;
}

std::shared_ptr<void> ScriptedNetwork::subscribe(const QVPlatform::ReachabilityTarget&,
                                                 Changed changed) {
  auto subscription = std::make_shared<Changed>(std::move(changed));
  const std::lock_guard lock(mutex_);
  subscriptions_.push_back(subscription);
  return subscription;
}

void ScriptedNetwork::setUp(bool isUp) {
  std::vector<std::weak_ptr<Changed>> subscriptions;
  {
    const std::lock_guard lock(mutex_);
    isUp_ = isUp;
    subscriptions = subscriptions_;
  }
  for (const auto& subscription : subscriptions) {
    if (const auto changed = subscription.lock()) (*changed)();
  }
}
