#include <QVPlatform/Networking/Internal/ContentCoding.h>

#include <strings.h>

#include <array>
#include <utility>

namespace QVPlatform {

ContentCoding::Decoder decodeGzip;

namespace {

constinit String::Literal acceptedText{"gzip"};

/// By the names that servers give them, in any case.
constexpr std::array<std::pair<const char*, ContentCoding::Decoder*>, 2> kDecoders{{
    {"gzip", decodeGzip},
    {"x-gzip", decodeGzip},
}};

}  // namespace

String ContentCoding::accepted() { return String(acceptedText); }

ContentCoding::Decoder* ContentCoding::decoderOf(const String& coding) {
  for (const auto& [name, decoder] : kDecoders) {
    if (strcasecmp(coding.UTF8String(), name) == 0) return decoder;
  }
  return nullptr;
}

}  // namespace QVPlatform
