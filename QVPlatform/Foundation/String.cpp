#include <QVPlatform/Foundation/String.h>

#include <QVPlatform/Foundation/Internal/Hash.h>
#include <QVPlatform/Foundation/Internal/HexadecimalDigit.h>
#include <QVPlatform/Foundation/Log.h>

#include <unicode/utf8.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>

namespace QVPlatform {
namespace {

constexpr std::size_t kBlock = 4 * sizeof(std::uint64_t);

bool isASCIIBlock(const char* bytes) {
  std::uint64_t words[4];
  std::memcpy(words, bytes, kBlock);
  return ((words[0] | words[1] | words[2] | words[3]) & 0x8080808080808080U) == 0;
}

/// How much of the text is ASCII for certain: most texts are, to the last block.
std::size_t asciiBlocks(std::string_view text) {
  std::size_t size = 0;
  while (text.size() - size >= kBlock && isASCIIBlock(text.data() + size)) size += kBlock;
  return size;
}

/// Eight characters of ASCII at once, the others one by one.
bool isUTF8(std::string_view text) {
  const auto* const bytes = reinterpret_cast<const std::uint8_t*>(text.data());
  for (std::size_t i = asciiBlocks(text); i < text.size();) {
    std::uint64_t eight = 0x80;
    if (text.size() - i >= sizeof eight) std::memcpy(&eight, bytes + i, sizeof eight);
    if ((eight & 0x8080808080808080U) == 0) {
      i += sizeof eight;
      continue;
    }
    UChar32 character = 0;
    U8_NEXT(bytes, i, text.size(), character);
    if (character < 0) return false;
  }
  return true;
}

bool isASCIIText(std::string_view text) {
  text.remove_prefix(asciiBlocks(text));
  return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// What is kept about a text: the hash, above two bits.
constexpr std::uint32_t kIsKnown = 1;
constexpr std::uint32_t kIsASCII = 2;
constexpr int kTraitBits = 2;

std::uint32_t traitsOf(std::string_view text) {
  return Hash::of(text) << kTraitBits | (isASCIIText(text) ? kIsASCII : 0) | kIsKnown;
}

/// The beginning of the text, so that it can be found in the source.
void tellOfDropped(std::string_view text) {
  constexpr std::size_t kShown = 60;
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string shown;
  for (const char c : text.substr(0, kShown)) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte < 0x7f) {
      shown.push_back(c);
    } else {
      shown.append({'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]});
    }
  }
  if (text.size() > kShown) shown.append("...");
  consoleLog(String("text that is not UTF-8 was dropped: ") + String(shown));
}

}  // namespace

String::String(const char* utf8) : String(utf8 ? std::string_view(utf8) : std::string_view()) {
  if (utf8 && isNull()) tellOfDropped(utf8);
}

String::String(const std::string& utf8) : String(std::string_view(utf8)) {
  if (isNull()) tellOfDropped(utf8);
}

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

/// Threads that are here at once find the same.
std::uint32_t String::traits() const noexcept {
  if (isNull()) return traitsOf({});
  std::uint32_t traits = storage_->traits_.load(std::memory_order_relaxed);
  if (traits == 0) {
    traits = traitsOf(view());
    storage_->traits_.store(traits, std::memory_order_relaxed);
  }
  return traits;
}

std::uint32_t String::hash() const noexcept { return traits() >> kTraitBits; }

bool String::isASCII() const noexcept {
  if (isNull()) return true;
  const std::uint32_t traits = storage_->traits_.load(std::memory_order_relaxed);
  return traits == 0 ? isASCIIText(view()) : (traits & kIsASCII) != 0;
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
  return String(std::string_view(result));
}

String String::stringByAppendingPathComponent(const String& component) const {
  if (isNull() && component.isNull()) return nullptr;
  std::string path(view());
  if (!path.empty() && !component.isEmpty()) path.push_back('/');
  path.append(component.view());
  const auto isRepeated = [](char a, char b) { return a == '/' && b == '/'; };
  path.erase(std::unique(path.begin(), path.end(), isRepeated), path.end());
  if (path.size() > 1 && path.back() == '/') path.pop_back();
  return String(path);
}

String operator+(const String& a, const String& b) {
  std::string joined;
  joined.reserve(a.view().size() + b.view().size());
  joined.append(a.view()).append(b.view());
  return String(joined);
}

}  // namespace QVPlatform
