#pragma once

#include <QVPlatform/Archives/Internal/ArchiveScopes.h>
#include <QVPlatform/Archives/Internal/BinaryPropertyListWriter.h>
#include <QVPlatform/Archives/Internal/HashIndex.h>
#include <QVPlatform/Archives/Internal/KeyedArchiveFormat.h>
#include <QVPlatform/Foundation/Value.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace QVPlatform {

/// The objects of an archive that is being written, and the UIDs that stand for them. Plain values
/// are there once for each content, classes once for each name, containers and objects once for
/// each identity.
class ArchiveObjects {
 public:
  using Reference = BinaryPropertyListWriter::Reference;
  /// The object that a UID is in the property list.
  using UID = Reference;

  /// What has an identity and has been met before.
  struct Known : ArchiveScopes::Extent {
    const void* identity = nullptr;
    Value value;  // stays alive, so that no other one gets its address
    UID uid = 0;
    std::uint32_t object = 0;
    bool isBeingAdded = true;
  };

  explicit ArchiveObjects(BinaryPropertyListWriter& writer);

  UID addPlain(const String& text);
  UID addPlain(const Data& data);
  UID addPlain(Date date);
  UID addPlain(std::monostate) { return writer_.addUID(0); }
  template <class Number>
  UID addPlain(Number number) {
    return uidOf(writer_.add(number));
  }
  UID addNull();
  /// The UID of the class, whose chain of bases is the one named, if any, and "NSObject".
  UID classNamed(std::string_view name, std::string_view base);

  /// The number of what has that identity, and whether it is new: then contents are to follow.
  std::pair<std::uint32_t, bool> meet(const void* identity, const Value& value);
  const Known& known(std::uint32_t number) const { return known_[number]; }
  void finish(std::uint32_t number, Reference contents, const ArchiveScopes::Extent& extent);

  /// Makes room for so many times what there is.
  void reserve(std::size_t times);
  /// What "$objects" is to list.
  const std::vector<Reference>& all() const { return objects_; }

  Reference classKey() const { return classKey_; }

 private:
  /// A text that was archived more than once.
  struct Recent {
    String text;
    UID uid = 0;
  };

  UID add(Reference object);
  UID uidOf(Reference plain);
  UID addText(const String& text);
  template <class Bytes, class Add>
  UID addLong(const Bytes& bytes, const Add& add);
  std::uint32_t placeOf(const void* identity);

  BinaryPropertyListWriter& writer_;
  const Reference classKey_ = writer_.add(KeyedArchiveFormat::kClassKey);
  std::vector<Reference> objects_;  // by what UIDs hold
  std::vector<UID> plainUIDs_;      // by reference; 0, which is "$class", for none yet
  std::vector<Known> known_;
  HashIndex knownPlaces_;          // by identity
  std::array<Recent, 64> recent_;  // by address
  std::vector<std::pair<std::string, UID>> classes_;
  UID nullUID_ = 0;
};

}  // namespace QVPlatform
