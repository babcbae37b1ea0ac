#include <QVCore/QVHTTPOperation.h>

#include <QVCore/Internal/QVHTTPDate.h>
#include <QVCore/Internal/QVIsLogged.h>
#include <QVCore/Internal/QVToldStatus.h>
#include <QVCore/QVCoreConstants.h>
#include <QVCore/QVDebug.h>
#include <QVCore/QVLogLevel.h>
#include <QVCore/QVLogger.h>
#include <QVCore/QVNetworkManager.h>
#include <QVCore/QVUserDefaults.h>
#include <QVPlatform/Foundation/CallOut.h>
#include <QVPlatform/Networking/URLConnection.h>

#include <string>
#include <string_view>
#include <utility>

using QVPlatform::Data;
using QVPlatform::Date;
using QVPlatform::Dictionary;
using QVPlatform::Lock;
using QVPlatform::MutableURLRequest;
using QVPlatform::operator""_string;  // NOLINT(misc-unused-using-decls)
using QVPlatform::String;
using QVPlatform::stringWithFormat;
using QVPlatform::URL;
using QVPlatform::Value;

namespace {

constexpr int kNotModified = 304;
constexpr int kForbidden = 403;
constexpr int kNotFound = 404;
constexpr int kInternalServerError = 500;

int statusCode(const QVHTTPOperation::Response& response) {
  return response ? response->statusCode() : 0;
}

/// User-defaults key of the last download of the configuration that a request type is about.
String lastUpdateKey(const String& requestType) {
  return kQVConfigurationFilesLastUpdated + requestType.stringByReplacingOccurrencesOfString(
                                                kQVNotification_ConfigurationResponse, "");
}

}  // namespace

std::shared_ptr<QVHTTPOperation> QVHTTPOperation::initWithData(Dictionary data) {
  return initWithData(std::move(data), std::nullopt);
}

std::shared_ptr<QVHTTPOperation> QVHTTPOperation::initWithData(Dictionary data,
                                                               std::optional<URL> url) {
  url_ = std::move(url);
  setData(std::move(data).copy(), false);
  return std::static_pointer_cast<QVHTTPOperation>(self());
}

void QVHTTPOperation::addPostData(const String& text) {
  Dictionary own = data().first;
  // An absent one shows as "(null)", on purpose.
  own.set(kQVUserInfo_POSTData, stringWithFormat("%@%@", {own.get(kQVUserInfo_POSTData), text}));
  mayChange();
}

void QVHTTPOperation::main() {
  if (isCancelled() || QVDebug::areHitBlocked()) return;
  // Whoever asked waits for an answer, also when memory is too short for the right one.
  if (!QVPlatform::callOut([this] { perform(); })) sendErrorWithUserInfo(userInfo());
}

std::int32_t QVHTTPOperation::statusCodeBeingTold() noexcept { return QVToldStatus::current(); }

void QVHTTPOperation::post(const String& name, Dictionary userInfo) const {
  const QVToldStatus told(statusCode_);
  QVNetworkManager::sharedInstance()->postNetworkNotificationWithUserInfo(name,
                                                                          std::move(userInfo));
}

/// Of what is wrong, for which there is no room in what is posted.
void QVHTTPOperation::log(const char* format, const Value& reason) const {
  QVPlatform::callOut([&] {
    const Value number = userInfo().get(kQVUserInfo_RequestID);
    QVLogger::sharedInstance()->logMessageWithLevel(stringWithFormat(format, {number, reason}),
                                                    QVLogLevelTraffic);
  });
}

void QVHTTPOperation::releaseWork() { setUserInfo(nullptr); }

void QVHTTPOperation::perform() {
  const Dictionary data = userInfo();
  const String url = data.get(kQVUserInfo_URLKey).string();
  if (!QVNetworkManager::isValidURL(URLOf(url))) {
    log("Request %@ was refused: its URL is not valid", nullptr);
    return sendErrorWithUserInfo(data);
  }

  const String requestType = data.get(kQVUserInfo_RequestType).string();
  if (requestType.hasPrefix(kQVNotification_ConfigurationResponse)) {
    prepareConditionalRequest(lastUpdateKey(requestType));
  }
  const auto response = sendSynchronousRequestWithResponseWithError(url, nullptr, nullptr);
  if (!ifModified().isNull()) {
    if (statusCode(response) == kNotModified) return;
    // An answer that turns out to be a failure counts as a download as well.
    const auto now = static_cast<std::uint64_t>(Date::now().secondsSince1970);
    QVUserDefaults::saveInfoToUserDefaultsForLabel(String(std::to_string(now)),
                                                   lastUpdateKey(requestType));
  }
  // The transport's error stays in the sending step: a transfer that failed shows by its null body.
  if (checkRequestErrorWithResponse(nullptr, response)) {
    if (!result().isNull()) log("Request %@ failed: status %@", statusCode(response));
    sendErrorWithUserInfo(packErrorWithResponse(nullptr, response));
  } else {
    sendResponseNotification();
  }
}

/// Somebody may have put another one into the data since it was parsed.
std::optional<URL> QVHTTPOperation::URLOf(const String& text) const {
  const bool isParsed = url_ && url_->absoluteString().isSameObject(text);
  return isParsed ? url_ : URL::URLWithString(text);
}

