#pragma once

#include <QVPlatform/Foundation/String.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace QVPlatform {

enum class DecodingResult { whole, malformed, tooLarge };

/// A content coding (RFC 9110, section 8.4) that answers are asked for in. All that there are stand
/// in ContentCoding.cpp; each has its decoder below, in a source file of its own.
struct ContentCoding {
  /// Appends what `encoded` stands for to `text`. What ends early is malformed. What comes out is
  /// at most `limit` bytes, so that a small answer cannot fill the memory. Throws std::bad_alloc.
  using Decoder = DecodingResult (*)(std::string_view encoded, std::size_t limit,
                                     std::string& text);

  /// The value of "Accept-Encoding".
  static String accepted();
  /// How to decode what has this "Content-Encoding"; nullptr for a coding that was not asked for.
  static Decoder decoderOf(const String& coding);
};

/// One gzip file, or several that follow one another (RFC 1952); a wrong checksum is malformed.
DecodingResult decodeGzip(std::string_view encoded, std::size_t limit, std::string& text);

}  // namespace QVPlatform
