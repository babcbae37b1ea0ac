#pragma once

#include <QVPlatform/Foundation/Value.h>

#include <cstddef>
#include <string_view>

namespace QVPlatform {

/// The value of an XML property list; nil when the text is malformed in any way, nests deeper than
/// PropertyList::kMaximumDepth, or declares entities, which no writer of property lists does.
Value valueWithXMLPropertyList(std::string_view text);

/// Whether a text of that size can be one, judged by its beginning.
bool canBeXMLPropertyList(std::string_view beginning, std::size_t size);

}  // namespace QVPlatform
