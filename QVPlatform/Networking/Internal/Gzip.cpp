#include <QVPlatform/Networking/Internal/ContentCoding.h>

#define ZLIB_CONST  // so that it does not ask for a right to change its input
#include <zlib.h>

#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <new>

namespace QVPlatform {
namespace {

constexpr int kGzipOnly = 16 + MAX_WBITS;  // as zlib's manual has it: neither zlib nor raw data

/// Gives the stream as much of the input as it can count.
void feed(z_stream& stream, std::string_view& input) {
  if (stream.avail_in > 0) return;
  const auto most = std::min<std::size_t>(input.size(), std::numeric_limits<uInt>::max());
  stream.next_in = reinterpret_cast<const Bytef*>(input.data());
  stream.avail_in = static_cast<uInt>(most);
  input.remove_prefix(most);
}

}  // namespace

/// One gzip file, or several that follow one another (RFC 1952); a wrong checksum is malformed.
DecodingResult decodeGzip(std::string_view encoded, std::size_t limit, std::string& text) {
  z_stream stream{};
  if (inflateInit2(&stream, kGzipOnly) != Z_OK) throw std::bad_alloc();
  const std::unique_ptr<z_stream, decltype(&inflateEnd)> end(&stream, inflateEnd);
  std::array<char, 16384> buffer;
  for (;;) {
    feed(stream, encoded);
    stream.next_out = reinterpret_cast<Bytef*>(buffer.data());
    stream.avail_out = static_cast<uInt>(buffer.size());
    const int result = inflate(&stream, Z_NO_FLUSH);
    const std::size_t size = buffer.size() - stream.avail_out;
    if (size > limit - text.size()) return DecodingResult::kTooLarge;
    text.append(buffer.data(), size);
    if (result == Z_STREAM_END) {
      // The end of some files is filled up with zeros.
      const std::string_view rest(reinterpret_cast<const char*>(stream.next_in),
                                  stream.avail_in + encoded.size());
      if (rest.find_first_not_of('\0') == std::string_view::npos) return DecodingResult::kWhole;
      inflateReset(&stream);
    } else if (result != Z_OK) {
      // Of data that ends early zlib says that it has nothing to go on with.
      return DecodingResult::kMalformed;
    }
  }
}

}  // namespace QVPlatform
