#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// What writer and reader of keyed archives must agree on.
///
/// An archive is a dictionary. "$objects" lists every object once, and UIDs are indices into it;
/// the first is the text "$null", which stands for nil. Text, bytes, booleans and numbers are there
/// as they are; anything else is a dictionary with its class, itself an object, under "$class".
/// "$top" has the UIDs of the values that were archived by name.
namespace QVPlatform::KeyedArchiveFormat {

inline constexpr std::string_view kArchiverKey = "$archiver";
inline constexpr std::string_view kArchiver = "NSKeyedArchiver";
inline constexpr std::string_view kVersionKey = "$version";
inline constexpr std::int64_t kVersion = 100000;
inline constexpr std::string_view kTopKey = "$top";
inline constexpr std::string_view kObjectsKey = "$objects";
inline constexpr std::string_view kNull = "$null";

inline constexpr std::string_view kClassKey = "$class";
inline constexpr std::string_view kClassNameKey = "$classname";
inline constexpr std::string_view kClassesKey = "$classes";

inline constexpr std::string_view kElementsKey = "NS.objects";
inline constexpr std::string_view kKeysKey = "NS.keys";
inline constexpr std::string_view kStringKey = "NS.string";
inline constexpr std::string_view kDataKey = "NS.data";
inline constexpr std::string_view kBytesKey = "NS.bytes";
inline constexpr std::string_view kTimeKey = "NS.time";

/// An object's own key as it stands in the archive, where keys with a dollar are the format's.
inline std::string escapedKey(std::string_view key) {
  return (key.starts_with('$') ? "$" : "") + std::string(key);
}

}  // namespace QVPlatform::KeyedArchiveFormat
