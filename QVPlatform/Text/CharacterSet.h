#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/String.h>

namespace QVPlatform {

/// Whether every character of the text is a decimal digit, of whatever script (Unicode category
/// Nd). True for empty text, false for null. May be called from any thread.
QVPLATFORM_EXPORT bool consistsOfDecimalDigits(const String& text) noexcept;

}  // namespace QVPlatform
