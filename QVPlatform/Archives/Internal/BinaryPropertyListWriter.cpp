#include <QVPlatform/Archives/Internal/BinaryPropertyListWriter.h>

#include <QVPlatform/Archives/Internal/BinaryPropertyListBytes.h>
#include <QVPlatform/Archives/Internal/BinaryPropertyListFormat.h>
#include <QVPlatform/Archives/PropertyList.h>

#include <algorithm>
#include <utility>

namespace QVPlatform {
namespace {

namespace Format = BinaryPropertyListFormat;
using namespace BinaryPropertyListBytes;

constexpr std::size_t kMaximumReservation = 16U << 20;
/// Added to the number of a UID, until it is known which object it will be.
constexpr std::uint32_t kUIDReference = 1U << 31;

static_assert(PropertyList::kMaximumSize <= kUIDReference, "UIDs can be told from objects");
static_assert(PropertyList::kMaximumSize <= UINT32_MAX, "offsets are kept in 32 bits");

/// What the UIDs below `count` take: a marker and one byte or, if the number is large, more.
std::size_t uidsSize(std::size_t count) {
  const auto above = [count](std::size_t limit) { return count - std::min(count, limit); };
  return 2 * count + above(1U << 8) + 2 * above(1U << 16);
}

}  // namespace

BinaryPropertyListWriter::BinaryPropertyListWriter() : buffer_(Format::kMagic) {}

BinaryPropertyListWriter::Reference BinaryPropertyListWriter::add(const String& text) {
  const Hash::Number hash = text.hash();  // tells, too, whether the text is ASCII
  return add(PlainObject(text), hash);
}

BinaryPropertyListWriter::Reference BinaryPropertyListWriter::add(const Data& bytes) {
  return add(PlainObject(bytes), Hash::of(bytes.view()));
}

/// The hash must depend on the object's bytes alone.
BinaryPropertyListWriter::Reference BinaryPropertyListWriter::add(const PlainObject& object,
                                                                  Hash::Number hash) {
  const auto next = static_cast<Reference>(offsets_.size());
  const auto isSame = [&](Reference known) {
    const std::string_view bytes = bytesOf(known);
    return bytes.size() == object.size() && bytes.starts_with(object.head()) &&
           bytes.ends_with(object.content());
  };
  const Reference found = plain_.findOrAdd(hash, next, isSame);
  if (found == next) {
    addObject();
    buffer_.append(object.head()).append(object.content());
  }
  return found;
}

/// Of a plain object.
std::string_view BinaryPropertyListWriter::bytesOf(Reference plain) const {
  // What lies in the buffer ends where the next object begins.
  const std::size_t end = plain + 1 < offsets_.size() ? offsets_[plain + 1] : buffer_.size();
  return std::string_view(buffer_).substr(offsets_[plain], end - offsets_[plain]);
}

BinaryPropertyListWriter::Reference BinaryPropertyListWriter::addUID(std::uint32_t number) {
  uidCount_ = std::max(uidCount_, number + std::size_t{1});
  return kUIDReference | number;
}

BinaryPropertyListWriter::Reference BinaryPropertyListWriter::addArray(
    std::span<const Reference> elements) {
  references_.insert(references_.end(), elements.begin(), elements.end());
  return addContainer(Format::kArray, elements.size());
}

BinaryPropertyListWriter::Reference BinaryPropertyListWriter::addDictionary(
    std::span<const Reference> keys, std::span<const Reference> values) {
  references_.insert(references_.end(), keys.begin(), keys.end());
  references_.insert(references_.end(), values.begin(), values.end());
  return addContainer(Format::kDictionary, keys.size());
}

BinaryPropertyListWriter::Reference BinaryPropertyListWriter::addContainer(std::uint8_t type,
                                                                           std::size_t count) {
  const Reference self = addObject();
  containers_.push_back({self, static_cast<std::uint32_t>(count), type});
  return self;
}

BinaryPropertyListWriter::Reference BinaryPropertyListWriter::addObject() {
  offsets_.push_back(static_cast<std::uint32_t>(buffer_.size()));
  return static_cast<Reference>(offsets_.size() - 1);
}

void BinaryPropertyListWriter::reserve(std::size_t times) {
  const std::size_t tables = sizeof(Reference) * (references_.size() + objectCount());
  if (times > kMaximumReservation / (buffer_.size() + tables)) return;
  buffer_.reserve(times * (buffer_.size() + tables));
  offsets_.reserve(times * objectCount());
  containers_.reserve(times * containers_.size());
  references_.reserve(times * references_.size());
  plain_.reserve(times * plain_.count());
}

bool BinaryPropertyListWriter::isTooLarge() const {
  return buffer_.size() + references_.size() + objectCount() > PropertyList::kMaximumSize;
}

/// UIDs follow all other objects.
BinaryPropertyListWriter::Reference BinaryPropertyListWriter::resolved(Reference reference) const {
  const auto firstUID = static_cast<Reference>(offsets_.size());
  return reference < kUIDReference ? reference : reference - kUIDReference + firstUID;
}

std::size_t BinaryPropertyListWriter::containersSize(std::size_t referenceWidth) const {
  std::size_t size = references_.size() * referenceWidth;
  for (const Container& container : containers_) size += headSize(container.count);
  return size;
}

/// Puts the containers there, at the end of the buffer.
char* BinaryPropertyListWriter::putContainers(char* to, std::size_t referenceWidth) {
  std::span<const Reference> references = references_;
  for (const auto& [self, count, type] : containers_) {
    offsets_[self] = static_cast<std::uint32_t>(to - buffer_.data());
    const std::size_t length = type == Format::kDictionary ? 2 * std::size_t{count} : count;
    to = put(putHead(to, type, count), references.first(length), referenceWidth);
    references = references.subspan(length);
  }
  return to;
}

char* BinaryPropertyListWriter::putUIDs(char* to) {
  for (std::size_t number = 0; number < uidCount_; ++number) {
    offsets_.push_back(static_cast<std::uint32_t>(to - buffer_.data()));
    const std::size_t width = widthOf(number);
    to = put(putHead(to, Format::kUID, width - 1), number, width);
  }
  return to;
}

Data BinaryPropertyListWriter::finish(Reference root) {
  if (isTooLarge() || uidCount_ > offsets_.size()) return nullptr;
  root = resolved(root);
  for (Reference& reference : references_) reference = resolved(reference);
  const std::size_t referenceWidth = widthOf(objectCount() - 1);
  const std::size_t containers = buffer_.size();
  const std::size_t table = containers + containersSize(referenceWidth) + uidsSize(uidCount_);
  const std::size_t offsetWidth = widthOf(table);
  const std::size_t size = table + objectCount() * offsetWidth + Format::kTrailerSize;
  if (size > PropertyList::kMaximumSize) return nullptr;
  buffer_.resize(size);
  char* end = putUIDs(putContainers(buffer_.data() + containers, referenceWidth));
  putTrailer(put(end, offsets_, offsetWidth),
             {offsetWidth, referenceWidth, offsets_.size(), root, table});
  return Data(std::move(buffer_));
}

}  // namespace QVPlatform
