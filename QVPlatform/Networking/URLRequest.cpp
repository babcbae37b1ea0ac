#include <QVPlatform/Networking/URLRequest.h>

#include <QVPlatform/Archives/KeyedArchiver.h>
#include <QVPlatform/Archives/KeyedUnarchiver.h>
#include <QVPlatform/Foundation/ClassRegistry.h>
#include <QVPlatform/Foundation/Value.h>

namespace QVPlatform {
namespace {

constexpr TimeInterval kDefaultTimeoutInterval = 60;

const RegisteredClass<MutableURLRequest> registeredRequest{"MutableURLRequest"};

}  // namespace

MutableURLRequest::MutableURLRequest(std::optional<URL> url, URLRequestCachePolicy cachePolicy,
                                     TimeInterval timeoutInterval)
    : url_(std::move(url)),
      cachePolicy_(cachePolicy),
      timeoutInterval_(timeoutInterval > 0 ? timeoutInterval : kDefaultTimeoutInterval),
      content_{"GET"_string, nullptr, {}} {}

MutableURLRequest::MutableURLRequest()
    : MutableURLRequest(std::nullopt, URLRequestCachePolicy::kUseProtocolCachePolicy, 0) {}

MutableURLRequest::MutableURLRequest(const MutableURLRequest& other)
    : Object(other),
      Coding(other),
      url_(other.url_),
      cachePolicy_(other.cachePolicy_),
      timeoutInterval_(other.timeoutInterval_),
      content_(other.content()) {}

MutableURLRequest::Content MutableURLRequest::content() const {
  const Lock lock(mutex_);
  return content_;
}

String MutableURLRequest::HTTPMethod() const {
  const Lock lock(mutex_);
  return content_.method;
}

void MutableURLRequest::setHTTPMethod(String method) {
  if (!isHTTPToken(method)) return;
  const Lock lock(mutex_);
  content_.method = std::move(method);
}

Data MutableURLRequest::HTTPBody() const {
  const Lock lock(mutex_);
  return content_.body;
}

void MutableURLRequest::setHTTPBody(Data body) {
  const Lock lock(mutex_);
  content_.body = std::move(body);
}

void MutableURLRequest::addValueForHTTPHeaderField(const String& value, const String& field) {
  if (!isHTTPToken(field) || !isHTTPFieldValue(value)) return;
  const Lock lock(mutex_);
  content_.fields.add(field, value);
}

String MutableURLRequest::valueForHTTPHeaderField(const String& field) const {
  const Lock lock(mutex_);
  return content_.fields.value(field);
}

Dictionary MutableURLRequest::allHTTPHeaderFields() const {
  const Lock lock(mutex_);
  return content_.fields.dictionary();
}

std::shared_ptr<MutableURLRequest> MutableURLRequest::copy() const {
  return std::make_shared<MutableURLRequest>(*this);
}

String MutableURLRequest::description() const {
  return stringWithFormat("%@ { %@ %@ }", {Object::description(), HTTPMethod(),
                                           url_ ? url_->absoluteString() : String()});
}

void MutableURLRequest::encodeWithCoder(KeyedArchiver& coder) const {
  const Content content = this->content();
  coder.encodeObjectForKey(url_ ? url_->absoluteString() : String(), "URL");
  coder.encodeIntegerForKey(static_cast<std::int64_t>(cachePolicy_), "cachePolicy");
  coder.encodeObjectForKey(timeoutInterval_, "timeoutInterval");
  coder.encodeObjectForKey(content.method, "HTTPMethod");
  coder.encodeObjectForKey(content.body, "HTTPBody");
  coder.encodeObjectForKey(content.fields.dictionary(), "HTTPHeaderFields");
}

void MutableURLRequest::initWithCoder(KeyedUnarchiver& coder) {
  const auto policy = coder.decodeObjectForKey("cachePolicy").intValue();
  const Value timeout = coder.decodeObjectForKey("timeoutInterval");
  const auto* seconds = std::get_if<double>(&timeout.storage());
  url_ = URL::URLWithString(coder.decodeObjectForKey("URL").string());
  cachePolicy_ = static_cast<URLRequestCachePolicy>(policy);
  if (seconds && *seconds > 0) timeoutInterval_ = *seconds;
  setHTTPMethod(coder.decodeObjectForKey("HTTPMethod").string());
  setHTTPBody(coder.decodeObjectForKey("HTTPBody").data());
  const Dictionary fields = coder.decodeObjectForKey("HTTPHeaderFields").dictionary();
  for (const auto& [name, value] : fields.entries()) {
    addValueForHTTPHeaderField(value.string(), name);
  }
}

}  // namespace QVPlatform
