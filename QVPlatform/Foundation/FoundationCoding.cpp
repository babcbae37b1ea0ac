// How the classes of this room go into keyed archives and come back. URL and Error have the names
// and keys that the format has for them, so that other readers and writers can share them.

#include <QVPlatform/Foundation/Error.h>
#include <QVPlatform/Foundation/HTTPURLResponse.h>
#include <QVPlatform/Foundation/Internal/FoundationClasses.h>
#include <QVPlatform/Foundation/KeyedArchiver.h>
#include <QVPlatform/Foundation/KeyedUnarchiver.h>
#include <QVPlatform/Foundation/URLRequest.h>
#include <QVPlatform/Foundation/Value.h>

#include <stdexcept>
#include <string>
#include <utility>

namespace QVPlatform {
namespace {

constexpr char kDescriptionKey[] = "NSLocalizedDescription";

/// The text of a reference, below the base that some archives keep apart.
String resolved(const String& relative, const std::shared_ptr<URL>& base) {
  const auto reference = URL::URLWithString(relative);
  if (!base || (reference && !reference->scheme().isNull())) return relative;
  const std::string_view path = base->pathAndQuery().substr(0, base->pathAndQuery().find('?'));
  std::string text(base->origin());
  if (relative.hasPrefix("?") || relative.hasPrefix("#")) {
    text.append(path);
  } else if (!relative.hasPrefix("/")) {
    text.append(path.substr(0, path.rfind('/') + 1));
  }
  return String(text) + relative;
}

template <class Class>
std::shared_ptr<Object> make() {
  return std::make_shared<Class>();
}

}  // namespace

std::unordered_map<String, ClassRegistry::Factory> foundationClasses() {
  return {{"NSURL", make<URL>},
          {"NSError", make<Error>},
          {"HTTPURLResponse", make<HTTPURLResponse>},
          {"MutableURLRequest", make<MutableURLRequest>}};
}

void URL::encodeWithCoder(KeyedArchiver& coder) const {
  coder.encodeObjectForKey(nullptr, "NS.base");
  coder.encodeObjectForKey(text_, "NS.relative");
}

String URL::classNameForCoder() const { return "NSURL"; }

void URL::initWithCoder(KeyedUnarchiver& coder) {
  const auto base = std::dynamic_pointer_cast<URL>(coder.decodeObjectForKey("NS.base").object());
  const String relative = coder.decodeObjectForKey("NS.relative").string();
  const auto url = URLWithString(resolved(relative, base));
  if (!url) throw std::invalid_argument("no URL");
  *this = *url;
}

void Error::encodeWithCoder(KeyedArchiver& coder) const {
  coder.encodeObjectForKey(domain_, "NSDomain");
  coder.encodeIntegerForKey(code_, "NSCode");
  coder.encodeObjectForKey(Dictionary({{kDescriptionKey, localizedDescription_}}), "NSUserInfo");
}

String Error::classNameForCoder() const { return "NSError"; }

void Error::initWithCoder(KeyedUnarchiver& coder) {
  domain_ = coder.decodeObjectForKey("NSDomain").string();
  code_ = coder.decodeObjectForKey("NSCode").intValue();
  const Dictionary userInfo = coder.decodeObjectForKey("NSUserInfo").dictionary();
  localizedDescription_ = userInfo.get(kDescriptionKey).string();
}

void HTTPURLResponse::encodeWithCoder(KeyedArchiver& coder) const {
  coder.encodeObjectForKey(url_, "URL");
  coder.encodeIntegerForKey(statusCode_, "statusCode");
  coder.encodeObjectForKey(Data(header_), "header");  // need not be UTF-8
}

void HTTPURLResponse::initWithCoder(KeyedUnarchiver& coder) {
  url_ = coder.decodeObjectForKey("URL").string();
  statusCode_ = coder.decodeObjectForKey("statusCode").intValue();
  header_ = coder.decodeObjectForKey("header").data().view();
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
