#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/String.h>

#include <cstddef>
#include <memory>
#include <optional>

namespace QVPlatform {

/// A stretch of text, counted in UTF-16 code units.
struct Range {
  std::size_t location = 0;
  std::size_t length = 0;
  bool operator==(const Range&) const = default;
};

/// A compiled pattern in ICU syntax, without options: case counts, the dot does not match line
/// ends, and "^" and "$" match only at the very ends of the whole text, "$" not in front of a last
/// line end either. Behind a "(?m)", "(?x)" or "(?#" in a pattern "$" is what it is to ICU.
///
/// Threads: immutable; any number of threads may search with one expression. Copies share what was
/// compiled.
class QVPLATFORM_EXPORT RegularExpression {
 public:
  /// The expression; none for null, for a pattern that is not well formed, and for one of more than
  /// 10000 bytes.
  static std::optional<RegularExpression> regularExpressionWithPattern(const String& pattern);

  /// Where the pattern first matches, looked for anywhere in the text; none when it does not match
  /// and for null. A search that takes longer than a second or needs more than eight megabytes of
  /// memory is given up and counts as one without a match, so that no pattern can hold up the
  /// caller.
  std::optional<Range> firstMatchInString(const String& text) const;

 private:
  struct Compiled;
  explicit RegularExpression(std::shared_ptr<const Compiled> compiled) noexcept;

  std::shared_ptr<const Compiled> compiled_;
};

}  // namespace QVPlatform
