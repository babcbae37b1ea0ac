#include <QVPlatform/Networking/Internal/HTTPRedirection.h>

#include <QVPlatform/Foundation/Internal/HexadecimalDigit.h>

#include <curl/curl.h>
#include <strings.h>

#include <algorithm>
#include <memory>
#include <new>
#include <string>
#include <string_view>

namespace QVPlatform {
namespace {

constexpr const char* kLocation = "Location";

struct Deleter {
  void operator()(CURLU* parts) const { curl_url_cleanup(parts); }
  void operator()(char* text) const { curl_free(text); }
};

/// Whether the byte there may stand in a URL, where a percent sign begins an escape.
bool isAllowedAt(std::string_view text, std::size_t at) {
  if (text[at] == '%') {
    return text.size() - at > 2 && hexadecimalDigit(text[at + 1]) >= 0 &&
           hexadecimalDigit(text[at + 2]) >= 0;
  }
  return text[at] > ' ' && text[at] < 0x7F &&
         std::string_view("\"<>\\^`{|}").find(text[at]) == std::string_view::npos;
}

/// The text with every byte escaped that may not stand in a URL.
String escaped(const String& text) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  const std::string_view view = text.view();
  std::string result;
  for (std::size_t i = 0; i < view.size(); ++i) {
    const auto byte = static_cast<unsigned char>(view[i]);
    if (isAllowedAt(view, i)) {
      result.push_back(view[i]);
    } else {
      result.append({'%', kDigits[byte >> 4], kDigits[byte & 15]});
    }
  }
  return String(result);
}

/// The text as an absolute URL; null when it is none, seen from `base`.
String resolved(const String& text, const String& base) {
  const std::unique_ptr<CURLU, Deleter> parts(curl_url());
  if (!parts) throw std::bad_alloc();
  constexpr unsigned kFlags = CURLU_NON_SUPPORT_SCHEME;
  char* result = nullptr;
  if (curl_url_set(parts.get(), CURLUPART_URL, base.UTF8String(), CURLU_PATH_AS_IS) != CURLUE_OK ||
      curl_url_set(parts.get(), CURLUPART_URL, text.UTF8String(), kFlags) != CURLUE_OK ||
      curl_url_get(parts.get(), CURLUPART_URL, &result, 0) != CURLUE_OK) {
    return nullptr;
  }
  return String(std::unique_ptr<char, Deleter>(result).get());
}

bool isSameOrigin(const URL& a, const URL& b) {
  const std::string_view x = a.origin();
  const std::string_view y = b.origin();
  return x.size() == y.size() && strncasecmp(x.data(), y.data(), x.size()) == 0;
}

}  // namespace

bool isHTTPWithHost(const std::optional<URL>& url) {
  return url && url->hasSchemeAndHost() && !url->hasEmptyHost() &&
         (url->hasScheme("http") || url->hasScheme("https"));
}

bool isRedirection(const HTTPURLResponse& response) {
  switch (response.statusCode()) {
    case 301:
    case 302:
    case 303:
    case 307:
    case 308:
      return !response.valueForHTTPHeaderField(kLocation).isEmpty();
    default:
      return false;
  }
}

std::optional<URL> redirectedURL(const HTTPURLResponse& redirection, const URL& url) {
  const String place = escaped(redirection.valueForHTTPHeaderField(kLocation));
  auto next = URL::URLWithString(place);
  if (!next || next->scheme().isNull()) {
    next = URL::URLWithString(resolved(place, url.absoluteString()));
  }
  return isHTTPWithHost(next) ? next : std::nullopt;
}

void redirect(MutableURLRequest::Content& content, int status, const URL& url, const URL& next) {
  const bool isPost = content.method == String("POST");
  const bool isHead = content.method == String("HEAD");
  if (status == 303 ? !isHead : isPost && (status == 301 || status == 302)) {
    content.method = "GET";
    content.body = nullptr;
    for (const char* field :
         {"Content-Encoding", "Content-Language", "Content-Location", "Content-Type"}) {
      content.fields.remove(field);
    }
  }
  if (isSameOrigin(url, next)) return;
  for (const char* field : {"Authorization", "Cookie", "Proxy-Authorization"}) {
    content.fields.remove(field);
  }
}

}  // namespace QVPlatform
