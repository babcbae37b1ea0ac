#pragma once

#include <QVPlatform/Networking/URLConnection.h>

#include <cstdlib>
#include <memory>
#include <string>

namespace QVFuzz {

constexpr const char* kGoodAnswer = "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\ngood";

/// Sends a request to a server that answers it with any bytes, and then one that it answers well to
/// the target "/good". The first is answered or fails, and of the second the answer is right,
/// whatever the first left behind.
inline void readAnswers(const std::string& server) {
  using namespace QVPlatform;
  constexpr std::size_t kLimit = 4096;
  URLConnection::setMaximumResponseSize(kLimit);
  URLConnection::setMaximumTransferTime(5);
  std::shared_ptr<HTTPURLResponse> response;
  std::shared_ptr<Error> error;
  const auto send = [&](const char* target) {
    const MutableURLRequest request(URL::URLWithString(server + target),
                                    URLRequestCachePolicy::kReloadIgnoringLocalCacheData, 5);
    response = nullptr;
    error = nullptr;
    return URLConnection::sendSynchronousRequest(request, response, error);
  };
  const Data body = send("/any");
  if (body.isNull() != (error != nullptr) || body.view().size() > kLimit) std::abort();
  if (!error && (!response || response->statusCode() < 200)) std::abort();
  const Data good = send("/good");
  if (error || response->statusCode() != 200 || good.view() != "good") std::abort();
}

}  // namespace QVFuzz
