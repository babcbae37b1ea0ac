#include "soak/OfflineFile.h"

#include <QVCore/QVCoreConstants.h>
#include <QVPlatform/Archives/KeyedUnarchiver.h>
#include <QVPlatform/Files/FileManager.h>

#include <charconv>
#include <filesystem>

namespace {

constexpr std::size_t kMaximumSize = 64U << 20;

void addHitsIn(const std::string& path, std::vector<HitID>& hits) {
  using namespace QVPlatform;
  KeyedUnarchiver unarchiver(FileManager::contentsAtPath(path, kMaximumSize));
  for (const Value& hit : unarchiver.decodeObjectForKey(kQVFileOfflineHits).array().values()) {
    hits.push_back(hitOf(hit.dictionary().get(kQVUserInfo_URLKey).string().view()));
  }
}

}  // namespace

HitID hitOf(std::string_view url) {
  HitID hit = 0;
  const std::string_view number = url.substr(url.rfind('/') + 1);
  std::from_chars(number.data(), number.data() + number.size(), hit);
  return hit;
}

std::vector<HitID> hitsOnFile(const std::string& container) {
  std::vector<HitID> hits;
  const auto directory =
      std::filesystem::path(container) / "Library" / kQVFilePrivateDocuments.view();
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(directory, error)) {
    const std::string name = entry.path().filename();
    const bool isOffline = name.find(kQVFileOfflineHits.view()) != std::string::npos;
    // A save that did not come to its end is nobody's.
    const bool isUnfinished = name.find(".tmp") != std::string::npos;
    if (isOffline && !isUnfinished) addHitsIn(entry.path(), hits);
  }
  return hits;
}
