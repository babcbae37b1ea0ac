#pragma once

#include <QVPlatform/Foundation/URLConnection.h>

#include <curl/curl.h>

#include <string>

namespace QVPlatform {

/// Transfers, one after the other, over connections that are kept open in between.
///
/// Threads: one transfer at a time; consecutive ones may come from different threads.
class HTTPSession {
 public:
  struct Limits {
    std::size_t responseSize;   // bytes
    TimeInterval transferTime;  // seconds
  };
  struct Outcome {
    Data body;
    std::shared_ptr<HTTPURLResponse> response;
    std::shared_ptr<Error> error;
  };

  HTTPSession();
  ~HTTPSession();
  HTTPSession(const HTTPSession&) = delete;
  HTTPSession& operator=(const HTTPSession&) = delete;

  /// Sends a request whose URL is http or https and has a host, and waits for its answer.
  Outcome send(const MutableURLRequest& request, Limits limits);

 private:
  template <class T>
  void set(CURLoption option, T value) {
    curl_easy_setopt(easy_, option, value);
  }
  void setConstantOptions();
  void setMethodAndBody(const String& method, const Data& body);
  CURLcode run(TimeInterval timeout, TimeInterval transferTime);
  CURLcode waitForResult(TimeInterval timeout, TimeInterval transferTime);
  std::shared_ptr<HTTPURLResponse> takeResponse(const String& requestedURL);
  CURLcode decodeBody(const HTTPURLResponse& response);
  std::shared_ptr<Error> errorFor(CURLcode result) const;

  std::size_t receiveHeaderLine(std::string_view line);
  std::size_t receiveBody(std::string_view bytes);
  static std::size_t onHeaderLine(char* bytes, std::size_t, std::size_t size, void* session);
  static std::size_t onBody(char* bytes, std::size_t, std::size_t size, void* session);

  CURL* easy_;
  CURLM* multi_;
  char message_[CURL_ERROR_SIZE] = "";
  std::string body_;
  std::size_t maximumBodySize_ = 0;
  std::size_t headersSize_ = 0;  // of all answers of the transfer
  std::string header_;           // of the answer that came last
  bool headerIsComplete_ = false;
  bool bodyIsEncoded_ = false;
  bool hasConnected_ = false;  // in the last transfer
};

}  // namespace QVPlatform
