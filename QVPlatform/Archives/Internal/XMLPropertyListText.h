#pragma once

#include <QVPlatform/Foundation/Value.h>

#include <string_view>

namespace QVPlatform {

/// What an element of an XML property list that holds only text stands for ("integer", "12"); nil
/// for an unknown element and for text that does not fit it.
Value valueOfXMLElement(std::string_view element, std::string_view text);

}  // namespace QVPlatform
