#include <QVCore/Internal/QVRequestNames.h>

#include <QVCore/QVCoreConstants.h>

using QVPlatform::String;

namespace {

/// The answer's name for a request whose name is a prefix and a suffix.
String withPrefixReplaced(const String& name, const String& prefix, const String& replacement) {
  return replacement + name.stringByReplacingOccurrencesOfString(prefix, "");
}

}  // namespace

bool QVRequestNames::isRequest(const String& name) {
  return name == kQVNotification_HTTPRequest || name == kQVNotification_SegmentRequest ||
         name.hasPrefix(kQVNotification_ConfigurationRequest) ||
         name.hasPrefix(kQVNotification_HTTPPartnerRequest);
}

String QVRequestNames::answerTo(const String& name) {
  // By identity on purpose, not by text: posters use the constants, and a text that only equals one
  // is answered as an unknown request.
  if (name.isSameObject(kQVNotification_HTTPRequest)) return kQVNotification_HTTPResponse;
  if (name.isSameObject(kQVNotification_SegmentRequest)) return kQVNotification_SegmentResponse;
  if (name.hasPrefix(kQVNotification_ConfigurationRequest)) {
    return withPrefixReplaced(name, kQVNotification_ConfigurationRequest,
                              kQVNotification_ConfigurationResponse);
  }
  if (name.hasPrefix(kQVNotification_HTTPPartnerRequest)) {
    return withPrefixReplaced(name, kQVNotification_HTTPPartnerRequest,
                              kQVNotification_HTTPPartnerResponse);
  }
  return "QVUnknownRequestType";
}
