#pragma once

#include <QVPlatform/Foundation/String.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace QVPlatform {

enum class DecodingResult { kWhole, kMalformed, kTooLarge };

/// A content coding (RFC 9110, section 8.4) that answers are asked for in. ContentCoding.cpp lists
/// them all; the decoder of each is in a source file of its own.
struct ContentCoding {
  /// Appends what `encoded` stands for to `text`. What ends early is malformed. What comes out is
  /// at most `limit` bytes, so that a small answer cannot fill the memory. Throws std::bad_alloc.
  using Decoder = DecodingResult(std::string_view encoded, std::size_t limit, std::string& text);

  /// The value of "Accept-Encoding".
  static String accepted();
  /// How to decode what has this "Content-Encoding"; nullptr for a coding that was not asked for.
  static Decoder* decoderOf(const String& coding);
};

}  // namespace QVPlatform
