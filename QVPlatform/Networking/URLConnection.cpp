#include <QVPlatform/Networking/URLConnection.h>

#include <QVPlatform/Foundation/ForkMutex.h>
#include <QVPlatform/Foundation/Lasting.h>
#include <QVPlatform/Networking/Internal/HTTPRedirection.h>
#include <QVPlatform/Networking/Internal/HTTPSession.h>
#include <QVPlatform/Networking/Internal/TransferError.h>
#include <QVPlatform/Networking/Internal/UsualFields.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <new>

namespace QVPlatform {
namespace {

std::atomic<std::size_t> responseSizeLimit{std::size_t{64} << 20};
std::atomic<TimeInterval> transferTimeLimit{600};

/// Sessions that no transfer uses. The one that was used last goes first, so that transfers one
/// after the other share one connection, whichever thread makes them.
class IdleSessions {
 public:
  static IdleSessions& shared() { return Lasting<IdleSessions>::object(); }

  std::unique_ptr<HTTPSession> take() {
    {
      const Lock lock(mutex_);
      const auto isThere = [](const auto& session) { return session != nullptr; };
      const auto latest = std::find_if(sessions_.rbegin(), sessions_.rend(), isThere);
      if (latest != sessions_.rend()) return std::move(*latest);
    }
    return std::make_unique<HTTPSession>();
  }

  /// One too many is closed with its connections, after the lock is released.
  void give(std::unique_ptr<HTTPSession> session) {
    const Lock lock(mutex_);
    for (auto& place : sessions_) {
      if (!place) return place.swap(session);
    }
  }

 private:
  static constexpr std::size_t kMaximumCount = 4;

  /// The child of a fork() begins without any. If it destroyed the parent's, they would say
  /// good-bye to the servers.
  static void forgetAll(void* pool) {
    auto& own = *static_cast<IdleSessions*>(pool);
    own.mutex_.assumeHeld();
    for (auto& session : own.sessions_) leaveToParent(std::move(session));
  }

  ForkMutex mutex_{forgetAll, this};
  std::array<std::unique_ptr<HTTPSession>, kMaximumCount> sessions_ QV_GUARDED_BY(mutex_);
};

/// Why the request cannot be sent at all, or null.
std::shared_ptr<Error> refusal(const MutableURLRequest& request) {
  if (request.cachePolicy() == URLRequestCachePolicy::kReturnCacheDataDontLoad) {
    return makeError(URLErrorCode::kNotCached);
  }
  if (!isHTTPWithHost(request.url())) return makeError(URLErrorCode::kUnsupportedURL);
  return nullptr;
}

/// Of a transfer for which memory ran out; null where there is none left to say so.
std::shared_ptr<Error> outOfMemory() noexcept try {
  return makeError(URLErrorCode::kOutOfMemory);
} catch (const std::bad_alloc&) {
  return nullptr;
}

HTTPSession::Outcome send(const MutableURLRequest& request) try {
  if (auto error = refusal(request)) return {nullptr, nullptr, std::move(error)};
  auto session = IdleSessions::shared().take();
  auto outcome = session->send(
      request, {URLConnection::maximumResponseSize(), URLConnection::maximumTransferTime()});
  if (session->isUsable()) IdleSessions::shared().give(std::move(session));
  return outcome;
} catch (const std::bad_alloc&) {
  return {nullptr, nullptr, outOfMemory()};
}

}  // namespace

constinit const String kURLErrorDomain = "QVURLErrorDomain"_string;

Data URLConnection::sendSynchronousRequest(const MutableURLRequest& request,
                                           std::shared_ptr<HTTPURLResponse>& response,
                                           std::shared_ptr<Error>& error) {
  auto outcome = send(request);
  response = std::move(outcome.response);
  error = std::move(outcome.error);
  return outcome.body;
}

std::size_t URLConnection::maximumResponseSize() { return responseSizeLimit; }
void URLConnection::setMaximumResponseSize(std::size_t bytes) { responseSizeLimit = bytes; }
TimeInterval URLConnection::maximumTransferTime() { return transferTimeLimit; }
void URLConnection::setMaximumTransferTime(TimeInterval seconds) { transferTimeLimit = seconds; }
String URLConnection::userAgent() { return UsualFields::userAgent(); }
void URLConnection::setUserAgent(const String& text) { UsualFields::setUserAgent(text); }
String URLConnection::acceptLanguage() { return UsualFields::acceptLanguage(); }
void URLConnection::setAcceptLanguage(const String& text) { UsualFields::setAcceptLanguage(text); }

}  // namespace QVPlatform
