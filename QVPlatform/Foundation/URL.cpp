#include <QVPlatform/Foundation/URL.h>

#include <strings.h>
#include <uriparser/Uri.h>

namespace QVPlatform {
namespace {

constexpr std::size_t kMaximumSize = std::size_t{1} << 20;

std::size_t sizeOf(const UriTextRangeA& range) {
  return range.first ? static_cast<std::size_t>(range.afterLast - range.first) : 0;
}

}  // namespace

std::optional<URL> URL::URLWithString(const String& text) {
  const std::string_view view = text.view();
  if (view.empty() || view.size() > kMaximumSize) return std::nullopt;
  UriUriA parts;
  const char* const end = view.data() + view.size();
  // On failure the parser has freed what it took.
  if (uriParseSingleUriExA(&parts, view.data(), end, nullptr) != URI_SUCCESS) return std::nullopt;
  URL url;
  url.text_ = text;
  url.schemeSize_ = sizeOf(parts.scheme);
  url.hostSize_ = sizeOf(parts.hostText);
  if (url.hostSize_ != 0) {
    url.hostOffset_ = static_cast<std::size_t>(parts.hostText.first - view.data());
  }
  uriFreeUriMembersA(&parts);
  return url;
}

String URL::scheme() const {
  return schemeSize_ == 0 ? String() : String(text_.view().substr(0, schemeSize_));
}

bool URL::hasScheme(std::string_view name) const noexcept {
  return name.size() == schemeSize_ &&
         strncasecmp(text_.UTF8String(), name.data(), schemeSize_) == 0;
}

String URL::host() const {
  return hostSize_ == 0 ? String() : String(text_.view().substr(hostOffset_, hostSize_));
}

}  // namespace QVPlatform
