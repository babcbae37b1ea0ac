#pragma once

#include "Test.h"

namespace QVTest {

/// All that one blocking transfer hands back.
struct Exchange {
  QVPlatform::Data body;
  std::shared_ptr<QVPlatform::HTTPURLResponse> response;
  std::shared_ptr<QVPlatform::Error> error;

  int status() const { return response ? response->statusCode() : 0; }
  QVPlatform::URLErrorCode code() const {
    return error ? static_cast<QVPlatform::URLErrorCode>(error->code())
                 : QVPlatform::URLErrorCode{};
  }
};

inline QVPlatform::MutableURLRequest requestTo(const std::string& url, double timeout = 10) {
  return {QVPlatform::URL::URLWithString(url),
          QVPlatform::URLRequestCachePolicy::kReloadIgnoringLocalCacheData, timeout};
}

inline QVPlatform::MutableURLRequest requestWith(const char* method, const std::string& url,
                                                 const QVPlatform::Data& body = nullptr) {
  auto request = requestTo(url);
  request.setHTTPMethod(method);
  request.setHTTPBody(body);
  return request;
}

inline Exchange send(const QVPlatform::MutableURLRequest& request) {
  Exchange exchange;
  exchange.body =
      QVPlatform::URLConnection::sendSynchronousRequest(request, exchange.response, exchange.error);
  return exchange;
}

inline Exchange get(const std::string& url, double timeout = 10) {
  return send(requestTo(url, timeout));
}

}  // namespace QVTest
