#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/Value.h>

#include <cstdint>
#include <memory>

namespace QVPlatform {

/// Writes values into a keyed archive: a binary property list in which every object is stored once
/// and referred to by number, with its class. Other readers of the format can read it.
///
/// Text, bytes, dates, booleans, Null and all kinds of numbers, arrays and dictionaries are
/// archived as they are, objects that are Coding by their own parts. What cannot be archived is
/// left out, with one line on the console log for each archive: any other object, a container
/// within itself, whatever is nested deeper than Value::kMaximumDepth, and what shared containers
/// multiply to millions of values below one element of the outermost container. In an array a Null
/// stands in its place.
///
/// When memory runs out, std::bad_alloc passes through, and there is no archive.
///
/// Threads: one archiver is used by one thread; what it archives may change on others meanwhile.
class QVPLATFORM_EXPORT KeyedArchiver {
 public:
  KeyedArchiver();
  ~KeyedArchiver();
  KeyedArchiver(const KeyedArchiver&) = delete;
  KeyedArchiver& operator=(const KeyedArchiver&) = delete;

  /// Archives the value under the key: of the archive itself or, called from encodeWithCoder(), of
  /// the object that is being archived. Nil is archived as nil. A null key is ignored, and so is
  /// every call after finishEncoding().
  void encodeObjectForKey(const Value& value, const String& key);

  /// Archives the number under the key in place, as other readers of the format expect the numbers
  /// of an object's own; it is read by decodeObjectForKey().
  void encodeIntegerForKey(std::int64_t number, const String& key);

  /// The archive. Null at a second call, and for an archive that would exceed
  /// PropertyList::kMaximumSize.
  Data finishEncoding();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace QVPlatform
