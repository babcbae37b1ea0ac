#include <QVCore/Internal/QVHitArchive.h>

#include <QVCore/QVCoreConstants.h>
#include <QVPlatform/Archives/KeyedArchiver.h>
#include <QVPlatform/Archives/PropertyList.h>
#include <QVPlatform/Foundation/Log.h>

#include <algorithm>
#include <cstddef>
#include <new>

using QVPlatform::Array;
using QVPlatform::Data;
using QVPlatform::Dictionary;
using QVPlatform::KeyedListArchiver;
using QVPlatform::Value;

namespace {

/// What one hit takes in the file; 0 when it cannot be archived.
std::size_t sizeOf(const Value& hit) {
  try {
    return QVHitArchive::of(Array({hit})).view().size();
  } catch (const std::bad_alloc&) {
    return 0;
  }
}

/// The hits without those that cannot be archived and those for which there is no room.
std::vector<Value> thoseThatFit(const std::vector<Value>& hits) {
  std::vector<Value> fitting;
  std::size_t room = QVPlatform::PropertyList::kMaximumSize / 2;
  for (const Value& hit : hits) {
    const std::size_t size = sizeOf(hit);
    if (size > 0 && size <= room) {
      room -= size;
      fitting.push_back(hit);
    } else {
      const Dictionary data = hit.dictionary();
      QVPlatform::consoleLog(QVPlatform::stringWithFormat(
          "hit %@ (%@) cannot be saved and is left out",
          {data.get(kQVUserInfo_RequestID), data.get(kQVUserInfo_URLKey)}));
    }
  }
  return fitting;
}

}  // namespace

Data QVHitArchive::of(const Array& hits) {
  QVPlatform::KeyedArchiver archiver;
  archiver.encodeObjectForKey(hits, kQVFileOfflineHits);
  return archiver.finishEncoding();
}

Data QVHitArchive::ofThoseThatFit(const std::vector<Dictionary>& hits) {
  const std::vector<Value> all(hits.begin(), hits.end());
  try {
    Data archive = of(Array(all));
    if (!archive.isNull()) return archive;
  } catch (const std::bad_alloc&) {
    // One of them may be to blame.
  }
  return of(Array(thoseThatFit(all)));
}

std::vector<std::string_view> QVHitArchive::piecesOfPlain(const std::vector<Dictionary>& hits,
                                                          KeyedListArchiver& archiver) try {
  const auto isPlain = [&](const Dictionary& hit) { return archiver.add(hit.snapshot()); };
  return std::ranges::all_of(hits, isPlain) ? archiver.archive() : std::vector<std::string_view>();
} catch (const std::bad_alloc&) {
  return {};
}
