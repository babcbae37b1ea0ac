#include <QVPlatform/Archives/Internal/BinaryPropertyListReader.h>

#include <QVPlatform/Archives/Internal/BinaryPropertyListFormat.h>
#include <QVPlatform/Archives/PropertyList.h>

#include <unicode/utf.h>

#include <bit>
#include <cstring>
#include <limits>
#include <string>

namespace QVPlatform {
namespace {

namespace Format = BinaryPropertyListFormat;

template <class Word>
std::uint64_t load(std::string_view bytes) {
  Word word;
  std::memcpy(&word, bytes.data(), sizeof word);
  if constexpr (std::endian::native == std::endian::big || sizeof word == 1) return word;
  if constexpr (sizeof word == 2) return __builtin_bswap16(word);
  if constexpr (sizeof word == 4) return __builtin_bswap32(word);
  if constexpr (sizeof word == 8) return __builtin_bswap64(word);
}

/// The last eight bytes count, if there are more. Nearly all the time of reading goes through here,
/// hence the short cuts for the usual widths.
std::uint64_t bigEndian(std::string_view bytes) {
  switch (bytes.size()) {
    case 1:
      return load<std::uint8_t>(bytes);
    case 2:
      return load<std::uint16_t>(bytes);
    case 4:
      return load<std::uint32_t>(bytes);
    case 8:
      return load<std::uint64_t>(bytes);
    default:
      std::uint64_t number = 0;
      for (const char byte : bytes) number = number << 8 | static_cast<unsigned char>(byte);
      return number;
  }
}

/// A surrogate without its partner, which UTF-8 cannot express, becomes U+FFFD.
String textOfUTF16(std::string_view bytes) {
  std::u16string units;
  units.reserve(bytes.size() / 2);
  for (; !bytes.empty(); bytes.remove_prefix(2)) {
    units.push_back(static_cast<char16_t>(bigEndian(bytes.substr(0, 2))));
  }
  std::string text(3 * units.size(), '\0');  // a pair takes four bytes
  std::size_t size = 0;
  for (std::size_t i = 0; i < units.size();) {
    UChar32 character = 0;
    U16_NEXT_OR_FFFD(units.data(), i, units.size(), character);
    U8_APPEND_UNSAFE(text.data(), size, character);
  }
  return String(std::string_view(text.data(), size));
}

double real(std::string_view content) {
  const std::uint64_t bits = bigEndian(content);
  return content.size() == 4 ? std::bit_cast<float>(static_cast<std::uint32_t>(bits))
                             : std::bit_cast<double>(bits);
}

BinaryPropertyListReader::Type typeOf(std::uint8_t marker) {
  using Type = BinaryPropertyListReader::Type;
  switch (marker & Format::kTypeMask) {
    case Format::kUID:
      return Type::kUID;
    case Format::kArray:
      return Type::kArray;
    case Format::kDictionary:
      return Type::kDictionary;
    default:
      return Type::kLeaf;
  }
}

/// How long an object is: that many units of that many bytes, unless the length follows.
struct Shape {
  std::size_t count = 0;
  std::size_t unit = 0;  // 0: no such type
  bool canBeLonger = false;
};

Shape shapeOf(std::uint8_t marker, std::size_t referenceWidth) {
  const std::size_t length = marker & Format::kLengthMask;
  switch (marker & Format::kTypeMask) {
    case 0:
      return {0, 1};
    case Format::kInteger:
    case Format::kReal:
    case Format::kDate& Format::kTypeMask:
      return length > 4 ? Shape() : Shape{std::size_t{1} << length, 1};
    case Format::kUID:
      return {length + 1, 1};
    case Format::kData:
    case Format::kASCIIText:
      return {length, 1, true};
    case Format::kUTF16Text:
      return {length, 2, true};
    case Format::kArray:
      return {length, referenceWidth, true};
    case Format::kDictionary:
      return {length, 2 * referenceWidth, true};
    default:
      return {};
  }
}

}  // namespace

BinaryPropertyListReader::BinaryPropertyListReader(std::string_view bytes)
    : bytes_(bytes), trailer_(trailerOf(bytes, bytes, bytes.size()).value_or(Trailer())) {}

bool BinaryPropertyListReader::canBe(std::string_view beginning, std::string_view end,
                                     std::size_t size) {
  return trailerOf(beginning, end, size).has_value();
}

std::optional<BinaryPropertyListReader::Trailer> BinaryPropertyListReader::trailerOf(
    std::string_view beginning, std::string_view end, std::size_t size) {
  // Other writers may have another digit at the end of the magic; the layout is the same.
  if (!beginning.starts_with(Format::kMagic.substr(0, 7))) return {};
  if (size < Format::kMagic.size() + Format::kTrailerSize) return {};
  if (size > PropertyList::kMaximumSize || end.size() < Format::kTrailerSize) return {};
  const std::string_view bytes = end.substr(end.size() - Format::kTrailerSize);
  const std::uint64_t offsetWidth = bigEndian(bytes.substr(6, 1));
  const std::uint64_t referenceWidth = bigEndian(bytes.substr(7, 1));
  const std::uint64_t count = bigEndian(bytes.substr(8, 8));
  const std::uint64_t root = bigEndian(bytes.substr(16, 8));
  const std::uint64_t table = bigEndian(bytes.substr(24, 8));
  const std::size_t tableEnd = size - Format::kTrailerSize;
  if (offsetWidth < 1 || offsetWidth > 8 || referenceWidth < 1 || referenceWidth > 8) return {};
  if (table < Format::kMagic.size() || table > tableEnd) return {};
  // Each object takes a byte at least: so what is kept for each is in proportion to the file.
  if (count > (tableEnd - table) / offsetWidth || count > table - Format::kMagic.size()) return {};
  if (root >= count) return {};
  const auto small = [](std::uint64_t number) { return static_cast<std::size_t>(number); };
  return Trailer{small(offsetWidth), small(referenceWidth), small(count), small(root),
                 small(table)};
}

/// The length that follows a marker which has no room for it; moves the position behind it.
/// Nothing, also when the file is shorter than that, which may be more than this machine can count.
std::optional<std::size_t> BinaryPropertyListReader::length(std::size_t& position) const {
  if (position >= trailer_.table) return {};
  const auto marker = static_cast<std::uint8_t>(bytes_[position]);
  const std::size_t exponent = marker & Format::kLengthMask;
  if ((marker & Format::kTypeMask) != Format::kInteger || exponent > 3) return {};
  const std::size_t width = std::size_t{1} << exponent;
  if (width >= trailer_.table - position) return {};
  const std::uint64_t number = bigEndian(bytes_.substr(position + 1, width));
  position += 1 + width;
  if (number > bytes_.size()) return {};
  return static_cast<std::size_t>(number);
}

/// Where the object begins; 0 when there is none.
std::size_t BinaryPropertyListReader::offset(Reference reference) const {
  if (reference >= trailer_.count) return 0;
  const std::uint64_t offset =
      bigEndian(bytesAt(trailer_.table + reference * trailer_.offsetWidth, trailer_.offsetWidth));
  if (offset < Format::kMagic.size() || offset >= trailer_.table) return 0;
  return static_cast<std::size_t>(offset);
}

BinaryPropertyListReader::Object BinaryPropertyListReader::object(Reference reference) const {
  std::size_t position = offset(reference);
  if (position == 0) return {};
  const auto marker = static_cast<std::uint8_t>(bytes_[position++]);
  auto [count, unit, canBeLonger] = shapeOf(marker, trailer_.referenceWidth);
  if (unit == 0) return {};
  if (canBeLonger && count == Format::kLengthMask) {
    const auto longer = length(position);
    if (!longer) return {};
    count = *longer;
  }
  if (count > (trailer_.table - position) / unit) return {};
  return {typeOf(marker), marker, count, bytesAt(position, count * unit)};
}

void BinaryPropertyListReader::prefetch(Reference reference) const {
  __builtin_prefetch(bytes_.data() + offset(reference));
}

BinaryPropertyListReader::Reference BinaryPropertyListReader::reference(const Object& container,
                                                                        std::size_t index) const {
  const std::uint64_t number = bigEndian(
      {container.content.data() + index * trailer_.referenceWidth, trailer_.referenceWidth});
  // A number that is too large for a reference is of no object either.
  return number < trailer_.count ? static_cast<Reference>(number)
                                 : std::numeric_limits<Reference>::max();
}

Value BinaryPropertyListReader::leaf(const Object& object) const {
  switch (object.marker & Format::kTypeMask) {
    case 0:
      if (object.marker == Format::kFalse) return false;
      if (object.marker == Format::kTrue) return true;
      return nullptr;
    case Format::kInteger:
      return integer(object);
    case Format::kReal:
      if (object.count != 4 && object.count != 8) return nullptr;
      return real(object.content);
    case Format::kDate& Format::kTypeMask:
      if (object.marker != Format::kDate) return nullptr;
      return Date{real(object.content) + Format::kReferenceDate};
    case Format::kData:
      return Data(std::string(object.content));
    case Format::kASCIIText:
      return String(object.content);  // other writers put UTF-8 here
    case Format::kUTF16Text:
      return textOfUTF16(object.content);
    default:
      return nullptr;
  }
}

Value BinaryPropertyListReader::integer(const Object& object) const {
  const std::uint64_t bits = bigEndian(object.content);
  if (object.count == 16) {
    const std::uint64_t high = bigEndian(object.content.substr(0, 8));
    const auto number = static_cast<std::int64_t>(bits);
    if (high == (number < 0 ? ~std::uint64_t{0} : 0)) return number;
    return high == 0 ? Value(bits) : Value();
  }
  const auto number = static_cast<std::int64_t>(bits);
  const auto end = static_cast<std::size_t>(object.content.data() - bytes_.data()) + object.count;
  std::size_t mark = 0;
  while (mark < 4 && end + mark < trailer_.table && bytes_[end + mark] == Format::kFill) ++mark;
  if (mark == 1 && std::in_range<std::int32_t>(number)) return static_cast<std::int32_t>(number);
  if (mark == 2 && std::in_range<std::uint32_t>(number)) return static_cast<std::uint32_t>(number);
  if (mark == 3 && number >= 0) return bits;
  return number;
}

std::optional<std::uint32_t> BinaryPropertyListReader::uid(Reference reference) const {
  const std::size_t position = offset(reference);
  if (position == 0) return {};
  const auto marker = static_cast<std::uint8_t>(bytes_[position]);
  const std::size_t width = (marker & Format::kLengthMask) + std::size_t{1};
  if ((marker & Format::kTypeMask) != Format::kUID || width > 8) return {};
  if (width >= trailer_.table - position) return {};
  const std::uint64_t number = bigEndian(bytesAt(position + 1, width));
  if (number > UINT32_MAX) return {};
  return static_cast<std::uint32_t>(number);
}

std::optional<BinaryPropertyListReader::Reference> BinaryPropertyListReader::valueForKey(
    const Object& dictionary, Key& key) const {
  if (dictionary.type != Type::kDictionary) return {};
  for (std::size_t i = 0; i < dictionary.count; ++i) {
    const Reference candidate = reference(dictionary, i);
    if (candidate >= trailer_.count) continue;
    if (candidate != key.known) {
      const Object text = object(candidate);
      if ((text.marker & Format::kTypeMask) != Format::kASCIIText || text.content != key.text) {
        continue;
      }
      key.known = candidate;
    }
    return reference(dictionary, dictionary.count + i);
  }
  return {};
}

}  // namespace QVPlatform
