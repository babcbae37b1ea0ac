#include <QVPlatform/Foundation/Internal/HTTPSession.h>

#include <atomic>
#include <mutex>
#include <vector>

namespace QVPlatform {
namespace {

constinit String::Literal urlErrorDomain{"QVURLErrorDomain"};

std::atomic<std::size_t> responseSizeLimit{std::size_t{64} << 20};
std::atomic<TimeInterval> transferTimeLimit{600};

/// Sessions that no transfer uses. The one that was used last goes first, so that transfers one
/// after the other share one connection, whichever thread makes them.
class IdleSessions {
 public:
  static IdleSessions& shared() {
    static IdleSessions& sessions = *new IdleSessions;
    return sessions;
  }

  std::unique_ptr<HTTPSession> take() {
    {
      const std::lock_guard lock(mutex_);
      if (!sessions_.empty()) {
        auto session = std::move(sessions_.back());
        sessions_.pop_back();
        return session;
      }
    }
    return std::make_unique<HTTPSession>();
  }

  /// One too many is closed with its connections, after the lock is released.
  void give(std::unique_ptr<HTTPSession> session) {
    const std::lock_guard lock(mutex_);
    if (sessions_.size() < kMaximumCount) sessions_.push_back(std::move(session));
  }

 private:
  static constexpr std::size_t kMaximumCount = 4;

  std::mutex mutex_;
  std::vector<std::unique_ptr<HTTPSession>> sessions_;
};

std::shared_ptr<Error> makeError(URLErrorCode code, const char* text) {
  return std::make_shared<Error>(kURLErrorDomain, static_cast<int>(code), text);
}

/// Why the request cannot be sent at all, or null.
std::shared_ptr<Error> refusal(const MutableURLRequest& request) {
  if (request.cachePolicy() == URLRequestCachePolicy::returnCacheDataDontLoad) {
    return makeError(URLErrorCode::notCached, "The answer is not cached and must not be loaded.");
  }
  const auto& url = request.url();
  const bool isHTTP = url && (url->hasScheme("http") || url->hasScheme("https"));
  if (!isHTTP || !url->hasSchemeAndHost()) {
    return makeError(URLErrorCode::unsupportedURL, "Not an http or https URL with a host.");
  }
  return nullptr;
}

bool isRedirection(const HTTPURLResponse& response) {
  return response.statusCode() / 100 == 3 && !response.valueForHTTPHeaderField("Location").isNull();
}

}  // namespace

constinit const String kURLErrorDomain{urlErrorDomain};

Data URLConnection::sendSynchronousRequest(const MutableURLRequest& request,
                                           std::shared_ptr<HTTPURLResponse>& response,
                                           std::shared_ptr<Error>& error) {
  response = nullptr;
  error = refusal(request);
  if (error) return nullptr;
  auto session = IdleSessions::shared().take();
  auto outcome = session->send(request, {maximumResponseSize(), maximumTransferTime()});
  IdleSessions::shared().give(std::move(session));
  // A redirection that led nowhere is not the answer to the request.
  if (outcome.error && outcome.response && isRedirection(*outcome.response)) {
    outcome.response = nullptr;
  }
  response = std::move(outcome.response);
  error = std::move(outcome.error);
  return outcome.body;
}

std::size_t URLConnection::maximumResponseSize() { return responseSizeLimit; }
void URLConnection::setMaximumResponseSize(std::size_t bytes) { responseSizeLimit = bytes; }
TimeInterval URLConnection::maximumTransferTime() { return transferTimeLimit; }
void URLConnection::setMaximumTransferTime(TimeInterval seconds) { transferTimeLimit = seconds; }

}  // namespace QVPlatform
