#pragma once

#include <QVCore/QVCoreConstants.h>
#include <QVCore/QVHTTPOperation.h>
#include <QVCore/QVNetworkManager.h>
#include <QVPlatform/Dispatch/Notification.h>
#include <QVPlatform/Foundation/Error.h>
#include <QVPlatform/Foundation/Value.h>
#include <QVPlatform/Networking/HTTPURLResponse.h>

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
      : values_(notification.userInfo()), toldStatus_(QVHTTPOperation::statusCodeBeingTold()) {}

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
  /// The status that the server answered with: of a view made of a notification while an observer
  /// is being told of it, and of any error that brings a response.
  std::optional<int> status() const {
    const auto response = held<QVPlatform::HTTPURLResponse>(kQVUserInfo_ResponseKey);
    const int status = response ? response->statusCode() : toldStatus_;
    return status != 0 ? std::optional(status) : std::nullopt;
  }
  /// Why the request was refused, in English.
  QVPlatform::String error() const {
    const auto error = held<QVPlatform::Error>(kQVUserInfo_ErrorKey);
    return error ? error->localizedDescription() : text(kQVUserInfo_ErrorKey);
  }
  /// What is to be posted to send the request once more: a dictionary of its own
  /// (QVNetworkManager::requestDataFromUserInfo()). The user info of an answer or an error must not
  /// be.
  QVPlatform::Dictionary request() const {
    return QVNetworkManager::requestDataFromUserInfo(values_);
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
  int toldStatus_ = 0;
};
