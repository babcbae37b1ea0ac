#include <QVPlatform/Networking/Internal/AnswerHeader.h>

#include <strings.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <system_error>

namespace QVPlatform {
namespace {

constexpr std::size_t kMaximumSize = std::size_t{256} << 10;
constexpr std::string_view kContentEncoding = "Content-Encoding";
constexpr std::string_view kContentLength = "Content-Length";
constexpr std::string_view kBlanks = " \t\r\n";

bool isFieldLine(std::string_view line, std::string_view name) {
  return line.size() > name.size() && line[name.size()] == ':' &&
         strncasecmp(line.data(), name.data(), name.size()) == 0;
}

std::string_view withoutBlanks(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

bool isLength(std::string_view text) {
  std::int64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [last, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && last == end && !text.starts_with('-');
}

}  // namespace

void AnswerHeader::clear() {
  totalSize_ = 0;
  text_.clear();
  contentLength_.clear();
  isComplete_ = false;
  hasContentEncoding_ = false;
}

std::optional<URLErrorCode> AnswerHeader::receive(std::string_view line) {
  const std::size_t total = totalSize_ + line.size();
  if (total > kMaximumSize) return URLErrorCode::kResponseTooLarge;
  if (line.starts_with("HTTP/")) clear();
  totalSize_ = total;
  // What follows a complete header is the trailer of a body.
  if (!isComplete_) {
    text_.append(line);
    hasContentEncoding_ = hasContentEncoding_ || isFieldLine(line, kContentEncoding);
    if (isFieldLine(line, kContentLength) &&
        !receiveContentLengths(line.substr(kContentLength.size() + 1))) {
      return URLErrorCode::kBadServerResponse;
    }
  }
  if (line == "\r\n" || line == "\n") isComplete_ = true;
  return std::nullopt;
}

bool AnswerHeader::isContinuationOfNothing(std::string_view line) const noexcept {
  const bool hasFields = text_.find('\n') + 1 < text_.size();
  return !hasFields && (line.starts_with(' ') || line.starts_with('\t'));
}

/// False when they are not all one number: then nobody knows where the next answer begins.
bool AnswerHeader::receiveContentLengths(std::string_view list) {
  for (bool isMore = true; isMore;) {
    const std::size_t comma = list.find(',');
    const std::string_view length = withoutBlanks(list.substr(0, comma));
    if (contentLength_.empty()) contentLength_ = length;
    if (length != contentLength_ || !isLength(length)) return false;
    isMore = comma != std::string_view::npos;
    if (isMore) list.remove_prefix(comma + 1);
  }
  return true;
}

}  // namespace QVPlatform
