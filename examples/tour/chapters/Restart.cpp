#include <QVPlatform/Archives/KeyedUnarchiver.h>
#include <QVPlatform/Files/FileManager.h>

#include "tour/Chapters.h"

using QVPlatform::Data;
using QVPlatform::Dictionary;
using QVPlatform::FileManager;
using QVPlatform::String;
using QVPlatform::Value;

namespace {

constexpr std::size_t kMaximumFileSize = 1U << 20;

String offlineHitsFile(const Tour& tour) {
  return String(tour.otherContainer + "/Library/") + kQVFilePrivateDocuments + "/" +
         kQVFileOfflineHits;
}

/// What the file of waiting hits holds: "ID 1: page=lunch".
std::vector<std::string> savedHits(const Data& archive) {
  QVPlatform::KeyedUnarchiver unarchiver(archive);
  std::vector<std::string> hits;
  for (const Value& saved : unarchiver.decodeObjectForKey(kQVFileOfflineHits).array().values()) {
    const Dictionary hit = saved.dictionary();
    hits.push_back("ID " + std::to_string(hit.get(kQVUserInfo_RequestID).longLongValue()) + ": " +
                   std::string(hit.get(kQVUserInfo_POSTData).string().view()));
  }
  return hits;
}

/// The installation's identifier that a hit carries; empty if it carries none.
std::string identifierIn(const std::string& hit) {
  constexpr std::string_view kParameter = "&sdkid=";
  const std::size_t place = hit.find(kParameter);
  return place == std::string::npos ? "" : hit.substr(place + kParameter.size());
}

}  // namespace

void restart(Tour& tour) {
  tour.narrator.say(
      "Another application is used on Monday. It loses the network, goes to the background and is "
      "ended while three hits wait:");
  tour.runApplication("monday");
  const auto monday = tour.collector.takeHits();
  const std::string identifier = monday.empty() ? "" : identifierIn(monday.front());
  tour.narrator.checkSame({"POST /hit page=breakfast&sdkid=" + identifier}, monday,
                          "only the hit from before the loss has arrived");

  const String file = offlineHitsFile(tour);
  const Data archive = FileManager::contentsAtPath(file, kMaximumFileSize);
  tour.narrator.say("What it left behind, in a file of " + std::to_string(archive.view().size()) +
                    " bytes, \"" + std::string(kQVFileOfflineHits.view()) + "\":");
  const auto saved = savedHits(archive);
  for (const auto& hit : saved) tour.narrator.event(hit);
  tour.narrator.checkSame({"ID 1: page=lunch", "ID 2: page=tea", "ID 3: page=dinner"}, saved,
                          "the hits that waited, under their numbers");

  tour.narrator.say("On Tuesday the application is started again:");
  tour.runApplication("tuesday");
  tour.expectHits({"POST /hit page=lunch", "POST /hit page=tea", "POST /hit page=dinner",
                   "POST /hit page=brunch&sdkid=" + identifier},
                  "Monday's hits, then Tuesday's, from the same installation");
  tour.narrator.check(!identifier.empty() && !FileManager::fileExistsAtPath(file),
                      "the file is gone");
}
