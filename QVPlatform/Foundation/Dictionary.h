#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/String.h>

#include <cstddef>
#include <initializer_list>
#include <memory>
#include <utility>
#include <vector>

namespace QVPlatform {

class Value;

/// A mutable table from text to values, shared by reference, that may be null.
///
/// A copy of a Dictionary is the same table; copy() makes another. A null dictionary reads as
/// empty, and the first value that is stored in it makes it a table of its own: copies of it that
/// were made before stay null. Keys are never null, values never nil. Keys are listed in byte
/// order. Made for the few keys of a message: adding a key costs time in proportion to the number
/// of keys, so a large table is best made at once from its entries.
///
/// Threads: every operation may be called from any thread; each one is atomic by itself. A null
/// dictionary is, like any C++ value, for one thread when a value is stored in it.
class QVPLATFORM_EXPORT Dictionary {
 public:
  using Entry = std::pair<String, Value>;
  using Snapshot = std::shared_ptr<const std::vector<Entry>>;

  /// Null, to be filled by set(). Dictionary::dictionary() makes an empty one.
  Dictionary() noexcept = default;
  Dictionary(std::nullptr_t) noexcept {}
  Dictionary(std::initializer_list<Entry> entries);
  /// Entries with a null key or a nil value are passed over; of a repeated key the last counts.
  explicit Dictionary(std::vector<Entry> entries);
  static Dictionary dictionary();

  bool isNull() const noexcept { return state_ == nullptr; }
  bool isSameObject(const Dictionary& other) const noexcept { return state_ == other.state_; }
  /// Tells this table from every other one that exists at the same time; nullptr for null.
  const void* identity() const noexcept { return state_.get(); }

  std::size_t count() const;
  /// The value under the key, or nil.
  Value get(const String& key) const;
  /// Stores the value under the key, replacing an earlier one. A nil value removes the key; a null
  /// key is ignored.
  void set(String key, Value value);
  void remove(const String& key);
  void clear();
  std::vector<String> keys() const;
  /// The entries as they stand now, by key.
  std::vector<Entry> entries() const;
  /// The same without a copy; never nullptr. What is done to the dictionary later is not seen here.
  Snapshot snapshot() const;
  /// Another dictionary with the same entries; null for null.
  Dictionary copy() const&;
  /// The same of a dictionary that is given up: itself, when nobody else has it.
  Dictionary copy() &&;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace QVPlatform
