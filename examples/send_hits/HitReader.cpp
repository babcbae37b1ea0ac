#include "send_hits/HitReader.h"

#include <unistd.h>

#include <cerrno>
#include <string_view>

using QVPlatform::String;

namespace {

constexpr std::size_t kBlockSize = 64U << 10;

}  // namespace

void HitReader::read() {
  buffer_.erase(0, place_);
  place_ = 0;
  const std::size_t size = buffer_.size();
  buffer_.resize(size + kBlockSize);
  const ssize_t count = ::read(file_, buffer_.data() + size, kBlockSize);
  buffer_.resize(size + (count > 0 ? static_cast<std::size_t>(count) : 0));
  if (count > 0 || (count < 0 && errno == EINTR)) return;
  if (count < 0) error_ = errno;
  isInputOver_ = true;
}

std::optional<HitReader::Hit> HitReader::next() {
  while (const auto line = nextLine()) {
    if (auto hit = parse(*line)) return hit;
  }
  return std::nullopt;
}

std::optional<std::string_view> HitReader::nextLine() {
  while (place_ < buffer_.size()) {
    const std::string_view rest = std::string_view(buffer_).substr(place_);
    const std::size_t end = rest.find('\n');
    const bool isWhole = end != std::string_view::npos || isInputOver_;
    const std::string_view line = rest.substr(0, end);
    const bool isTooLong = line.size() > kMaximumLineSize;
    if (!isWhole && !isTooLong && !isSkipping_) return std::nullopt;
    place_ += isWhole && end != std::string_view::npos ? end + 1 : line.size();
    const bool isRest = isSkipping_;
    isSkipping_ = !isWhole;
    if (isRest) continue;  // its beginning was counted
    ++line_;
    if (!isTooLong) return line;
    countUnreadable();
  }
  return std::nullopt;
}

std::optional<HitReader::Hit> HitReader::parse(std::string_view line) {
  if (line.ends_with('\r')) line.remove_suffix(1);
  if (line.empty()) {
    ++emptyLines_;
    return std::nullopt;
  }
  const std::size_t tab = line.find('\t');
  Hit hit{line_, String(line.substr(0, tab)), nullptr};
  if (tab != std::string_view::npos) hit.body = String(line.substr(tab + 1));
  if (hit.url.isNull() || (tab != std::string_view::npos && hit.body.isNull())) {
    countUnreadable();
    return std::nullopt;
  }
  return hit;
}

void HitReader::countUnreadable() {
  if (unreadableLines_++ == 0) firstUnreadableLine_ = line_;
}
