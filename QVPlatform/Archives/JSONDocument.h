#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/String.h>
#include <QVPlatform/Foundation/Value.h>

#include <cstddef>
#include <memory>
#include <string_view>

namespace QVPlatform {

/// A JSON text (RFC 8259) that is read by walking from its top level into its members. Only what is
/// asked for becomes a Value, and yet the whole text is checked first. The document sets aside
/// about fourteen bytes of memory for each byte of the text, of which it touches two to four, and
/// gives them back when it is destroyed; the text itself is not needed meanwhile.
///
/// The text is an object or an array in UTF-8; a byte-order mark in front of it is passed over. Of
/// a repeated key the last one counts. Integers keep their kind (std::int64_t, else std::uint64_t),
/// other numbers are doubles; an integer beyond 64 bits becomes the nearest double, and a number
/// beyond those the largest one. Nothing else that is not strict JSON is read, nor is a text larger
/// or deeper than the limits below. Where memory runs out, std::bad_alloc is thrown.
///
/// Threads: one thread at a time for one document; any number of documents may be in use at once.
class QVPLATFORM_EXPORT JSONDocument {
 public:
  static constexpr std::size_t kMaximumSize = std::size_t{32} << 20;  // bytes
  static constexpr std::size_t kMaximumDepth = Value::kMaximumDepth;

  explicit JSONDocument(const String& text);
  ~JSONDocument();
  JSONDocument(const JSONDocument&) = delete;
  JSONDocument& operator=(const JSONDocument&) = delete;

  /// Why the text could not be read; null when it could. A document that could not be read has no
  /// members and no value.
  String error() const;

  /// Goes from the current value, at first the top level, into the member under the key. False,
  /// staying where it is, when the current value is not an object or has no such key.
  bool enterMember(std::string_view key);

  /// The current value: Null::null() for null, a new Dictionary or Array for a container.
  Value value() const;

 private:
  struct State;

  const std::unique_ptr<State> state_;
};

}  // namespace QVPlatform
