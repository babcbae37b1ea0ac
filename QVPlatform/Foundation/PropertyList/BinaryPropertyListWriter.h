#pragma once

#include <QVPlatform/Foundation/Data.h>
#include <QVPlatform/Foundation/Date.h>

#include <concepts>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace QVPlatform {

/// Builds a binary property list object by object. Objects that are no containers and no UIDs are
/// written once and shared from then on.
///
/// Layout: everything but the containers goes into one buffer at once; containers wait as lists of
/// references, since how many bytes a reference takes is known at the end only.
class BinaryPropertyListWriter {
 public:
  /// The number of an object in the file.
  using Reference = std::uint32_t;

  BinaryPropertyListWriter();

  Reference add(bool value);
  Reference add(std::int32_t value);
  Reference add(std::uint32_t value);
  Reference add(std::int64_t value);
  Reference add(std::uint64_t value);
  Reference add(double value);
  Reference add(Date value);
  /// Text, which must be UTF-8.
  Reference add(std::string_view text);
  Reference addData(std::string_view bytes);
  Reference addUID(std::uint32_t number);
  Reference addArray(std::span<const Reference> elements);
  /// As many keys as values; keys are references to text.
  Reference addDictionary(std::span<const Reference> keys, std::span<const Reference> values);

  /// Whether a limit of PropertyList is exceeded, so that there will be no file.
  bool isTooLarge() const;
  /// The file, whose value is the object `root`; null if it is too large. Nothing can be added
  /// then.
  Data finish(Reference root);

 private:
  struct Container {
    Reference self;
    std::uint8_t type;
    std::size_t count;
    std::size_t firstReference;
  };
  /// Place of an object in the table that finds equal ones by their bytes.
  struct Slot {
    std::uint32_t hash = 0;
    std::uint32_t length = 0;  // 0: the slot is free
    Reference reference = 0;
  };

  void putBigEndian(std::uint64_t number, std::size_t width);
  void putAll(std::span<const std::uint32_t> numbers, std::size_t width);
  void putHead(std::uint8_t type, std::size_t count);
  Reference addInteger(bool isNegative, std::uint64_t bits, std::size_t kindMark);
  Reference addContainer(std::uint8_t type, std::size_t count);
  Reference addObject();
  Reference uniqued(std::size_t start);
  Slot& slotFor(std::uint32_t hash, std::string_view bytes);
  void growTable();
  void putContainers(std::size_t referenceWidth);

  std::string buffer_;
  std::vector<std::uint32_t> offsets_;  // by object
  std::vector<Container> containers_;
  std::vector<Reference> references_;  // of all containers
  std::vector<Slot> slots_;            // as many as a power of two
  std::size_t usedSlots_ = 0;
};

}  // namespace QVPlatform
