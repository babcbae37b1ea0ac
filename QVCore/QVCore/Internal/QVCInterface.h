#pragma once

#include <QVCore/qvcore.h>
#include <QVPlatform/Foundation/CallOut.h>
#include <QVPlatform/Foundation/String.h>
#include <QVPlatform/Foundation/Value.h>

#include <cstring>
#include <type_traits>
#include <utility>

/// What the operations of the C interface have in common.
namespace QVCInterface {

/// What the body returns; `otherwise` if it was stopped by an exception, which is told on the
/// console log.
template <class Body, class Result>
Result resultOf(Body&& body, Result otherwise) {
  QVPlatform::callOut([&] { otherwise = body(); });
  return otherwise;
}

/// The same of a body that returns one of the interface's results, or nothing for QV_OK.
template <class Body>
int done(Body&& body) {
  if constexpr (std::is_void_v<std::invoke_result_t<Body>>) {
    return QVPlatform::callOut(std::forward<Body>(body)) ? QV_OK : QV_FAILED;
  } else {
    return resultOf(std::forward<Body>(body), QV_FAILED);
  }
}

/// Calls the body with the text, which may be nullptr but not malformed.
template <class Body>
int doneWithOptional(const char* utf8, Body&& body) {
  return done([&] {
    const QVPlatform::String text(utf8);
    const bool isMalformed = utf8 && text.isNull();
    return isMalformed ? QV_INVALID : done([&] { return body(text); });
  });
}

/// The same with a text that must be there.
template <class Body>
int doneWith(const char* utf8, Body&& body) {
  return utf8 ? doneWithOptional(utf8, std::forward<Body>(body)) : QV_INVALID;
}

/// The text that the body returns, as a copy for the caller; up to its first zero byte.
template <class Body>
char* copyOf(Body&& body) {
  const auto copy = [&] {
    const QVPlatform::String text = body();
    return text.isNull() ? nullptr : strdup(text.UTF8String());
  };
  return resultOf(copy, static_cast<char*>(nullptr));
}

}  // namespace QVCInterface
