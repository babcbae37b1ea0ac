#pragma once

#include <QVCore/QVCoreConstants.h>
#include <QVCore/QVNetworkManager.h>
#include <QVCore/QVUtils.h>
#include <QVPlatform/Dispatch/NotificationCenter.h>
#include <QVPlatform/Foundation/CallOut.h>
#include <QVPlatform/Foundation/Value.h>

#include <algorithm>
#include <map>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

/// One request to be sent by the core, put together step by step:
///
///     QVHit("https://collector.example/hit").parameter("page", "home & garden").post();
///     QVHit("https://collector.example/hit").field("page", "home").set("mine", 7).post();
///
/// The core has no key for header fields of a poster's own; what it sends is told by URLConnection.
///
/// Threads: for one thread at a time. A copy is a hit of its own. std::bad_alloc is thrown where
/// memory runs out, but for post().
class QVHit {
 public:
  /// A GET.
  explicit QVHit(QVPlatform::String url) : url_(std::move(url)) {}
  /// What is to be sent once more: QVUserInfo::request().
  explicit QVHit(const QVPlatform::Dictionary& request)
      : url_(request.get(kQVUserInfo_URLKey).string()) {
    for (auto& [key, value] : request.entries()) own_[key] = std::move(value);
  }

  /// Adds a parameter to the URL's query, in front of a fragment; both texts are percent-encoded.
  QVHit& parameter(const QVPlatform::String& name, const QVPlatform::String& value) {
    const std::string_view url = url_.view();
    const auto end = std::min(url.find('#'), url.size());
    const bool isFirst = url.substr(0, end).find('?') == std::string_view::npos;
    url_ = QVPlatform::String(url.substr(0, end)) + (isFirst ? "?" : "&") + pair(name, value) +
           QVPlatform::String(url.substr(end));
    return *this;
  }
  /// Makes it a POST with this body; a GET again, if that is null or empty.
  QVHit& body(const QVPlatform::String& text) { return set(kQVUserInfo_POSTData, text); }
  /// Makes it a POST, and adds one field of a form to its body; both texts are percent-encoded.
  QVHit& field(const QVPlatform::String& name, const QVPlatform::String& value) {
    const QVPlatform::String before = own_[kQVUserInfo_POSTData].string();
    return body(before.isEmpty() ? pair(name, value) : before + "&" + pair(name, value));
  }
  /// Keeps the value under a key of the poster's own, to be found again in the answer. Nil removes
  /// it.
  QVHit& set(const QVPlatform::String& key, QVPlatform::Value value) {
    own_[key] = std::move(value);
    return *this;
  }
  /// Goes by the queue of what consent itself needs, which no consent holds.
  QVHit& forConsent() { return set(kQVUserInfo_ResponseKey, "consent"); }
  /// Is answered as a segment.
  QVHit& asSegment() {
    name_ = kQVNotification_SegmentRequest;
    return *this;
  }
  /// Is answered as the partner's, whom the network manager has to be told of once, or nobody hears
  /// the request: QVNetworkManager::sharedInstance()->listenerDelegate()->listen() with
  /// kQVNotification_HTTPPartnerRequest and the partner.
  QVHit& forPartner(const QVPlatform::String& partner) {
    name_ = kQVNotification_HTTPPartnerRequest + partner;
    return *this;
  }

  /// Whether the core takes the URL; if not, it answers at once, by HTTPRequestError.
  bool isValid() const { return QVNetworkManager::isValidURL(url_); }
  /// Name of the notification that brings the answer, unless that is HTTPRequestError.
  QVPlatform::String answerName() const {
    return QVNetworkManager::requestTypeForNotificationName(name_);
  }
  /// A new dictionary of what is posted.
  QVPlatform::Dictionary request() const {
    std::vector<QVPlatform::Dictionary::Entry> entries(own_.begin(), own_.end());
    entries.emplace_back(kQVUserInfo_URLKey, url_);
    return QVPlatform::Dictionary(std::move(entries));
  }
  /// Has the core send the hit, by the constant that it knows a request by, on the default center
  /// if that is null. Does not wait for the network. Throws nothing: what a receiver throws is
  /// stopped with a line on the console log. False then, and if memory was too short.
  bool post(const std::shared_ptr<QVPlatform::NotificationCenter>& center = nullptr) const {
    return QVPlatform::callOut([&] {
      const auto& chosen = center ? center : QVPlatform::NotificationCenter::defaultCenter();
      chosen->postNotification(QVPlatform::Notification(name_, nullptr, request()));
    });
  }

 private:
  static QVPlatform::String pair(const QVPlatform::String& name, const QVPlatform::String& value) {
    return QVURLEncodedString(name) + "=" + QVURLEncodedString(value);
  }

  QVPlatform::String name_ = kQVNotification_HTTPRequest;
  QVPlatform::String url_;
  std::map<QVPlatform::String, QVPlatform::Value> own_;
};
