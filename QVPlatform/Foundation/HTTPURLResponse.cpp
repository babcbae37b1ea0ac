#include <QVPlatform/Foundation/HTTPHeaderFields.h>
#include <QVPlatform/Foundation/HTTPURLResponse.h>
#include <QVPlatform/Foundation/Value.h>

namespace QVPlatform {

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

}  // namespace QVPlatform
