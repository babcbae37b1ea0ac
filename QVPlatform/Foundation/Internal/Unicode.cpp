#include <QVPlatform/Foundation/Internal/Unicode.h>

namespace QVPlatform {

void appendUTF8(std::string& text, char32_t character) {
  const auto push = [&text](char32_t byte) { text.push_back(static_cast<char>(byte)); };
  const auto pushRest = [&](int shift) { push(0x80 | (character >> shift & 0x3F)); };
  if (character < 0x80) return push(character);
  if (character < 0x800) {
    push(0xC0 | character >> 6);
    return pushRest(0);
  }
  if (character < 0x10000) {
    push(0xE0 | character >> 12);
  } else {
    push(0xF0 | character >> 18);
    pushRest(12);
  }
  pushRest(6);
  pushRest(0);
}

}  // namespace QVPlatform
