#include <QVPlatform/Foundation/HTTPURLResponse.h>
#include <QVPlatform/Foundation/Value.h>

namespace QVPlatform {

HTTPURLResponse::HTTPURLResponse(String url, int statusCode, HTTPHeaderFields fields)
    : url_(std::move(url)), statusCode_(statusCode), fields_(std::move(fields)) {}

std::shared_ptr<HTTPURLResponse> HTTPURLResponse::copy() const {
  return std::make_shared<HTTPURLResponse>(*this);
}

String HTTPURLResponse::description() const {
  return stringWithFormat("%@ { %@ %@ }", {Object::description(), statusCode_, url_});
}

}  // namespace QVPlatform
