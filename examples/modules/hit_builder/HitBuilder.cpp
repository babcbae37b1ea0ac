#include "modules/hit_builder/HitBuilder.h"

#include <QVPlatform/Networking/HTTPURLResponse.h>

#include <utility>

using QVPlatform::Dictionary;
using QVPlatform::HTTPURLResponse;
using QVPlatform::Notification;
using QVPlatform::String;
using QVPlatform::operator""_string;  // NOLINT(misc-unused-using-decls)

namespace {

/// The module's own key in the request data. The core carries it into the answer, also when the hit
/// waited in a file meanwhile; so it tells our answers from those of other modules.
constexpr String kPageKey = "page"_string;

std::string whatFailed(const Dictionary& data) {
  const auto response =
      std::dynamic_pointer_cast<HTTPURLResponse>(data.get(kQVUserInfo_ResponseKey).object());
  return response ? "status " + std::to_string(response->statusCode()) : "no answer";
}

HitBuilder::Outcome outcomeOf(const String& name, const Dictionary& data) {
  using Kind = HitBuilder::Outcome::Kind;
  HitBuilder::Outcome outcome{
      Kind::kAnswered, static_cast<std::uint32_t>(data.get(kQVUserInfo_RequestID).longLongValue()),
      std::string(data.get(kPageKey).string().view()),
      std::string(data.get(kQVUserInfo_ContentKey).string().view())};
  if (name != kQVNotification_HTTPRequestError) return outcome;
  const String refusal = data.get(kQVUserInfo_ErrorKey).string();
  outcome.kind = refusal.isNull() ? Kind::kFailed : Kind::kRefused;
  outcome.text = refusal.isNull() ? whatFailed(data) : std::string(refusal.view());
  return outcome;
}

}  // namespace

HitBuilder::HitBuilder(std::string collectorURL, OutcomeHandler handler)
    : collectorURL_(std::move(collectorURL)),
      handler_(std::move(handler)),
      sender_(std::make_shared<QVEventSender>()->init()),
      listener_(std::make_shared<QVEventListener>()->init()) {
  sender_->setParent(this);
  listener_->setParent(this);
  listener_->listen(kQVNotification_HTTPResponse);
  listener_->listen(kQVNotification_HTTPRequestError);
}

HitBuilder::~HitBuilder() { listener_->setParent(nullptr); }

void HitBuilder::send(const std::string& page, const std::string& parameters) {
  sendTo(collectorURL_ + "/hit", page, parameters);
}

void HitBuilder::sendTo(const std::string& url, const std::string& page,
                        const std::string& parameters) {
  const std::string body = "page=" + page + parameters;
  // The constant itself, not a text that equals it: that is how the core knows what to answer.
  post(kQVNotification_HTTPRequest,
       {{kQVUserInfo_URLKey, url}, {kQVUserInfo_POSTData, body}, {kPageKey, page}});
}

void HitBuilder::onNotificationReceived(const Notification& notification) {
  const Dictionary data = notification.userInfo();
  if (data.get(kPageKey).isNil()) return;  // somebody else's
  const Outcome outcome = outcomeOf(notification.name(), data);
  if (outcome.kind == Outcome::Kind::kAnswered) {
    post(kQVNotification_HitSent, {{kQVUserInfo_URLKey, data.get(kQVUserInfo_URLKey)}});
  }
  handler_(outcome);
}

void HitBuilder::changeNotificationCenter(
    const std::shared_ptr<QVPlatform::NotificationCenter>& center) {
  sender_->setNotificationCenter(center);
  listener_->setNotificationCenter(center);
}

void HitBuilder::post(const String& name, const Dictionary& userInfo) {
  sender_->send(Notification(name, nullptr, userInfo));
}
