#pragma once

namespace QVPlatform::WebKit {

/// First byte of what the engine's program writes; the rest is text.
enum Answer : char {
  kNil = '0',
  kBoolean = 'b',  // "0" or "1"
  kNumber = 'n',   // as in JSON
  kText = 't',
  kError = 'e',  // a sentence for people
};

}  // namespace QVPlatform::WebKit
