#include <QVPlatform/Text/RegularExpression.h>

#include <unicode/regex.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace QVPlatform {
namespace {

using Clock = std::chrono::steady_clock;

// Compiling takes time in proportion to the length, some 10 us for a set of letters.
constexpr std::size_t kLongestPattern = 10000;
constexpr std::chrono::seconds kLongestSearch{1};
constexpr std::int32_t kLargestStack = 8 * 1024 * 1024;

bool isBefore(const void* deadline) {
  return Clock::now() < *static_cast<const Clock::time_point*>(deadline);
}

// ICU's own time limit counts steps of backtracking only: a pattern that does much work at every
// position without ever backtracking passes it by. Asking at every position as well closes the gap.
UBool continueMatch(const void* deadline, std::int32_t) { return isBefore(deadline); }
UBool continueFind(const void* deadline, std::int64_t) { return isBefore(deadline); }

/// Where the set of characters that begins there ends: sets stand in sets, and a bracket in front
/// of everything else is a member.
std::size_t afterSet(std::string_view pattern, std::size_t at) {
  int depth = 0;
  do {
    if (pattern[at] == '\\') {
      ++at;
    } else if (pattern[at] == '[') {
      ++depth;
      if (pattern.substr(at + 1).starts_with('^')) ++at;
      if (pattern.substr(at + 1).starts_with(']')) ++at;
    } else if (pattern[at] == ']') {
      --depth;
    }
    ++at;
  } while (depth > 0 && at < pattern.size());
  return at;
}

/// Whether a group begins there that is a comment or turns on options that change what "$" is: more
/// lines than one, or comments.
bool changesMeaning(std::string_view rest) {
  if (!rest.starts_with("(?")) return false;
  const std::string_view options = rest.substr(2, rest.find_first_not_of("dimsuwx-", 2) - 2);
  return rest.substr(2).starts_with('#') || options.find_first_of("mx") != std::string_view::npos;
}

/// The pattern with "(?:\\z)", which may be repeated, for each "$", which ICU would let match in
/// front of a line end that ends the text as well.
std::string withStrictEnds(std::string_view pattern) {
  std::string strict;
  for (std::size_t at = 0, next = 0; at < pattern.size(); at = next) {
    const std::string_view rest = pattern.substr(at);
    next = at + 1;
    if (changesMeaning(rest)) return strict.append(rest);
    if (rest.starts_with("\\Q")) {
      next = std::min(pattern.find("\\E", at), pattern.size());
    } else if (rest.starts_with('\\')) {
      next = std::min(at + 2, pattern.size());
    } else if (rest.starts_with('[')) {
      next = std::min(afterSet(pattern, at), pattern.size());
    }
    strict.append(rest.starts_with('$') ? "(?:\\z)" : pattern.substr(at, next - at));
  }
  return strict;
}

std::unique_ptr<icu::RegexPattern> compile(const String& pattern) {
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::RegexPattern> compiled(icu::RegexPattern::compile(
      icu::UnicodeString::fromUTF8(withStrictEnds(pattern.view())), 0, status));
  return U_SUCCESS(status) ? std::move(compiled) : nullptr;
}

// The first expression in a process makes what ICU shares among all of them. ICU orders the threads
// there, but by an atomic load that ThreadSanitizer cannot see in a library built without it, so
// that it reports a race to whoever runs a host under it. A static of ours is an order it does see.
void makeSharedData() {
  static const bool isMade = compile("") != nullptr;
  static_cast<void>(isMade);
}

}  // namespace

struct RegularExpression::Compiled {
  std::unique_ptr<icu::RegexPattern> pattern;
};

RegularExpression::RegularExpression(std::shared_ptr<const Compiled> compiled) noexcept
    : compiled_(std::move(compiled)) {}

std::optional<RegularExpression> RegularExpression::regularExpressionWithPattern(
    const String& pattern) {
  if (pattern.isNull() || pattern.view().size() > kLongestPattern) return std::nullopt;
  makeSharedData();
  auto compiled = compile(pattern);
  if (!compiled) return std::nullopt;
  return RegularExpression(std::make_shared<const Compiled>(Compiled{std::move(compiled)}));
}

std::optional<Range> RegularExpression::firstMatchInString(const String& text) const {
  if (text.isNull() || text.view().size() > INT32_MAX) return std::nullopt;
  const icu::UnicodeString units = icu::UnicodeString::fromUTF8(text.view());
  const Clock::time_point deadline = Clock::now() + kLongestSearch;
  UErrorCode status = U_ZERO_ERROR;
  const std::unique_ptr<icu::RegexMatcher> matcher(compiled_->pattern->matcher(units, status));
  if (U_FAILURE(status) || !matcher) return std::nullopt;
  matcher->setStackLimit(kLargestStack, status);
  matcher->setMatchCallback(continueMatch, &deadline, status);
  matcher->setFindProgressCallback(continueFind, &deadline, status);
  if (!matcher->find(0, status) || U_FAILURE(status)) return std::nullopt;
  const std::int32_t start = matcher->start(status);
  const std::int32_t end = matcher->end(status);
  return Range{static_cast<std::size_t>(start), static_cast<std::size_t>(end - start)};
}

}  // namespace QVPlatform
