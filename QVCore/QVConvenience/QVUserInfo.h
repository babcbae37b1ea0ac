#pragma once

#include <QVCore/QVCoreConstants.h>
#include <QVPlatform/Dispatch/Notification.h>
#include <QVPlatform/Foundation/Error.h>
#include <QVPlatform/Foundation/Value.h>
#include <QVPlatform/Networking/HTTPURLResponse.h>
#include <QVPlatform/Networking/URLRequest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

/// The user info of a request, an answer or an error, read by what its keys are for. What is
/// missing, or of another type than it should be, reads as nothing.
///
/// Threads: callable from any thread. Lifetime: it shares the dictionary, so that it sees what is
/// done to it later.
class QVUserInfo {
 public:
  explicit QVUserInfo(QVPlatform::Dictionary userInfo) noexcept : values_(std::move(userInfo)) {}
  explicit QVUserInfo(const QVPlatform::Notification& notification)
      : QVUserInfo(notification.userInfo()) {}

  /// The core's number for the request.
  std::optional<std::uint32_t> id() const {
    const QVPlatform::Value value = values_.get(kQVUserInfo_RequestID);
    const auto number = static_cast<std::uint32_t>(value.longLongValue());
    const bool isExact = value.isNumber() && value == QVPlatform::Value(number);
    return isExact ? std::optional(number) : std::nullopt;
  }
  /// Null if there is none; so are the texts below.
  QVPlatform::String url() const { return text(kQVUserInfo_URLKey); }
  /// The body of the request.
  QVPlatform::String body() const { return text(kQVUserInfo_POSTData); }
  /// The body of the answer.
  QVPlatform::String content() const { return text(kQVUserInfo_ContentKey); }
  /// The status that the server answered with, where the core tells it: in errors.
  std::optional<int> status() const {
    const auto response = held<QVPlatform::HTTPURLResponse>(kQVUserInfo_ResponseKey);
    return response ? std::optional(response->statusCode()) : std::nullopt;
  }
  /// Why the request was refused, in English.
  QVPlatform::String error() const {
    const auto error = held<QVPlatform::Error>(kQVUserInfo_ErrorKey);
    return error ? error->localizedDescription() : text(kQVUserInfo_ErrorKey);
  }
  /// What was posted to have the request sent, without what the core has added since: a dictionary
  /// of its own, to be posted again. An answer's or an error's own user info must not be: the
  /// response in it would send it past the hits that wait. What the poster itself had under a key
  /// that the core has written to ("ID", "RequestType", "content", in an error "data") is gone.
  QVPlatform::Dictionary request() const {
    QVPlatform::Dictionary request = QVPlatform::Dictionary(values_.entries());
    for (const auto& key :
         {kQVUserInfo_RequestID, kQVUserInfo_RequestType, kQVUserInfo_ContentKey}) {
      request.remove(key);
    }
    if (held<QVPlatform::HTTPURLResponse>(kQVUserInfo_ResponseKey)) {
      request.remove(kQVUserInfo_ResponseKey);
    }
    if (held<QVPlatform::MutableURLRequest>(kQVUserInfo_DataKey)) {
      request.remove(kQVUserInfo_DataKey);
    }
    if (!error().isNull()) request.remove(kQVUserInfo_ErrorKey);
    return request;
  }

  /// What the poster put under a key of its own, or nil; as text, or null if it is none.
  QVPlatform::Value get(const QVPlatform::String& key) const { return values_.get(key); }
  QVPlatform::String text(const QVPlatform::String& key) const { return get(key).string(); }

 private:
  template <class Kind>
  std::shared_ptr<Kind> held(const QVPlatform::String& key) const {
    return std::dynamic_pointer_cast<Kind>(values_.get(key).object());
  }

  QVPlatform::Dictionary values_;
};
