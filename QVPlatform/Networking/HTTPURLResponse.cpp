#include <QVPlatform/Networking/HTTPURLResponse.h>

#include <QVPlatform/Archives/KeyedArchiver.h>
#include <QVPlatform/Archives/KeyedUnarchiver.h>
#include <QVPlatform/Foundation/ClassRegistry.h>
#include <QVPlatform/Foundation/Value.h>
#include <QVPlatform/Networking/HTTPHeaderFields.h>

namespace QVPlatform {
namespace {

const RegisteredClass<HTTPURLResponse> registeredResponse{"HTTPURLResponse"};

}  // namespace

HTTPURLResponse::HTTPURLResponse(String url, int statusCode, std::string header)
    : url_(std::move(url)), statusCode_(statusCode), header_(std::move(header)) {}

String HTTPURLResponse::valueForHTTPHeaderField(const String& field) const {
  return HTTPHeaderFields::parse(header_).value(field);
}

Dictionary HTTPURLResponse::allHeaderFields() const {
  return HTTPHeaderFields::parse(header_).dictionary();
}

std::shared_ptr<HTTPURLResponse> HTTPURLResponse::copy() const {
  return std::make_shared<HTTPURLResponse>(*this);
}

String HTTPURLResponse::description() const {
  return stringWithFormat("%@ { %@ %@ }", {Object::description(), statusCode_, url_});
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

}  // namespace QVPlatform
