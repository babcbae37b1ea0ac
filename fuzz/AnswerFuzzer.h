#pragma once

#include <QVPlatform/Networking/URLConnection.h>

#include "tests/support/RawServer.h"

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

namespace QVFuzz {

/// Answers each connection with these bytes, or well where the target is "/good".
inline void serveAnswer(QVTest::RawServer::Connection& connection, std::string_view answer) {
  const std::string request = connection.readRequest();
  const bool isGood =
      request.substr(0, request.find('\n')).find("/good ") != std::string_view::npos;
  connection.send(isGood ? "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\ngood" : answer);
  connection.finish();
  connection.waitForClose(std::chrono::milliseconds(200));
  connection.reset();  // once both have said all, it leaves no port taken for a minute
}

/// Sends a request that is answered with the input, and then one that is answered well. The first
/// succeeds or fails, and of the second the answer is right, whatever the first left behind.
inline void readAnswers(std::string_view input) {
  using namespace QVPlatform;
  constexpr std::size_t kLimit = 4096;
  URLConnection::setMaximumResponseSize(kLimit);
  URLConnection::setMaximumTransferTime(5);
  // A proxy that is not there, so that no redirection leads out of the machine.
  for (const char* name : {"http_proxy", "https_proxy"}) setenv(name, "http://127.0.0.1:1", 1);
  setenv("no_proxy", "127.0.0.1", 1);
  const QVTest::RawServer server([&](auto& connection) { serveAnswer(connection, input); });
  std::shared_ptr<HTTPURLResponse> response;
  std::shared_ptr<Error> error;
  const auto send = [&](const char* target) {
    const MutableURLRequest request(URL::URLWithString(server.url(target)),
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
