#pragma once

#include "JSONFuzzer.h"

#include <QVCore/QVConfigurationFile.h>
#include <QVCore/QVUserDefaults.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>

namespace QVFuzz {

/// Counts how often a newer text was stored.
class CountingFile : public QVConfigurationFile {
 public:
  bool specificUpdateAnd(const QVPlatform::String&, const QVPlatform::String&) override {
    ++updates;
    return true;
  }
  int updates = 0;
};

/// Offers a new text to a configuration that has an old one, and reads what is stored then in both
/// ways, which must agree. Input: the path of the version, the
/// old text and the new one, with zero bytes between them.
inline void updateConfiguration(std::string_view input) {
  using QVPlatform::String;
  const String key("configuration_fuzzed");
  const String path(takeField(input));
  const String oldText(takeField(input));
  const String newText(input);
  CountingFile file;
  file.setSharedName(key);
  file.setVersionPath(path);
  const auto versionOf = [&file](const String& text) {
    return file.getVersionFromJSONObject(file.getJSONDictionaryFromString(text));
  };
  const auto before = QVUserDefaults::retrieveInfoFromUserDefaults(key);
  file.updateConfigurationFromOldConfToNew(oldText, newText);
  const bool isNewer = versionOf(oldText) < versionOf(newText);
  const bool isSame = oldText == newText;
  if (file.updates != (isNewer ? 1 : 0)) std::abort();
  if (file.version() != (isSame ? 0 : std::max(versionOf(oldText), versionOf(newText))))
    std::abort();
  const auto after = QVUserDefaults::retrieveInfoFromUserDefaults(key);
  if (after != (isNewer ? QVPlatform::Value(newText) : before)) std::abort();
  const auto leaf = file.getJsonLeafFromPath(path);
  if (leaf.description() != file.getJsonLeafFromPath(file.getJSONDictionary(), path).description())
    std::abort();
}

}  // namespace QVFuzz
