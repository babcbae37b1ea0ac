#pragma once

#include "JSONFuzzer.h"

#include <QVCore/qvcore.h>

#include <map>
#include <string>
#include <vector>

namespace QVFuzz {

/// What a text that was handed over says; it is given back.
inline std::string takeText(char* text) {
  std::string copy = text ? text : "";
  qv_free(text);
  return copy;
}

inline void hearJSON(const char*, const qv_info* info, void* heard) {
  *static_cast<std::string*>(heard) = takeText(qv_info_json(info));
}

/// Stores texts in a user info of the C interface and posts it; what is heard must say the same,
/// and so must its JSON when it is read. Input: the notification's name, then keys and texts in
/// turn, with zero bytes between them.
inline void postFromC(std::string_view input) {
  using QVPlatform::String;
  const auto isText = [](const std::string& text) { return !String(text).isNull(); };
  const std::string name(takeField(input));
  std::map<String, QVPlatform::Value> expected;
  qv_info* const info = qv_info_new();
  while (!input.empty()) {
    const std::string key(takeField(input));
    const std::string text(takeField(input));
    const bool isTaken = isText(key) && isText(text);
    const int result = qv_info_set_text(info, key.c_str(), text.c_str());
    if (result != (isTaken ? QV_OK : QV_INVALID)) std::abort();
    if (!isTaken) continue;
    expected[String(key)] = text;
    if (qv_info_text(info, key.c_str()) != text) std::abort();
  }
  std::string heard;
  const long listener = qv_listen(name.c_str(), hearJSON, &heard);
  if ((listener > 0) != isText(name)) std::abort();
  const int posted = qv_post(name.c_str(), info);
  if (posted != (isText(name) ? QV_OK : QV_INVALID)) std::abort();
  if (listener > 0 && qv_unlisten(listener) != QV_OK) std::abort();
  const std::string json = takeText(qv_info_json(info));
  if (isText(name) && heard != json) std::abort();
  qv_info* const copy = qv_info_copy(info);
  if (takeText(qv_info_json(copy)) != json) std::abort();
  qv_info_free(copy);
  const QVPlatform::Dictionary entries(
      std::vector<QVPlatform::Dictionary::Entry>(expected.begin(), expected.end()));
  if (QVPlatform::JSONSerialization::JSONObjectWithText(json) != entries) std::abort();
  qv_info_free(info);
}

}  // namespace QVFuzz
