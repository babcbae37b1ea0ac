#pragma once

#include <QVPlatform/Application.h>
#include <QVPlatform/Archives/PropertyList.h>
#include <QVPlatform/Files/FileManager.h>
#include <QVPlatform/Files/UserDefaults.h>

#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace QVFuzz {

/// What a file of user defaults holds.
inline QVPlatform::Dictionary defaultsIn(std::string_view file) {
  return QVPlatform::PropertyList::valueWithData(file).dictionary();
}

/// Puts the input in the place of the file of user defaults and stores a value of its own: then the
/// file has this, and whatever else it held.
inline void readUserDefaults(std::string_view input) {
  using namespace QVPlatform;
  constexpr String kOwn = "own"_string;
  static std::int64_t stored = 0;
  UserDefaults& defaults = UserDefaults::standardUserDefaults();
  Application::setIdentifier("fuzzed");
  defaults.setObjectForKey(++stored, kOwn);
  defaults.objectForKey(kOwn);  // makes the directory
  const String path = Application::makeLibraryDirectory() + String("/Preferences/fuzzed.plist");
  if (!FileManager::writeAtomically(input, path)) std::abort();
  const bool mayBeRead = FileManager::canBePropertyListAtPath(path);
  if (!defaults.synchronize()) std::abort();
  const Dictionary after =
      defaultsIn(FileManager::contentsAtPath(path, PropertyList::kMaximumSize).view());
  if (after.get(kOwn) != stored) std::abort();
  const Dictionary before = defaultsIn(input);
  // A list that is shared throughout can be too large when it is written out.
  if (!mayBeRead || PropertyList::dataWithValue(before).isNull()) return;
  for (const auto& [key, value] : *before.snapshot()) {
    const String text = value.description();  // which is the same even of what is not a number
    if (key == kOwn) continue;
    if (after.get(key).description() != text) std::abort();
    if (defaults.objectForKey(key).description() != text) std::abort();
  }
}

}  // namespace QVFuzz
