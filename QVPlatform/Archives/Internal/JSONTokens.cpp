#include <QVPlatform/Archives/Internal/JSONTokens.h>

#include <QVPlatform/Foundation/Internal/HexadecimalDigit.h>
#include <QVPlatform/Foundation/Internal/Unicode.h>

namespace QVPlatform::JSONTokens {
namespace {

/// The code unit of UTF-16 that is written as "\uXXXX".
const char* afterCodeUnit(const char* at, char32_t& unit) {
  if (at[0] != '\\' || at[1] != 'u') return nullptr;
  unit = 0;
  for (int i = 2; i < 6; ++i) {
    const int digit = hexadecimalDigit(at[i]);
    if (digit < 0) return nullptr;
    unit = unit << 4 | static_cast<char32_t>(digit);
  }
  return at + 6;
}

const char* afterUnicodeEscape(const char* at, char32_t& character) {
  at = afterCodeUnit(at, character);
  if (!at || isLowSurrogate(character)) return nullptr;
  if (!isHighSurrogate(character)) return at;
  char32_t low = 0;
  at = afterCodeUnit(at, low);
  if (!at || !isLowSurrogate(low)) return nullptr;
  character = characterOfPair(character, low);
  return at;
}

}  // namespace

const char* afterEscape(const char* at, char32_t& character) {
  switch (at[1]) {
    case '"':
    case '\\':
    case '/':
      character = static_cast<char32_t>(at[1]);
      break;
    case 'b':
      character = '\b';
      break;
    case 'f':
      character = '\f';
      break;
    case 'n':
      character = '\n';
      break;
    case 'r':
      character = '\r';
      break;
    case 't':
      character = '\t';
      break;
    default:
      return afterUnicodeEscape(at, character);
  }
  return at + 2;
}

std::string_view unescaped(std::string_view text, std::string& buffer) {
  std::size_t escape = text.find('\\');
  if (escape == text.npos) return text;
  buffer.clear();
  for (; escape != text.npos; escape = text.find('\\')) {
    char32_t character = 0;
    const char* const rest = afterEscape(text.data() + escape, character);
    appendUTF8(buffer.append(text.substr(0, escape)), character);
    text.remove_prefix(static_cast<std::size_t>(rest - text.data()));
  }
  return buffer.append(text);
}

}  // namespace QVPlatform::JSONTokens
