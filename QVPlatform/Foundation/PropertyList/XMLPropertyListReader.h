#pragma once

#include <QVPlatform/Foundation/Value.h>

#include <string_view>

namespace QVPlatform {

/// The value of an XML property list; nil when the text is malformed in any way, nests deeper than
/// PropertyList::kMaximumDepth, or declares entities, which no writer of property lists does.
Value valueWithXMLPropertyList(std::string_view text);

}  // namespace QVPlatform
