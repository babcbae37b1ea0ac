#include <QVPlatform/Archives/Internal/PlainObject.h>

#include <QVPlatform/Archives/Internal/BinaryPropertyListBytes.h>
#include <QVPlatform/Archives/Internal/BinaryPropertyListFormat.h>

#include <unicode/utf.h>

#include <algorithm>
#include <bit>
#include <limits>

namespace QVPlatform {
namespace {

namespace Format = BinaryPropertyListFormat;
using namespace BinaryPropertyListBytes;

/// The units in the byte order of the format.
std::string utf16(std::string_view utf8) {
  std::u16string units(utf8.size(), u'\0');
  std::size_t size = 0;
  for (std::size_t i = 0; i < utf8.size();) {
    UChar32 character = 0;
    U8_NEXT_UNSAFE(utf8, i, character);
    U16_APPEND_UNSAFE(units.data(), size, character);
  }
  units.resize(size);
  std::string bytes(2 * size, '\0');
  char* end = bytes.data();
  for (const char16_t unit : units) end = put(end, static_cast<std::uint16_t>(unit));
  return bytes;
}

}  // namespace

PlainObject::PlainObject(bool value) {
  setHead(put(head_, value ? Format::kTrue : Format::kFalse));
}

PlainObject::PlainObject(std::int32_t value) {
  setInteger(value < 0, static_cast<std::uint64_t>(value), 1);
}

PlainObject::PlainObject(std::uint32_t value) { setInteger(false, value, 2); }

PlainObject::PlainObject(std::int64_t value) {
  setInteger(value < 0, static_cast<std::uint64_t>(value), 0);
}

PlainObject::PlainObject(std::uint64_t value) { setInteger(false, value, 3); }

PlainObject::PlainObject(double value) { setReal(Format::kReal | 3, value); }

PlainObject::PlainObject(Date value) {
  setReal(Format::kDate, value.secondsSince1970 - Format::kReferenceDate);
}

PlainObject::PlainObject(const String& text) {
  const std::string_view utf8 = text.view();
  if (text.isASCII()) {
    setContent(Format::kASCIIText, utf8.size(), utf8);
  } else {
    utf16_ = utf16(utf8);
    setContent(Format::kUTF16Text, utf16_.size() / 2, utf16_);
  }
}

PlainObject::PlainObject(const Data& bytes) {
  setContent(Format::kData, bytes.view().size(), bytes.view());
}

/// Integers of 8 bytes are signed, shorter ones are not; 16 bytes hold the large unsigned ones.
void PlainObject::setInteger(bool isNegative, std::uint64_t bits, std::size_t kindMark) {
  const bool isLarge = !isNegative && bits > std::numeric_limits<std::int64_t>::max();
  const std::size_t width = isNegative ? 8 : isLarge ? 16 : widthOf(bits);
  char* end = put(head_, static_cast<std::uint8_t>(Format::kInteger | std::countr_zero(width)));
  if (isLarge) end = put(end, std::uint64_t{0});
  end = put(end, bits, isLarge ? 8 : width);
  if (!isLarge) end = std::fill_n(end, kindMark, static_cast<char>(Format::kFill));
  setHead(end);
}

void PlainObject::setReal(std::uint8_t marker, double value) {
  setHead(put(put(head_, marker), std::bit_cast<std::uint64_t>(value)));
}

void PlainObject::setContent(std::uint8_t type, std::size_t count, std::string_view content) {
  setHead(putHead(head_, type, count));
  content_ = content;
}

}  // namespace QVPlatform
