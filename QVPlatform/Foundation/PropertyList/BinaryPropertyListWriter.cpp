#include <QVPlatform/Foundation/PropertyList.h>
#include <QVPlatform/Foundation/PropertyList/BinaryPropertyListFormat.h>
#include <QVPlatform/Foundation/PropertyList/BinaryPropertyListWriter.h>

#include <bit>
#include <cstring>
#include <functional>
#include <limits>

namespace QVPlatform {
namespace {

namespace Format = BinaryPropertyListFormat;

/// A list that refers to few objects from many places is allowed, within reason.
constexpr std::size_t kMaximumReferences = 4 * PropertyList::kMaximumCount;

static_assert(PropertyList::kMaximumSize <= UINT32_MAX, "offsets are kept in 32 bits");

/// Bytes that the format takes for an unsigned number: 1, 2, 4 or 8.
std::size_t widthOf(std::uint64_t number) {
  return std::bit_ceil((static_cast<std::size_t>(std::bit_width(number | 1)) + 7) / 8);
}

bool isASCII(std::string_view text) {
  std::uint64_t seen = 0;
  while (text.size() >= sizeof seen) {
    std::uint64_t word;
    std::memcpy(&word, text.data(), sizeof word);
    seen |= word;
    text.remove_prefix(sizeof word);
  }
  for (const char c : text) seen |= static_cast<unsigned char>(c);
  return (seen & 0x8080808080808080U) == 0;
}

/// Takes the first character off well-formed UTF-8.
std::uint32_t nextCharacter(std::string_view& utf8) {
  const auto first = static_cast<unsigned char>(utf8.front());
  const std::size_t length = first < 0x80 ? 1 : static_cast<std::size_t>(std::countl_one(first));
  std::uint32_t character = length == 1 ? first : first & (0x7FU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    character = character << 6 | (static_cast<unsigned char>(utf8[i]) & 0x3FU);
  }
  utf8.remove_prefix(length);
  return character;
}

std::u16string utf16(std::string_view utf8) {
  std::u16string text;
  text.reserve(utf8.size());
  while (!utf8.empty()) {
    const std::uint32_t character = nextCharacter(utf8);
    if (character < 0x10000) {
      text.push_back(static_cast<char16_t>(character));
    } else {
      text.push_back(static_cast<char16_t>(0xD7C0 + (character >> 10)));
      text.push_back(static_cast<char16_t>(0xDC00 + (character & 0x3FF)));
    }
  }
  return text;
}

}  // namespace

BinaryPropertyListWriter::BinaryPropertyListWriter() : buffer_(Format::kMagic), slots_(512) {}

void BinaryPropertyListWriter::putBigEndian(std::uint64_t number, std::size_t width) {
  char bytes[sizeof number];
  for (std::size_t i = 0; i < width; ++i) {
    bytes[i] = static_cast<char>(number >> (8 * (width - 1 - i)));
  }
  buffer_.append(bytes, width);
}

void BinaryPropertyListWriter::putAll(std::span<const std::uint32_t> numbers, std::size_t width) {
  std::size_t end = buffer_.size();
  buffer_.resize(end + numbers.size() * width);
  for (const std::uint64_t number : numbers) {
    for (std::size_t shift = 8 * width; shift > 0;) {
      shift -= 8;
      buffer_[end++] = static_cast<char>(number >> shift);
    }
  }
}

void BinaryPropertyListWriter::putHead(std::uint8_t type, std::size_t count) {
  const bool isShort = count < Format::kLengthMask;
  buffer_.push_back(static_cast<char>(type | (isShort ? count : Format::kLengthMask)));
  if (isShort) return;
  const std::size_t width = widthOf(count);
  buffer_.push_back(static_cast<char>(Format::kInteger | std::countr_zero(width)));
  putBigEndian(count, width);
}

BinaryPropertyListWriter::Reference BinaryPropertyListWriter::add(bool value) {
  const std::size_t start = buffer_.size();
  buffer_.push_back(static_cast<char>(value ? Format::kTrue : Format::kFalse));
  return uniqued(start);
}

BinaryPropertyListWriter::Reference BinaryPropertyListWriter::addInteger(bool isNegative,
                                                                         std::uint64_t bits,
                                                                         std::size_t kindMark) {
  const std::size_t start = buffer_.size();
  // Integers of 8 bytes are signed, shorter ones are not; 16 bytes hold the large unsigned ones.
  const bool isLarge = !isNegative && bits > std::numeric_limits<std::int64_t>::max();
  const std::size_t width = isNegative ? 8 : isLarge ? 16 : widthOf(bits);
  buffer_.push_back(static_cast<char>(Format::kInteger | std::countr_zero(width)));
  if (isLarge) putBigEndian(0, 8);
  putBigEndian(bits, isLarge ? 8 : width);
  buffer_.append(isLarge ? 0 : kindMark, static_cast<char>(Format::kFill));
  return uniqued(start);
}

BinaryPropertyListWriter::Reference BinaryPropertyListWriter::add(std::int64_t value) {
  return addInteger(value < 0, static_cast<std::uint64_t>(value), 0);
}

BinaryPropertyListWriter::Reference BinaryPropertyListWriter::add(std::int32_t value) {
  return addInteger(value < 0, static_cast<std::uint64_t>(value), 1);
}

BinaryPropertyListWriter::Reference BinaryPropertyListWriter::add(std::uint32_t value) {
  return addInteger(false, value, 2);
}

BinaryPropertyListWriter::Reference BinaryPropertyListWriter::add(std::uint64_t value) {
  return addInteger(false, value, 3);
}

BinaryPropertyListWriter::Reference BinaryPropertyListWriter::add(double value) {
  const std::size_t start = buffer_.size();
  buffer_.push_back(static_cast<char>(Format::kReal | 3));
  putBigEndian(std::bit_cast<std::uint64_t>(value), 8);
  return uniqued(start);
}

BinaryPropertyListWriter::Reference BinaryPropertyListWriter::add(Date value) {
  const std::size_t start = buffer_.size();
  buffer_.push_back(static_cast<char>(Format::kDate));
  const double seconds = value.secondsSince1970 - Format::kReferenceDate;
  putBigEndian(std::bit_cast<std::uint64_t>(seconds), 8);
  return uniqued(start);
}

BinaryPropertyListWriter::Reference BinaryPropertyListWriter::add(std::string_view text) {
  const std::size_t start = buffer_.size();
  if (isASCII(text)) {
    putHead(Format::kASCIIText, text.size());
    buffer_.append(text);
    return uniqued(start);
  }
  const std::u16string units = utf16(text);
  putHead(Format::kUTF16Text, units.size());
  for (const char16_t unit : units) putBigEndian(unit, 2);
  return uniqued(start);
}

BinaryPropertyListWriter::Reference BinaryPropertyListWriter::addData(std::string_view bytes) {
  const std::size_t start = buffer_.size();
  putHead(Format::kData, bytes.size());
  buffer_.append(bytes);
  return uniqued(start);
}

BinaryPropertyListWriter::Reference BinaryPropertyListWriter::addUID(std::uint32_t number) {
  const Reference self = addObject();
  const std::size_t width = widthOf(number);
  putHead(Format::kUID, width - 1);
  putBigEndian(number, width);
  return self;
}

BinaryPropertyListWriter::Reference BinaryPropertyListWriter::addArray(
    std::span<const Reference> elements) {
  const Reference array = addContainer(Format::kArray, elements.size());
  references_.insert(references_.end(), elements.begin(), elements.end());
  return array;
}

BinaryPropertyListWriter::Reference BinaryPropertyListWriter::addDictionary(
    std::span<const Reference> keys, std::span<const Reference> values) {
  const Reference dictionary = addContainer(Format::kDictionary, keys.size());
  references_.insert(references_.end(), keys.begin(), keys.end());
  references_.insert(references_.end(), values.begin(), values.end());
  return dictionary;
}

BinaryPropertyListWriter::Reference BinaryPropertyListWriter::addContainer(std::uint8_t type,
                                                                           std::size_t count) {
  const Reference self = addObject();
  containers_.push_back({self, type, count, references_.size()});
  return self;
}

BinaryPropertyListWriter::Reference BinaryPropertyListWriter::addObject() {
  offsets_.push_back(static_cast<std::uint32_t>(buffer_.size()));
  return static_cast<Reference>(offsets_.size() - 1);
}

/// The object whose bytes begin at `start` and end the buffer. If there is an equal one already,
/// they are taken back and that one is the answer.
BinaryPropertyListWriter::Reference BinaryPropertyListWriter::uniqued(std::size_t start) {
  const std::string_view bytes = std::string_view(buffer_).substr(start);
  const auto hash = static_cast<std::uint32_t>(std::hash<std::string_view>{}(bytes));
  Slot& slot = slotFor(hash, bytes);
  if (slot.length != 0) {
    buffer_.resize(start);
    return slot.reference;
  }
  const auto reference = static_cast<Reference>(offsets_.size());
  slot = {hash, static_cast<std::uint32_t>(bytes.size()), reference};
  offsets_.push_back(static_cast<std::uint32_t>(start));
  if (++usedSlots_ > slots_.size() / 2) growTable();
  return reference;
}

/// The slot of the object with these bytes, or the free one where it belongs.
BinaryPropertyListWriter::Slot& BinaryPropertyListWriter::slotFor(std::uint32_t hash,
                                                                  std::string_view bytes) {
  const std::size_t mask = slots_.size() - 1;
  for (std::size_t i = hash & mask;; i = (i + 1) & mask) {
    Slot& slot = slots_[i];
    if (slot.length == 0) return slot;
    if (slot.hash == hash && slot.length == bytes.size() &&
        std::memcmp(buffer_.data() + offsets_[slot.reference], bytes.data(), bytes.size()) == 0) {
      return slot;
    }
  }
}

void BinaryPropertyListWriter::growTable() {
  std::vector<Slot> grown(slots_.size() * 2);
  const std::size_t mask = grown.size() - 1;
  for (const Slot& slot : slots_) {
    if (slot.length == 0) continue;
    std::size_t i = slot.hash & mask;
    while (grown[i].length != 0) i = (i + 1) & mask;
    grown[i] = slot;
  }
  slots_.swap(grown);
}

bool BinaryPropertyListWriter::isTooLarge() const {
  return offsets_.size() > PropertyList::kMaximumCount || references_.size() > kMaximumReferences ||
         buffer_.size() + references_.size() > PropertyList::kMaximumSize;
}

void BinaryPropertyListWriter::putContainers(std::size_t referenceWidth) {
  for (const Container& container : containers_) {
    offsets_[container.self] = static_cast<std::uint32_t>(buffer_.size());
    putHead(container.type, container.count);
    const bool isPairs = container.type == Format::kDictionary;
    putAll(std::span(references_)
               .subspan(container.firstReference, isPairs ? 2 * container.count : container.count),
           referenceWidth);
  }
}

Data BinaryPropertyListWriter::finish(Reference root) {
  if (isTooLarge()) return nullptr;
  const std::size_t referenceWidth = widthOf(offsets_.size() - 1);
  putContainers(referenceWidth);
  const std::size_t table = buffer_.size();
  const std::size_t offsetWidth = widthOf(table);
  putAll(std::span(offsets_), offsetWidth);
  buffer_.append(6, '\0');
  putBigEndian(offsetWidth, 1);
  putBigEndian(referenceWidth, 1);
  putBigEndian(offsets_.size(), 8);
  putBigEndian(root, 8);
  putBigEndian(table, 8);
  return buffer_.size() <= PropertyList::kMaximumSize ? Data(std::move(buffer_)) : Data();
}

}  // namespace QVPlatform
