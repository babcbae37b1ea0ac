#pragma once

#include <QVPlatform/Networking/Internal/AnswerHeader.h>
#include <QVPlatform/Networking/Internal/FieldList.h>
#include <QVPlatform/Networking/Internal/KeptSockets.h>
#include <QVPlatform/Networking/Internal/ProxyEnvironment.h>
#include <QVPlatform/Networking/URLConnection.h>

#include <curl/curl.h>

#include <chrono>
#include <new>
#include <optional>
#include <string>

namespace QVPlatform {

/// Transfers, one after the other, over connections that are kept open in between.
///
/// Each request goes out by itself: libcurl follows no redirection, decodes nothing, and sends
/// nothing twice unless allowsRequest() lets it.
///
/// Threads: one transfer at a time; consecutive ones may come from different threads. Whatever runs
/// out of memory throws std::bad_alloc, and then the session is to be destroyed.
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
  /// Whether another transfer may follow: not when memory has run out within libcurl.
  bool isUsable() const noexcept { return isUsable_; }

 private:
  using Clock = std::chrono::steady_clock;

  template <class T>
  void set(CURLoption option, T value) {
    // The others cannot happen: what is set is known to libcurl, and of the right type.
    if (curl_easy_setopt(easy_, option, value) == CURLE_OUT_OF_MEMORY) throw std::bad_alloc();
  }
  void open();
  void close();
  void setConstantOptions();
  void setURL(const URL& url);
  void setPlace(std::string_view text);
  void setMethodAndBody(const String& method, const Data& body);
  curl_slist* usualFields();
  void dropDoubtfulConnections();
  void prepareForAnswer();

  /// One request and its answer, whatever that says.
  Outcome exchange(const MutableURLRequest::Content& content, const URL& url, TimeInterval timeout,
                   Clock::time_point end);
  CURLcode run(TimeInterval timeout, Clock::time_point end);
  CURLcode waitForResult(TimeInterval timeout, Clock::time_point end);
  int statusCode() const;
  std::shared_ptr<HTTPURLResponse> takeResponse(const String& url);
  bool isFollowedByMore(const HTTPURLResponse* response, const URL& url) const;
  bool isCutShort(const HTTPURLResponse& response, const URL& url, const String& method) const;
  CURLcode decodeBody(const HTTPURLResponse& response);
  /// Has the transfer fail for this reason.
  void fail(URLErrorCode code) { failure_ = code; }
  std::shared_ptr<Error> errorFor(CURLcode result) const;

  bool allowsRequest();
  bool allowsHeaderLine(std::string_view part);
  std::size_t receiveHeaderLine(std::string_view line);
  std::size_t receiveBody(std::string_view bytes);
  static CURLcode onTLSContext(CURL*, void* context, void* session);
  static int onRequest(void* session, char*, char*, int, int);
  static std::size_t onHeaderLine(char* bytes, std::size_t, std::size_t size, void* session);
  static std::size_t onBody(char* bytes, std::size_t, std::size_t size, void* session);

  KeptSockets sockets_;  // outlives the connections of what follows
  CURL* easy_ = nullptr;
  CURLM* multi_ = nullptr;
  CURLU* place_ = nullptr;  // as libcurl reads placeText_
  std::string placeText_;   // what the handle has for its URL
  std::string target_;      // likewise; kept for its memory
  const ProxyEnvironment* proxies_ = nullptr;
  const std::string* proxy_ = nullptr;  // the one of them that the handle has
  char message_[CURL_ERROR_SIZE] = "";
  FieldList usualFields_;
  unsigned usualFieldsVersion_ = 0;
  bool isUsable_ = true;
  bool mustForgetFailures_ = false;
  bool hasDoubtfulConnections_ = false;
  // Of the present exchange.
  bool mayBeRepeated_ = false;
  int requests_ = 0;
  std::optional<URLErrorCode> failure_;
  std::string body_;
  std::size_t maximumBodySize_ = 0;
  AnswerHeader header_;
  bool isInHeader_ = true;
  bool isWithinLine_ = false;
  bool isEndedByAlert_ = false;
};

}  // namespace QVPlatform
