#include <QVCore/Internal/QVRequestData.h>

#include <QVCore/QVCoreConstants.h>
#include <QVCore/QVLogLevel.h>
#include <QVCore/QVLogger.h>
#include <QVPlatform/Networking/HTTPURLResponse.h>
#include <QVPlatform/Networking/URLRequest.h>

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

using QVPlatform::Dictionary;
using QVPlatform::String;
using QVPlatform::stringWithFormat;
using QVPlatform::Value;

namespace {

/// What configurations put in the place that an error has its response in.
constexpr const char* kConfigurationMarker = "configuration";

template <class T>
bool isA(const Value& value) {
  return std::dynamic_pointer_cast<T>(value.object()) != nullptr;
}

/// A response has taken the place of the marker, if there was one. Without it a request waits with
/// the hits.
Value markerOf(const Dictionary& userInfo) {
  Value held = userInfo.get(kQVUserInfo_ResponseKey);
  if (!isA<QVPlatform::HTTPURLResponse>(held)) return held;
  const String answer = userInfo.get(kQVUserInfo_RequestType).string();
  return answer.hasPrefix(kQVNotification_ConfigurationResponse) ? Value(kConfigurationMarker)
                                                                 : Value();
}

}  // namespace

Dictionary QVRequestData::numbered(const Dictionary& asked, const String& type, std::uint32_t id) {
  if (asked.isNull()) return nullptr;
  const auto given = asked.snapshot();
  std::vector<Dictionary::Entry> entries;
  entries.reserve(given->size() + 2);
  entries.assign(given->begin(), given->end());
  entries.emplace_back(kQVUserInfo_RequestType, type);
  entries.emplace_back(kQVUserInfo_RequestID, id);
  return Dictionary(std::move(entries));
}

Dictionary QVRequestData::refused(const Dictionary& data) {
  Dictionary refused = data.copy();
  if (!refused.isNull()) refused.set(kQVUserInfo_ErrorKey, kQVErrorMessageInvalidURL);
  QVLogger::sharedInstance()->logMessageWithLevel(
      stringWithFormat("Request %@ was refused: its URL is not valid",
                       {data.get(kQVUserInfo_RequestID)}),
      QVLogLevelTraffic);
  return refused;
}

Dictionary QVRequestData::withoutOutcome(const Dictionary& userInfo) {
  Dictionary data = userInfo.copy();
  data.set(kQVUserInfo_ResponseKey, markerOf(userInfo));
  data.remove(kQVUserInfo_RequestType);
  data.remove(kQVUserInfo_RequestID);
  data.remove(kQVUserInfo_ContentKey);
  if (data.get(kQVUserInfo_ErrorKey) == Value(kQVErrorMessageInvalidURL)) {
    data.remove(kQVUserInfo_ErrorKey);
  }
  if (isA<QVPlatform::MutableURLRequest>(data.get(kQVUserInfo_DataKey))) {
    data.remove(kQVUserInfo_DataKey);
  }
  return data;
}
