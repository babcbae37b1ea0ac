#pragma once

#include <QVCore/Export.h>
#include <QVPlatform/Dispatch/Operation.h>
#include <QVPlatform/Foundation/Data.h>
#include <QVPlatform/Foundation/Error.h>
#include <QVPlatform/Foundation/Mutex.h>
#include <QVPlatform/Foundation/Property.h>
#include <QVPlatform/Foundation/Value.h>
#include <QVPlatform/Networking/HTTPURLResponse.h>
#include <QVPlatform/Networking/URLRequest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

/// One HTTP request: sends it on its queue's thread, tells success from failure, and reports by
/// notifications that the network manager posts.
///
/// Threads: main() runs once, on the queue's thread, and posts there; every operation may be called
/// from any thread. addPostData() is meant for an operation that has not started yet: what comes
/// later does not reach the server.
class QVCORE_EXPORT QVHTTPOperation : public QVPlatform::Operation {
 public:
  using Response = std::shared_ptr<QVPlatform::HTTPURLResponse>;
  using TransportError = std::shared_ptr<QVPlatform::Error>;

  /// Takes a copy of the request data. Returns the receiver.
  std::shared_ptr<QVHTTPOperation> initWithData(QVPlatform::Dictionary data);
  /// The same for a caller that has parsed the data's "url" already, so that main() need not do it
  /// again.
  std::shared_ptr<QVHTTPOperation> initWithData(QVPlatform::Dictionary data,
                                                std::optional<QVPlatform::URL> url);

  /// Appends to the request's "POSTData", by its text; an absent one counts as "(null)".
  void addPostData(const QVPlatform::String& text);

  /// Sends the request and posts, in this order:
  /// - cancelled, or hits are blocked: nothing;
  /// - URL not valid: HTTPRequestError;
  /// - 304 to a conditional request: HTTPRequestSent;
  /// - no body, or status 403, 404 or 500: HTTPRequestSent, HTTPRequestError;
  /// - else: HTTPRequestSent, and the notification that "RequestType" names.
  /// A request for a configuration is conditional on the time of its last download. Memory that
  /// runs out before an answer is posted makes it HTTPRequestError, with the request data as it
  /// stands.
  void main() override;
  /// The status of the HTTP answer that the calling thread is just telling: for observers of
  /// HTTPRequestSent, of HTTPRequestError and of answers, whose user info has no place for it. 0
  /// when no header of an answer has come, for a refused request, and anywhere else.
  static std::int32_t statusCodeBeingTold() noexcept;
  /// Forgets the request data: what is done to it from now on has no effect.
  void releaseWork() override;

  /// The transfer, as main() makes it: builds request(), with "If-Modified-Since" if ifModified()
  /// is not null, sends it and waits for the answer. The body goes to result(); then
  /// HTTPRequestSent is posted, however the transfer ended. Returns the response; null when none
  /// came.
  ///
  /// What is passed as `response` and `error` has no effect, since the transfer puts its own into
  /// their place. Its error is not handed back: a transfer that failed shows by a null result().
  Response sendSynchronousRequestWithResponseWithError(const QVPlatform::String& url,
                                                       Response response, TransportError error);
  /// Makes a POST of the request if there is "POSTData", text that is not empty. Returns the
  /// request.
  std::shared_ptr<QVPlatform::MutableURLRequest> customizeRequest();
  /// The bytes as text, without a byte-order mark in front; "" for null and for what is not text.
  /// Never null.
  QVPlatform::String getContentOfData(const QVPlatform::Data& data) const;
  /// Whether the outcome is a failure.
  bool checkRequestErrorWithResponse(const TransportError& error, const Response& response) const;
  /// Adds copies of the response, the error and the request to the request data, and returns a
  /// copy.
  QVPlatform::Dictionary packErrorWithResponse(const TransportError& error,
                                               const Response& response);
  void sendErrorWithUserInfo(QVPlatform::Dictionary userInfo);
  /// Adds "content" to the request data and posts the answer.
  void sendResponseNotification();

  /// The request data. Null in an operation without initWithData(), and in a cancelled one that
  /// stands for others in its queue's list.
  QVPlatform::Dictionary userInfo() const;
  void setUserInfo(QVPlatform::Dictionary userInfo);
  /// Value of "If-Modified-Since", or null for a request that is not conditional.
  QVPlatform::String ifModified() const;
  void setIfModified(QVPlatform::String date);
  /// The request as sent, or null before.
  std::shared_ptr<QVPlatform::MutableURLRequest> request() const;
  void setRequest(std::shared_ptr<QVPlatform::MutableURLRequest> request);
  /// The body received; null before the transfer and when it failed.
  QVPlatform::Data result() const;
  void setResult(QVPlatform::Data result);
  /// Seconds since 1970; the manager cancels an operation that is older than its limit when its
  /// queue is full. The core never sets it, so that every operation counts as old.
  std::int32_t timestamp() const noexcept { return timestamp_; }
  void setTimestamp(std::int32_t seconds) noexcept { timestamp_ = seconds; }

 private:
  friend class QVKeptHits;

  /// The request data for who neither changes it nor hands it out, and whether anybody else may
  /// change it.
  std::pair<QVPlatform::Dictionary, bool> data() const;
  void setData(QVPlatform::Dictionary data, bool isShared);
  void perform();
  void post(const QVPlatform::String& name, QVPlatform::Dictionary userInfo) const;
  void log(const char* format, const QVPlatform::Value& reason) const;
  std::optional<QVPlatform::URL> URLOf(const QVPlatform::String& text) const;
  void prepareConditionalRequest(const QVPlatform::String& lastUpdateKey);

  std::atomic<std::int32_t> timestamp_{0};
  std::atomic<std::int32_t> statusCode_{0};  // of the answer
  mutable QVPlatform::Mutex mutex_;          // one for all, as thousands of operations may wait
  QVPlatform::Dictionary userInfo_ QV_GUARDED_BY(mutex_);
  mutable bool isShared_ QV_GUARDED_BY(mutex_) = false;  // userInfo_, with whoever asked for it
  QVPlatform::String ifModified_ QV_GUARDED_BY(mutex_);
  std::shared_ptr<QVPlatform::MutableURLRequest> request_ QV_GUARDED_BY(mutex_);
  QVPlatform::Data result_ QV_GUARDED_BY(mutex_);
  /// Of the data as it was at first; const after initWithData().
  std::optional<QVPlatform::URL> url_;
};
