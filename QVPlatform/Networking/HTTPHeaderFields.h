#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/Dictionary.h>
#include <QVPlatform/Foundation/String.h>

#include <string_view>
#include <utility>
#include <vector>

namespace QVPlatform {

/// The header fields of one HTTP message: names, whatever their case, with their values.
///
/// Threads: a plain value; one that a thread changes must not be used by another at the same time.
class QVPLATFORM_EXPORT HTTPHeaderFields {
 public:
  /// The fields of a message header: its lines as they were received. What is no field, as the
  /// status line, is passed over; a folded value is made one line; what is not UTF-8 is read as
  /// Latin-1.
  static HTTPHeaderFields parse(std::string_view header);

  /// Adds a value, without the blanks around it, to what the field has, joined by ", ". A field
  /// keeps the spelling that it came with first.
  void add(const String& field, const String& value);
  void remove(const String& field);
  /// The value, or null.
  String value(const String& field) const;
  /// All names and values, in the order in which they came.
  const std::vector<std::pair<String, String>>& entries() const noexcept { return fields_; }
  /// A new dictionary of text by name; empty when there are no fields.
  Dictionary dictionary() const;

 private:
  std::vector<std::pair<String, String>> fields_;
};

/// Whether HTTP can carry this as a method or as a field name: a token of RFC 9110, which is not
/// empty and has ASCII letters, digits and fifteen marks only.
QVPLATFORM_EXPORT bool isHTTPToken(const String& text);
/// Whether HTTP can carry this as a field's value: not null, and without line breaks and U+0000,
/// which would end the field and let the rest pass for fields of its own.
QVPLATFORM_EXPORT bool isHTTPFieldValue(const String& text);

}  // namespace QVPlatform
