#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/Value.h>

#include <memory>

namespace QVPlatform {

/// Reads a keyed archive, be it a binary property list or an XML one, written here or elsewhere.
///
/// Arrays, dictionaries, text, bytes, dates, numbers and Null are read in their mutable and
/// immutable variants; other objects are made through ClassRegistry if they are Coding, URL, Error
/// and the messages of HTTP among them. What is of an unknown class, or makes no object, is nil and
/// so is left out of its dictionary; in an array a Null stands in its place. What the archive
/// refers to twice is one object here too.
///
/// An archive may come from anywhere: damage, references in a circle, nesting deeper than
/// Value::kMaximumDepth and references that multiply an element of the outermost container into
/// millions of values make every answer nil. Time and memory are in proportion to the size of the
/// archive; once that is not to be had (std::bad_alloc), every answer is nil, too.
///
/// Threads: one unarchiver is used by one thread.
class QVPLATFORM_EXPORT KeyedUnarchiver {
 public:
  explicit KeyedUnarchiver(const Data& archive);
  ~KeyedUnarchiver();
  KeyedUnarchiver(const KeyedUnarchiver&) = delete;
  KeyedUnarchiver& operator=(const KeyedUnarchiver&) = delete;

  /// Whether this is a keyed archive in which no damage was met so far.
  bool isValid() const;

  /// What is stored under the key: of the archive itself or, called from initWithCoder(), of the
  /// object that is being made. Nil when there is none, or the archive is not valid.
  Value decodeObjectForKey(const String& key);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace QVPlatform
