#pragma once

#include <QVPlatform/Export.h>

#include <cstddef>
#include <initializer_list>
#include <memory>
#include <vector>

namespace QVPlatform {

class Value;

/// A mutable list of values, shared by reference, that may be null.
///
/// A copy of an Array is the same list; copy() makes another. A null array reads as empty, and the
/// first value that is appended makes it a list of its own: copies of it that were made before stay
/// null. Elements are never nil.
///
/// Threads: every operation may be called from any thread; each one is atomic by itself. A null
/// array is, like any C++ value, for one thread when a value is appended to it.
class QVPLATFORM_EXPORT Array {
 public:
  /// Null, to be filled by append(). Array::array() makes an empty one.
  Array() noexcept = default;
  Array(std::nullptr_t) noexcept {}
  Array(std::initializer_list<Value> values);
  explicit Array(std::vector<Value> values);
  static Array array();

  bool isNull() const noexcept { return state_ == nullptr; }
  bool isSameObject(const Array& other) const noexcept { return state_ == other.state_; }
  /// Tells this list from every other one that exists at the same time; nullptr for null.
  const void* identity() const noexcept { return state_.get(); }

  std::size_t count() const;
  /// The element, or nil past the end.
  Value at(std::size_t index) const;
  /// The elements as they stand now.
  std::vector<Value> values() const&;
  /// The same of an array that is given up: not copied, when nobody else has it.
  std::vector<Value> values() &&;
  /// Appends the value; nil is passed over.
  void append(Value value);
  /// Removes the last element, if there is one; takes no memory.
  void removeLast();
  /// Removes every element that equals the value.
  void removeEqual(const Value& value);
  void clear();
  /// Another array with the same elements; null for null.
  Array copy() const;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace QVPlatform
