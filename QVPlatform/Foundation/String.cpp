#include <QVPlatform/Foundation/String.h>

#include <simdjson.h>

#include <cstring>
#include <new>

namespace QVPlatform {
namespace {

int hexadecimalDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

String::String(const char* utf8) : String(utf8 ? std::string_view(utf8) : std::string_view()) {}

String::String(std::string_view utf8) {
  if (utf8.data() == nullptr || !simdjson::validate_utf8(utf8)) return;
  // One block holds the counter and, right behind it, the text.
  void* block = ::operator new(sizeof(Literal) + utf8.size() + 1);
  char* text = static_cast<char*>(block) + sizeof(Literal);
  std::memcpy(text, utf8.data(), utf8.size());
  text[utf8.size()] = '\0';
  storage_ = new (block) Literal(utf8.size(), text);
}

void String::releaseOwned() noexcept {
  if (storage_->references_.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  storage_->~Literal();
  ::operator delete(storage_);
}

bool String::hasPrefix(const String& prefix) const noexcept {
  return !isNull() && !prefix.isNull() && view().starts_with(prefix.view());
}

String String::stringByReplacingOccurrencesOfString(const String& target,
                                                    const String& replacement) const {
  std::size_t match = target.isEmpty() ? std::string_view::npos : view().find(target.view());
  if (match == std::string_view::npos) return *this;
  std::string result;
  std::size_t copied = 0;
  for (; match != std::string_view::npos; match = view().find(target.view(), copied)) {
    result.append(view(), copied, match - copied).append(replacement.view());
    copied = match + target.view().size();
  }
  result.append(view(), copied);
  return String(result);
}

String String::stringByReplacingPercentEscapes() const {
  const std::string_view text = view();
  if (text.find('%') == std::string_view::npos) return *this;
  std::string result;
  result.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      result.push_back(text[i]);
      continue;
    }
    if (text.size() - i < 3) return nullptr;
    const int high = hexadecimalDigit(text[i + 1]);
    const int low = hexadecimalDigit(text[i + 2]);
    if (high < 0 || low < 0) return nullptr;
    result.push_back(static_cast<char>(high * 16 + low));
    i += 2;
  }
  return String(result);
}

String operator+(const String& a, const String& b) {
  std::string joined;
  joined.reserve(a.view().size() + b.view().size());
  joined.append(a.view()).append(b.view());
  return String(joined);
}

}  // namespace QVPlatform
