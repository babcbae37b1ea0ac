#include <QVPlatform/Networking/URL.h>

#include <QVPlatform/Archives/KeyedArchiver.h>
#include <QVPlatform/Archives/KeyedUnarchiver.h>
#include <QVPlatform/Foundation/ClassRegistry.h>
#include <QVPlatform/Foundation/Internal/HexadecimalDigit.h>

#include <arpa/inet.h>
#include <strings.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <stdexcept>
#include <string>

// No library knows the grammar of the classic parsers, and a URL is looked at for every hit, so the
// check is our own: one table says where a character may stand.

namespace QVPlatform {
namespace {

constexpr std::size_t kMaximumSize = std::size_t{1} << 20;
constexpr std::string_view kZoneMark = "%25";

enum Place : std::uint8_t {
  kInScheme = 1,
  kInHost = 2,  // a name, or the zone of an address
  kInUserOrPort = 4,
  kInRest = 8,  // path, query and fragment
};

constexpr std::array<std::uint8_t, 256> kPlaces = [] {
  std::array<std::uint8_t, 256> places{};
  const auto allow = [&places](std::string_view characters, int where) {
    for (const char c : characters) {
      auto& known = places[static_cast<unsigned char>(c)];
      known = static_cast<std::uint8_t>(known | where);
    }
  };
  const auto everywhere = kInScheme | kInHost | kInUserOrPort | kInRest;
  allow("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+-.", everywhere);
  allow("_~!$&'()*,;=", kInHost | kInUserOrPort | kInRest);
  allow(":", kInUserOrPort | kInRest);
  allow("@/?[]", kInRest);
  return places;
}();

/// Whether all characters may stand there, and every percent sign begins an escape.
bool fits(std::string_view text, Place where) {
  const auto isUsual = [where](char c) { return kPlaces[static_cast<unsigned char>(c)] & where; };
  for (std::size_t i = 0;; i += 3) {
    while (i < text.size() && isUsual(text[i])) ++i;
    if (i == text.size()) return true;
    if (text[i] != '%' || where == kInScheme || text.size() - i < 3) return false;
    if (hexadecimalDigit(text[i + 1]) < 0 || hexadecimalDigit(text[i + 2]) < 0) return false;
  }
}

bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

bool isIPv6Address(std::string_view text) {
  std::array<char, INET6_ADDRSTRLEN> address{};  // the last one stays the terminating zero
  if (text.size() >= address.size()) return false;
  std::copy(text.begin(), text.end(), address.begin());
  in6_addr ignored;
  return inet_pton(AF_INET6, address.data(), &ignored) == 1;
}

/// "v1.anything", for versions of IP to come.
bool isFutureAddress(std::string_view text) {
  const std::size_t dot = text.find('.');
  if (dot == std::string_view::npos || dot < 2 || dot + 1 == text.size() || (text[0] | 0x20) != 'v')
    return false;
  return std::all_of(text.begin() + 1, text.begin() + static_cast<std::ptrdiff_t>(dot),
                     [](char c) { return hexadecimalDigit(c) >= 0; }) &&
         text.find('%') == std::string_view::npos && fits(text.substr(dot + 1), kInUserOrPort);
}

/// What stands between square brackets.
bool isAddress(std::string_view text) {
  const std::size_t mark = text.find(kZoneMark);
  if (mark == std::string_view::npos) return isIPv6Address(text) || isFutureAddress(text);
  const std::string_view zone = text.substr(mark + kZoneMark.size());
  return isIPv6Address(text.substr(0, mark)) && !zone.empty() && fits(zone, kInHost);
}

/// The text of a reference, below the base that some archives keep apart.
String resolved(const String& relative, const std::shared_ptr<URL>& base) {
  const auto reference = URL::URLWithString(relative);
  if (!base || (reference && !reference->scheme().isNull())) return relative;
  const std::string_view path = base->pathAndQuery().substr(0, base->pathAndQuery().find('?'));
  std::string text(base->origin());
  if (relative.hasPrefix("?") || relative.hasPrefix("#")) {
    text.append(path);
  } else if (!relative.hasPrefix("/")) {
    text.append(path.substr(0, path.rfind('/') + 1));
  }
  return String(text) + relative;
}

const RegisteredClass<URL> registeredURL{"NSURL"};

}  // namespace

std::optional<URL> URL::URLWithString(const String& text) {
  if (text.isEmpty() || text.view().size() > kMaximumSize) return std::nullopt;
  URL url;
  url.text_ = text;
  return url.parse() ? std::optional(std::move(url)) : std::nullopt;
}

bool URL::parse() {
  const std::string_view text = text_.view();
  // What comes before the first of these is a scheme, or it has no colon.
  const std::size_t colon = std::min(text.find_first_of(":/?#"), text.size());
  if (colon < text.size() && text[colon] == ':') {
    schemeSize_ = colon;
    if (colon == 0 || !isLetter(text[0]) || !fits(text.substr(0, colon), kInScheme)) return false;
    pathOffset_ = colon + 1;
  }
  if (text.substr(pathOffset_).starts_with("//") && !parseAuthority(pathOffset_ + 2)) return false;
  fragmentOffset_ = std::min(text.find('#', pathOffset_), text.size());
  const std::size_t fragment = std::min(fragmentOffset_ + 1, text.size());
  return fits(pathAndQuery(), kInRest) && fits(text.substr(fragment), kInRest);
}

bool URL::parseAuthority(std::size_t begin) {
  const std::string_view text = text_.view();
  pathOffset_ = std::min(text.find_first_of("/?#", begin), text.size());
  std::string_view rest = text.substr(begin, pathOffset_ - begin);
  if (rest.empty()) return true;
  if (const std::size_t at = rest.find('@'); at != std::string_view::npos) {
    if (!fits(rest.substr(0, at), kInUserOrPort)) return false;
    rest.remove_prefix(at + 1);
  }
  const bool isLiteral = rest.starts_with('[');
  const std::size_t end = isLiteral ? rest.find(']') : std::min(rest.find(':'), rest.size());
  if (end == std::string_view::npos) return false;
  const std::string_view host = rest.substr(isLiteral, end - isLiteral);
  hostOffset_ = static_cast<std::size_t>(host.data() - text.data());
  hostSize_ = host.size();
  const std::string_view port = rest.substr(end + isLiteral);
  const bool isPort = port.empty() || port.front() == ':';
  const bool isEscaped = host.find('%') != std::string_view::npos;
  if (isEscaped && this->host().isNull()) hostOffset_ = 0;  // the escapes stand for no text
  return isPort && fits(port, kInUserOrPort) && (isLiteral ? isAddress(host) : fits(host, kInHost));
}

String URL::scheme() const {
  return schemeSize_ == 0 ? String() : String(text_.view().substr(0, schemeSize_));
}

bool URL::hasScheme(std::string_view name) const noexcept {
  return name.size() == schemeSize_ &&
         strncasecmp(text_.UTF8String(), name.data(), schemeSize_) == 0;
}

String URL::host() const {
  if (hostOffset_ == 0) return nullptr;
  return String(text_.view().substr(hostOffset_, hostSize_)).stringByReplacingPercentEscapes();
}

// As other readers and writers of the format archive a URL.
void URL::encodeWithCoder(KeyedArchiver& coder) const {
  coder.encodeObjectForKey(nullptr, "NS.base");
  coder.encodeObjectForKey(text_, "NS.relative");
}

String URL::classNameForCoder() const { return "NSURL"; }

void URL::initWithCoder(KeyedUnarchiver& coder) {
  const auto base = std::dynamic_pointer_cast<URL>(coder.decodeObjectForKey("NS.base").object());
  const String relative = coder.decodeObjectForKey("NS.relative").string();
  const auto url = URLWithString(resolved(relative, base));
  if (!url) throw std::invalid_argument("no URL");
  *this = *url;
}

}  // namespace QVPlatform
