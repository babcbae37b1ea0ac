#pragma once

#include <QVPlatform/Archives/Internal/HashIndex.h>
#include <QVPlatform/Archives/Internal/PlainObject.h>
#include <QVPlatform/Foundation/Data.h>
#include <QVPlatform/Foundation/Date.h>
#include <QVPlatform/Foundation/String.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace QVPlatform {

/// Builds a binary property list object by object. Objects that are no containers and no UIDs are
/// written once and shared from then on.
///
/// Layout: everything but containers and UIDs goes into one buffer at once; containers wait as
/// lists of references, since how many bytes a reference takes is known at the end only, and so do
/// UIDs, of which there are many and nothing but their number is to be known.
class BinaryPropertyListWriter {
 public:
  /// The number of an object in the file.
  using Reference = std::uint32_t;

  BinaryPropertyListWriter();

  /// A boolean, a number or a date.
  template <class Number>
  requires(std::is_arithmetic_v<Number> || std::is_same_v<Number, Date>) Reference
      add(Number value) {
    const PlainObject object(value);
    return add(object, Hash::of(object.head()));
  }
  Reference add(const String& text);
  Reference add(const Data& bytes);
  /// UIDs number the objects of an archive: their numbers are below the number of objects here, or
  /// else there will be no file.
  Reference addUID(std::uint32_t number);
  Reference addArray(std::span<const Reference> elements);
  /// As many keys as values; keys are references to text.
  Reference addDictionary(std::span<const Reference> keys, std::span<const Reference> values);

  /// Makes room for so many times what was added so far, so that it need not be copied as it grows.
  void reserve(std::size_t times);

  /// Whether PropertyList::kMaximumSize is exceeded already, so that there will be no file.
  bool isTooLarge() const;
  /// What the file takes at least, so far.
  std::size_t size() const { return buffer_.size() + references_.size(); }
  /// The file, whose value is the object `root`; null if it is too large. Nothing can be added
  /// then.
  Data finish(Reference root);

 private:
  struct Container {
    Reference self;
    std::uint32_t count;
    std::uint8_t type;
  };

  Reference add(const PlainObject& object, Hash::Number hash);
  Reference addContainer(std::uint8_t type, std::size_t count);
  Reference addObject();
  std::string_view bytesOf(Reference plain) const;
  std::size_t objectCount() const { return offsets_.size() + uidCount_; }
  Reference resolved(Reference reference) const;
  std::size_t containersSize(std::size_t referenceWidth) const;
  char* putContainers(char* to, std::size_t referenceWidth);
  char* putUIDs(char* to);

  std::string buffer_;
  std::vector<std::uint32_t> offsets_;  // by object, without UIDs
  std::vector<Container> containers_;
  std::vector<Reference> references_;  // of all containers, one after the other
  HashIndex plain_;                    // what is written once
  std::size_t uidCount_ = 0;           // more than the largest UID
};

}  // namespace QVPlatform
