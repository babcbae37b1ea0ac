#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/String.h>

#include <cstddef>
#include <optional>
#include <string_view>

namespace QVPlatform {

/// A URL: text that is known to be a URI reference by RFC 3986, with its parts.
///
/// The check is strict: blanks, text that is not ASCII, and characters that the RFC wants escaped
/// are refused, never repaired. Threads: as String.
class QVPLATFORM_EXPORT URL {
 public:
  /// The URL of this text; none for null, for empty text, for text that is not a URI reference and
  /// for text beyond one mebibyte.
  static std::optional<URL> URLWithString(const String& text);

  /// "https" of "https://host/path", as written; null for a relative reference.
  String scheme() const;
  /// Whether scheme() is this one, whatever the case; asks without making it.
  bool hasScheme(std::string_view name) const noexcept;
  /// The host as written, an IPv6 address without its brackets; null when there is none or an
  /// empty one.
  String host() const;
  /// Whether scheme() and host() are not null; asks without making either.
  bool hasSchemeAndHost() const noexcept { return schemeSize_ != 0 && hostSize_ != 0; }
  /// The text that the URL was made from: the same object, never null.
  const String& absoluteString() const noexcept { return text_; }

 private:
  URL() = default;

  String text_;
  std::size_t schemeSize_ = 0;
  std::size_t hostOffset_ = 0;
  std::size_t hostSize_ = 0;
};

}  // namespace QVPlatform