void QVHTTPOperation::prepareConditionalRequest(const String& lastUpdateKey) {
  // What is not there, "" included, reads as 0: anything modified since 1970 is wanted.
  const std::int64_t seconds =
      QVUserDefaults::retrieveInfoFromUserDefaults(lastUpdateKey).longLongValue();
  setIfModified(QVHTTPDate(static_cast<std::uint64_t>(seconds)));
}

QVHTTPOperation::Response QVHTTPOperation::sendSynchronousRequestWithResponseWithError(
    const String& url, Response response, TransportError error) {
  auto request = std::make_shared<MutableURLRequest>(
      URLOf(url), kQVNetworkDefaultRequestCachePolicy.load(), kQVNetworkDefaultTimeout);
  setRequest(request);
  const String date = ifModified();
  if (!date.isNull()) request->addValueForHTTPHeaderField(date, "If-Modified-Since");
  request = customizeRequest();
  setResult(QVPlatform::URLConnection::sendSynchronousRequest(*request, response, error));
  statusCode_ = statusCode(response);
  if (error) log("Request %@ failed: %@", error->localizedDescription());
  post(kQVNotification_HTTPRequestSent,
       {{kQVUserInfo_DataKey, request}, {kQVUserInfo_ContentKey, userInfo()}});
  return response;
}

std::shared_ptr<MutableURLRequest> QVHTTPOperation::customizeRequest() {
  auto customized = request();
  const String postData = userInfo().get(kQVUserInfo_POSTData).string();
  if (customized && !postData.isEmpty()) {
    // The line is as long as the body: it is made only for who reads it.
    if (QVIsLogged(QVLogLevelConfigurations)) {
      QVLogger::sharedInstance()->logMessageWithLevel(stringWithFormat("postData: %@", {postData}),
                                                      QVLogLevelConfigurations);
    }
    customized->setHTTPMethod("POST"_string);
    customized->setHTTPBody(Data::dataWithString(postData));
  }
  return customized;
}

String QVHTTPOperation::getContentOfData(const Data& data) const {
  // Text is UTF-8 or else ASCII; all ASCII is UTF-8, so one attempt serves for both.
  const String text = data.string();
  if (text.isNull()) return "";
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  const bool isMarked = text.view().starts_with(kByteOrderMark);
  return isMarked ? String(text.view().substr(kByteOrderMark.size())) : text;
}

bool QVHTTPOperation::checkRequestErrorWithResponse(const TransportError& error,
                                                    const Response& response) const {
  if (result().isNull() || error) return true;
  // All others are answers, 401 and 502 among them, on purpose.
  const int status = statusCode(response);
  return status == kInternalServerError || status == kNotFound || status == kForbidden;
}

Dictionary QVHTTPOperation::packErrorWithResponse(const TransportError& error,
                                                  const Response& response) {
  Dictionary data = userInfo();
  if (response) data.set(kQVUserInfo_ResponseKey, response->copy());
  if (error) data.set(kQVUserInfo_ErrorKey, std::make_shared<QVPlatform::Error>(*error));
  if (const auto sent = request()) data.set(kQVUserInfo_DataKey, sent->copy());
  return data.copy();
}

void QVHTTPOperation::sendErrorWithUserInfo(Dictionary userInfo) {
  post(kQVNotification_HTTPRequestError, std::move(userInfo));
}

void QVHTTPOperation::sendResponseNotification() {
  Dictionary data = userInfo();
  const String content = getContentOfData(result());
  if (content.isEmpty() && result().string().isNull()) {
    log("The answer to request %@ is no text in UTF-8: it is told without its %@ bytes",
        result().view().size());
  }
  data.set(kQVUserInfo_ContentKey, content);
  post(data.get(kQVUserInfo_RequestType).string(), data);
}

Dictionary QVHTTPOperation::userInfo() const {
  Dictionary data;
  {
    const Lock lock(mutex_);
    isShared_ = true;
    data = userInfo_;
  }
  mayChange();
  return data;
}

void QVHTTPOperation::setUserInfo(Dictionary userInfo) { setData(std::move(userInfo), true); }

std::pair<Dictionary, bool> QVHTTPOperation::data() const {
  const Lock lock(mutex_);
  return {userInfo_, isShared_};
}

void QVHTTPOperation::setData(Dictionary data, bool isShared) {
  {
    const Lock lock(mutex_);
    std::swap(userInfo_, data);
    isShared_ = isShared;
  }
  mayChange();
}

String QVHTTPOperation::ifModified() const {
  const Lock lock(mutex_);
  return ifModified_;
}

void QVHTTPOperation::setIfModified(String date) {
  const Lock lock(mutex_);
  std::swap(ifModified_, date);
}

std::shared_ptr<MutableURLRequest> QVHTTPOperation::request() const {
  const Lock lock(mutex_);
  return request_;
}

void QVHTTPOperation::setRequest(std::shared_ptr<MutableURLRequest> request) {
  const Lock lock(mutex_);
  std::swap(request_, request);
}

Data QVHTTPOperation::result() const {
  const Lock lock(mutex_);
  return result_;
}

void QVHTTPOperation::setResult(Data result) {
  const Lock lock(mutex_);
  std::swap(result_, result);
}
