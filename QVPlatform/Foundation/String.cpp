#include <QVPlatform/Foundation/Internal/HexadecimalDigit.h>
#include <QVPlatform/Foundation/String.h>

#include <cstdint>
#include <cstring>
#include <new>

namespace QVPlatform {
namespace {

/// The number of bytes of the character that the text begins with; 0 if it is malformed. The second
/// byte tells overlong forms, surrogates and what is beyond U+10FFFF from characters.
std::size_t sizeOfCharacter(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) return 1;
  if (lead < 0xC2 || lead > 0xF4) return 0;
  const std::size_t size = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  if (text.size() < size) return 0;
  const unsigned char lowest = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  const unsigned char highest = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  if (byte(1) < lowest || byte(1) > highest) return 0;
  for (std::size_t i = 2; i < size; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
  }
  return size;
}

/// Written out because texts are made until the very end of a process, when a library that could
/// tell has been torn down.
bool isUTF8(std::string_view text) {
  while (!text.empty()) {
    std::uint64_t eight = 0x80;
    if (text.size() >= sizeof eight) std::memcpy(&eight, text.data(), sizeof eight);
    const bool isASCII = (eight & 0x8080808080808080U) == 0;
    const std::size_t size = isASCII ? sizeof eight : sizeOfCharacter(text);
    if (size == 0) return false;
    text.remove_prefix(size);
  }
  return true;
}

}  // namespace

String::String(const char* utf8) : String(utf8 ? std::string_view(utf8) : std::string_view()) {}

String::String(std::string_view utf8) {
  if (utf8.data() == nullptr || !isUTF8(utf8)) return;
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
