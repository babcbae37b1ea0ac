#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/String.h>
#include <QVPlatform/Foundation/Value.h>

#include <string_view>

namespace QVPlatform {

/// Makes values of JSON text (RFC 8259). What is accepted, and up to what size and depth, is told
/// at JSONDocument, which is the better choice for looking up a few members of a large text.
///
/// Threads: callable from any thread.
class QVPLATFORM_EXPORT JSONSerialization {
 public:
  /// A new Dictionary or Array with what the text says, null as Null::null(); nil when the text
  /// cannot be read. `error`, when given, is set to the reason then, and to null otherwise.
  static Value JSONObjectWithText(const String& text, String* error = nullptr);
};

}  // namespace QVPlatform
