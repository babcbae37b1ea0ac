// How a host hands hits to the core, and what it takes down of them.

#include <algorithm>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "soak/Faults.h"
#include "soak/Host.h"
#include "soak/OfflineFile.h"

using QVPlatform::Dictionary;
using QVPlatform::Notification;
using QVPlatform::NotificationCenter;
using QVPlatform::String;

namespace {

constexpr int kPosters = 3;
const String kConfiguration = "soak";

using OperationList = std::vector<std::shared_ptr<QVPlatform::Operation>>;

HitID hitIn(const QVPlatform::Operation& operation) {
  const auto* hit = dynamic_cast<const QVHTTPOperation*>(&operation);
  return hit ? hitOf(hit->userInfo().get(kQVUserInfo_URLKey).string().view()) : 0;
}

}  // namespace

HitID Host::take(std::uint32_t* count) {
  *count = std::min(*count, left_);
  left_ -= *count;
  return std::exchange(next_, next_ + *count);
}

void Host::postSome(std::uint32_t count) {
  const HitID first = take(&count);
  for (HitID hit = first; hit < first + count; ++hit) post(hit, "/flow/");
}

void Host::postFromThreads(std::uint32_t count) {
  const HitID first = take(&count);
  std::vector<std::thread> posters;
  for (HitID place = 0; place < kPosters; ++place) {
    posters.emplace_back([=, this] {
      const Exemption own;
      for (HitID hit = first + place; hit < first + count; hit += kPosters) post(hit, "/flow/");
    });
  }
  for (auto& poster : posters) poster.join();
}

void Host::post(HitID hit, const char* place) {
  const std::string url = "http://127.0.0.1:" + std::to_string(errand_.port) + place;
  const std::string body = hit % 2 == 0 ? "hit=" + std::to_string(hit) : "";
  const Notification request(
      kQVNotification_HTTPRequest, nullptr,
      {{kQVUserInfo_URLKey, url + std::to_string(hit)}, {kQVUserInfo_POSTData, body}});
  handOver([&] {
    ledger_->write(What::kPosting, hit);
    {
      const Exemption none(false);
      NotificationCenter::defaultCenter()->postNotification(request);
    }
    ledger_->write(What::kPosted, hit);
  });
}

void Host::addConfiguration() const {
  QVConfigurationFileFactory::sharedInstance()->addConfigurationFileWithVersionPathForURL(
      kConfiguration, "version",
      "http://127.0.0.1:" + std::to_string(errand_.port) + "/configuration");
}

void Host::updateConfiguration() {
  const auto file =
      QVConfigurationFileFactory::sharedInstance()->getConfigurationFile(kConfiguration);
  handOver([&] {
    const Exemption none(false);
    if (file) file->downloadConfigurationUpdate();
  });
}

void Host::handOver(const std::function<void()>& request) {
  const auto queue = QVNetworkManager::sharedInstance()->operationQueue();
  const bool isFull = hasSmallQueue_ && queue->operationCount() >= kSmallQueue;
  auto waiting = isFull ? queue->operations() : OperationList();
  std::erase_if(waiting, [](const auto& operation) { return operation->isCancelled(); });
  request();
  for (const auto& operation : waiting) {
    if (operation->isCancelled()) ledger_->write(What::kDropped, hitIn(*operation));
  }
}

void Host::onOutcome(const Notification& outcome) {
  const Exemption own;
  const Dictionary data = outcome.userInfo();
  const HitID hit = hitOf(data.get(kQVUserInfo_URLKey).string().view());
  if (outcome.name() == kQVNotification_HTTPRequestError) return ledger_->write(What::kFailed, hit);
  const String content = data.get(kQVUserInfo_ContentKey).string();
  const bool isOwn = content.view() == std::to_string(hit);
  ledger_->write(isOwn               ? What::kAnswered
                 : content.isEmpty() ? What::kAnsweredEmpty
                                     : What::kAnsweredWrong,
                 hit);
}
