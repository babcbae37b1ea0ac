#pragma once

#include <QVPlatform/Archives/KeyedArchiver.h>
#include <QVPlatform/Archives/KeyedUnarchiver.h>
#include <QVPlatform/Archives/PropertyList.h>

#include <cstdlib>
#include <string>
#include <string_view>

namespace QVFuzz {

/// Reads the input as a property list and as a keyed archive. What could be read must be possible
/// to write, and what was written to read again.
inline void readArchive(std::string_view input) {
  using namespace QVPlatform;
  const Value value = PropertyList::valueWithData(input);
  if (!value.isNil()) {
    const Data written = PropertyList::dataWithValue(value);
    // A list that is shared throughout can be larger when it is written out.
    if (!written.isNull() && PropertyList::valueWithData(written.view()).isNil()) std::abort();
  }
  KeyedUnarchiver unarchiver{Data(std::string(input))};
  const Value root = unarchiver.decodeObjectForKey("root");
  if (!root.isNil() && !unarchiver.isValid()) std::abort();
  KeyedArchiver archiver;
  archiver.encodeObjectForKey(root, "root");
  const Data archive = archiver.finishEncoding();
  if (archive.isNull()) return;
  KeyedUnarchiver again(archive);
  if (again.decodeObjectForKey("root").isNil() != root.isNil() || !again.isValid()) std::abort();
}

}  // namespace QVFuzz
