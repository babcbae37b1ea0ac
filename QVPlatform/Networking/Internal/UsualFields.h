#pragma once

#include <QVPlatform/Foundation/String.h>

/// Header fields that every request has unless it has its own: the values behind the operations of
/// URLConnection that have the same names.
namespace QVPlatform::UsualFields {

String userAgent();
void setUserAgent(const String& text);
String acceptLanguage();
void setAcceptLanguage(const String& text);
/// Changes with each change of the above, so that who keeps something made of them knows when to
/// make it anew.
unsigned version() noexcept;

}  // namespace QVPlatform::UsualFields
