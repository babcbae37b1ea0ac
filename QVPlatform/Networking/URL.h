#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/Coding.h>
#include <QVPlatform/Foundation/Object.h>
#include <QVPlatform/Foundation/String.h>

#include <cstddef>
#include <optional>
#include <string_view>

namespace QVPlatform {

/// A URL: text that is known to be a URI reference, with its parts.
///
/// The grammar is that of RFC 3986 and RFC 6874 (zones of IPv6 addresses), with what the classic
/// parsers of URL loading systems let pass beyond it: square brackets anywhere behind the authority
/// ("?ids[]=1"), and a port that is no number. Apart from that the check is strict: blanks, text
/// that is not ASCII, and characters that the RFC wants escaped are refused, never repaired.
/// Threads: as String.
class QVPLATFORM_EXPORT URL : public Object, public Coding {
 public:
  /// A bare one, without text, for initWithCoder().
  URL() = default;
  /// The URL of this text; none for null, for empty text, for text that is not a URI reference and
  /// for text beyond one mebibyte.
  static std::optional<URL> URLWithString(const String& text);

  /// "https" of "https://host/path", as written; null for a relative reference.
  String scheme() const;
  /// Whether scheme() is this one, whatever the case; asks without making it.
  bool hasScheme(std::string_view name) const noexcept;
  /// The host, its percent escapes replaced, an IPv6 address without its brackets. "" where an
  /// authority has only a port or a user ("http://:80/"); null where there is no authority, where
  /// it is empty ("http:///path"), and for escapes that stand for no UTF-8.
  String host() const;
  /// Whether there are a scheme and a host, which may be empty; asks without making either.
  bool hasSchemeAndHost() const noexcept { return schemeSize_ != 0 && hostOffset_ != 0; }
  bool hasEmptyHost() const noexcept { return hostSize_ == 0; }
  /// The text that the URL was made from: the same object, never null.
  const String& absoluteString() const noexcept { return text_; }
  /// The same as absoluteString().
  String description() const override { return text_; }

  void encodeWithCoder(KeyedArchiver& coder) const override;
  /// "NSURL", as the format has it.
  String classNameForCoder() const override;
  void initWithCoder(KeyedUnarchiver& coder) override;

  /// What stands in front of the path: "https://host:80" of "https://host:80/path?query#fragment".
  std::string_view origin() const noexcept { return text_.view().substr(0, pathOffset_); }
  /// Path and query as they were written, without the fragment: "/path?query".
  std::string_view pathAndQuery() const noexcept {
    return text_.view().substr(pathOffset_, fragmentOffset_ - pathOffset_);
  }

 private:
  bool parse();
  bool parseAuthority(std::size_t begin);

  String text_;
  std::size_t schemeSize_ = 0;
  std::size_t hostOffset_ = 0;  // 0: none
  std::size_t hostSize_ = 0;
  std::size_t pathOffset_ = 0;
  std::size_t fragmentOffset_ = 0;  // of its number sign, or the end
};

}  // namespace QVPlatform
