#pragma once

#include <ctime>
#include "HTTPServer.h"
#include "Test.h"

namespace QVTest {

/// A collector that serves one text and honours "If-Modified-Since".
class ConfigurationServer {
 public:
  /// Long before, and long after, any download of the test.
  static constexpr std::time_t kLongAgo = 1'000'000'000;
  static constexpr std::time_t kLater = 4'000'000'000;

  explicit ConfigurationServer(std::string text, std::time_t modified = kLongAgo)
      : text_(std::move(text)), modified_(modified) {}

  void publish(std::string text, std::time_t modified) {
    const std::lock_guard lock(mutex_);
    text_ = std::move(text);
    modified_ = modified;
    status_ = 200;
  }
  /// From now on every answer has this status, with the text as its body.
  void answerWith(int status) {
    const std::lock_guard lock(mutex_);
    status_ = status;
    modified_ = std::numeric_limits<std::time_t>::max();
  }
  std::string url() const { return server_.url("/configuration.json"); }
  std::vector<HTTPServer::Request> requests() const { return server_.requests(); }

 private:
  void answer(const httplib::Request& request, httplib::Response& response) {
    const std::string since = request.get_header_value("If-Modified-Since");
    std::tm fields{};
    const char* const end = strptime(since.c_str(), "%a, %d %b %Y %H:%M:%S GMT", &fields);
    const std::lock_guard lock(mutex_);
    if (end && *end == '\0' && timegm(&fields) >= modified_) {
      response.status = 304;
    } else {
      response.status = status_;
      response.set_content(text_, "application/json");
    }
  }

  std::mutex mutex_;
  std::string text_;
  std::time_t modified_;
  int status_ = 200;
  HTTPServer server_{[this](const auto& request, auto& response) { answer(request, response); }};
};

}  // namespace QVTest
