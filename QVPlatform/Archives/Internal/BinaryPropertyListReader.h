#pragma once

#include <QVPlatform/Foundation/Value.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>

namespace QVPlatform {

/// The objects of a binary property list, looked up where they lie. Every access is checked
/// against the bounds of the file; nothing is kept but the view on its bytes.
class BinaryPropertyListReader {
 public:
  using Reference = std::uint32_t;

  enum class Type { kDamaged, kLeaf, kUID, kArray, kDictionary };

  struct Object {
    Type type = Type::kDamaged;
    std::uint8_t marker = 0;
    /// Elements of an array, entries of a dictionary; of a leaf, its length in the file's sense.
    std::size_t count = 0;
    /// What follows the marker and the length.
    std::string_view content;
  };

  /// The bytes must outlive the reader.
  explicit BinaryPropertyListReader(std::string_view bytes);

  bool isValid() const { return trailer_.count > 0; }
  /// Whether a file of that size can be a binary property list, judged by its first and its last
  /// bytes.
  static bool canBe(std::string_view beginning, std::string_view end, std::size_t size);
  Reference root() const { return static_cast<Reference>(trailer_.root); }
  std::size_t count() const { return trailer_.count; }
  std::size_t size() const { return bytes_.size(); }

  /// A damaged object when there is none of that number.
  Object object(Reference reference) const;
  /// What a container refers to: an array's elements; a dictionary's keys, then its values. The
  /// index is below count, or twice that for a dictionary. The number may be of no object.
  Reference reference(const Object& container, std::size_t index) const;
  /// Has the processor fetch the beginning of an object that is asked for soon.
  void prefetch(Reference reference) const;
  /// Text, bytes, number, boolean or date; nil when it is damaged.
  Value leaf(const Object& object) const;
  /// Number of the archived object that the UID stands for; nothing when this is no UID.
  std::optional<std::uint32_t> uid(Reference reference) const;

  /// An ASCII key of dictionaries, and the object that it was found to be.
  struct Key {
    std::string_view text;
    Reference known = std::numeric_limits<Reference>::max();
  };
  /// Where the value of a dictionary's key is; nothing when the key is missing.
  std::optional<Reference> valueForKey(const Object& dictionary, Key& key) const;

 private:
  struct Trailer {
    std::size_t offsetWidth = 0;
    std::size_t referenceWidth = 0;
    std::size_t count = 0;
    std::size_t root = 0;
    std::size_t table = 0;
  };
  static std::optional<Trailer> trailerOf(std::string_view beginning, std::string_view end,
                                          std::size_t size);
  std::string_view bytesAt(std::size_t position, std::size_t length) const {
    return {bytes_.data() + position, length};
  }
  std::size_t offset(Reference reference) const;
  std::optional<std::size_t> length(std::size_t& position) const;
  Value integer(const Object& object) const;

  std::string_view bytes_;
  Trailer trailer_;
};

}  // namespace QVPlatform
