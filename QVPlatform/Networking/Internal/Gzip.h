#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace QVPlatform {

enum class GzipResult { whole, malformed, tooLarge };

/// Decompresses one gzip file, or several that follow one another (RFC 1952), into `text`. A file
/// that ends early, or whose checksum is wrong, is malformed. What comes out is at most `limit`
/// bytes, so that a small file cannot fill the memory. Throws std::bad_alloc.
GzipResult gunzip(std::string_view compressed, std::size_t limit, std::string& text);

}  // namespace QVPlatform
