#include "send_hits/HitSender.h"

#include <QVPlatform/Foundation/UUID.h>
#include <QVPlatform/Networking/HTTPURLResponse.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <string>

using QVPlatform::Dictionary;
using QVPlatform::HTTPURLResponse;
using QVPlatform::Notification;
using QVPlatform::String;
using QVPlatform::operator""_string;  // NOLINT(misc-unused-using-decls)

namespace {

// Our own keys in the request data, which the core carries back.
constexpr String kLineKey = "line"_string;
constexpr String kRunKey = "run"_string;

constexpr std::size_t kShownOfAnswer = 60;

/// The beginning of the first line; cut between characters.
std::string beginningOf(std::string_view text) {
  text = text.substr(0, text.find_first_of("\r\n"));
  if (text.size() <= kShownOfAnswer) return std::string(text);
  std::size_t end = kShownOfAnswer;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
  return std::string(text.substr(0, end)) + "...";
}

std::string whatFailed(const Dictionary& data) {
  const String refusal = data.get(kQVUserInfo_ErrorKey).string();
  if (!refusal.isNull()) return std::string(refusal.view());
  const auto response =
      std::dynamic_pointer_cast<HTTPURLResponse>(data.get(kQVUserInfo_ResponseKey).object());
  return response ? "status " + std::to_string(response->statusCode()) : "no answer";
}

}  // namespace

HitSender::HitSender(Console& console)
    : console_(console),
      wakeUp_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      run_(QVPlatform::UUID::UUIDString()) {
  const auto onOutcome = [this](const Notification& outcome) { this->onOutcome(outcome); };
  center_->addObserver(this, onOutcome, kQVNotification_HTTPResponse);
  center_->addObserver(this, onOutcome, kQVNotification_HTTPRequestError);
  const auto onChange = [this](const Notification& change) { onNetworkChange(change); };
  center_->addObserver(this, onChange, kQVNotification_InternetChanged);
}

HitSender::~HitSender() {
  center_->removeObserver(this);
  close(wakeUp_);
}

void HitSender::send(const HitReader::Hit& hit) {
  // Counted first: a URL that is refused comes back before this call returns.
  ++underWay_;
  ++sent_;
  center_->postNotification(Notification(kQVNotification_HTTPRequest, nullptr,
                                         {{kQVUserInfo_URLKey, hit.url},
                                          {kQVUserInfo_POSTData, hit.body},
                                          {kLineKey, hit.line},
                                          {kRunKey, run_}}));
}

bool HitSender::hasRoom() const {
  // Hits that an earlier run left take up room as well.
  const auto queue = QVNetworkManager::sharedInstance()->operationQueue();
  return underWay_ < kWindow && queue->operationCount() < 2 * kWindow;
}

void HitSender::onOutcome(const Notification& notification) {
  const Dictionary data = notification.userInfo();
  const bool isAnswer = notification.name() == kQVNotification_HTTPResponse;
  const bool isOurs = data.get(kRunKey).string() == run_;
  // Counted before it is printed, so that no summary knows less than what it stands below.
  if (isOurs) ++(isAnswer ? answered_ : failed_);
  const std::string what =
      isAnswer ? beginningOf(data.get(kQVUserInfo_ContentKey).string().view()) : whatFailed(data);
  console_.result(
      "#" + std::to_string(data.get(kQVUserInfo_RequestID).longLongValue()) + " " +
      (isOurs ? "line " + std::to_string(data.get(kLineKey).longLongValue()) : "earlier run") +
      (isAnswer ? " answered: " : " failed: ") + what);
  if (!isOurs) return wakeUp();
  console_.progress(counts());
  const std::uint64_t remaining = --underWay_;
  if (remaining == kLowWater || remaining == 0) wakeUp();
}

void HitSender::onNetworkChange(const Notification& notification) {
  const bool isUp =
      notification.userInfo().get(kQVUserInfo_DataKey).string() == kQVNotification_InternetUp;
  console_.note(isUp ? "The network is back." : "The network is gone: hits wait until it is back.");
}

void HitSender::wakeUp() {
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t size = write(wakeUp_, &one, sizeof one);
}

void HitSender::acknowledge() {
  std::uint64_t count = 0;
  [[maybe_unused]] const ssize_t size = read(wakeUp_, &count, sizeof count);
}
