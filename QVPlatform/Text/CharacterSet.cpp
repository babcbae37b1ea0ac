#include <QVPlatform/Text/CharacterSet.h>

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <cstddef>

namespace QVPlatform {

bool consistsOfDecimalDigits(const String& text) noexcept {
  const std::string_view bytes = text.view();
  for (std::size_t i = 0; i < bytes.size();) {
    UChar32 character = 0;
    U8_NEXT_UNSAFE(bytes, i, character);  // a String is well-formed
    if (!u_isdigit(character)) return false;
  }
  return !text.isNull();
}

}  // namespace QVPlatform
