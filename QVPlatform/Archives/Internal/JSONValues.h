#pragma once

#include <QVPlatform/Archives/Internal/JSONStructure.h>
#include <QVPlatform/Foundation/Value.h>

namespace QVPlatform {

/// The value that begins there, in a text that was checked and ends at `end`; `container` is what
/// is known of the first container there. Goes down as deep as the text does, which is bounded.
Value valueOfJSON(const char* at, const char* end, const JSONStructure::Container* container);

}  // namespace QVPlatform
