#pragma once

#include <QVPlatform/Archives/Internal/BinaryPropertyListWriter.h>
#include <QVPlatform/Foundation/Value.h>

#include <optional>
#include <vector>

namespace QVPlatform {

/// Writes whole values into a binary property list.
class ValueEncoder {
 public:
  /// What a dictionary of the one entry "CF$UID" becomes: itself, or the reference of a keyed
  /// archive that it stands for in XML property lists.
  enum class UIDs { kAreDictionaries, kAreReferences };

  explicit ValueEncoder(UIDs uids = UIDs::kAreDictionaries) : uids_(uids) {}

  /// The file; null when the value is not a property list or exceeds a limit of PropertyList.
  Data encode(const Value& value);

 private:
  using Reference = BinaryPropertyListWriter::Reference;

  std::optional<Reference> add(const Value& value);
  std::optional<Reference> add(const Array& array);
  std::optional<Reference> add(const Dictionary& dictionary);
  bool push(const Value& value, std::vector<Reference>& stack);

  const UIDs uids_;
  BinaryPropertyListWriter writer_;
  std::size_t depth_ = 0;
  std::size_t count_ = 0;  // values in the element of the outermost container
  // Contents of the containers that are being written, the innermost last.
  std::vector<Reference> keys_;
  std::vector<Reference> values_;
};

}  // namespace QVPlatform
