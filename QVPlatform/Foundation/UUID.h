#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/String.h>

namespace QVPlatform {

/// Universally unique identifiers as text: 36 characters, upper-case hexadecimal digits in groups
/// of 8, 4, 4, 4 and 12. May be called from any thread.
class QVPLATFORM_EXPORT UUID {
 public:
  UUID() = delete;

  /// A new random identifier (version 4). Never null.
  static String UUIDString();
  /// The identifier that the text is, in upper case; null for a text that is none, and for null.
  static String UUIDStringOfText(const String& text);
  /// The identifier that belongs to the name within the namespace, always the same one (version 5,
  /// SHA-1). The namespace is an identifier itself, in either case; null when it is not one, and
  /// for a null name.
  static String nameBased(const String& namespaceIdentifier, const String& name);
};

}  // namespace QVPlatform
