#include <QVPlatform/Archives/Internal/ArchiveObjects.h>

#include <QVPlatform/Archives/Internal/BinaryPropertyListFormat.h>

namespace QVPlatform {
namespace {

namespace Format = KeyedArchiveFormat;

constexpr std::size_t kRoom = 64;
/// Texts mostly lie at multiples of this.
constexpr std::size_t kAlignment = 16;
/// Texts and bytes from this size on are known by where they lie: comparing them again for each
/// message that shares them would take longer than archiving it.
constexpr std::size_t kLongSize = 1024;

}  // namespace

// "$class" is the property list's first object, so that no plain value is object 0.
ArchiveObjects::ArchiveObjects(BinaryPropertyListWriter& writer) : writer_(writer) {
  objects_.push_back(writer_.add(Format::kNull));  // what UID 0 stands for
}

ArchiveObjects::UID ArchiveObjects::add(Reference object) {
  objects_.push_back(object);
  return writer_.addUID(static_cast<std::uint32_t>(objects_.size() - 1));
}

/// The UID of a plain object; the writer has each of them once.
ArchiveObjects::UID ArchiveObjects::uidOf(Reference plain) {
  if (plain >= plainUIDs_.size()) plainUIDs_.resize(plain + kRoom);
  UID& uid = plainUIDs_[plain];
  if (uid == 0) uid = add(plain);
  return uid;
}

ArchiveObjects::UID ArchiveObjects::addPlain(const String& text) {
  if (text.view().size() >= kLongSize) {
    return addLong(text, [&] { return addText(text); });
  }
  // Keys are mostly one object in all the dictionaries, which is told faster than equal text: 2,000
  // hits are archived in 0.48 ms instead of 0.61.
  const auto address = reinterpret_cast<std::uintptr_t>(text.UTF8String());
  Recent& recent = recent_[address / kAlignment % recent_.size()];
  if (recent.text.isSameObject(text)) return recent.uid;
  const std::size_t count = objects_.size();
  const UID uid = addText(text);
  if (objects_.size() == count) recent = {text, uid};
  return uid;
}

ArchiveObjects::UID ArchiveObjects::addText(const String& text) {
  if (text.view() != Format::kNull) return uidOf(writer_.add(text));
  // Other readers take this text for nil, unless it is inside an object.
  const Reference keys[] = {classKey_, writer_.add(Format::kStringKey)};
  const Reference values[] = {classNamed("NSString", {}), writer_.add(text)};
  return add(writer_.addDictionary(keys, values));
}

ArchiveObjects::UID ArchiveObjects::addPlain(const Data& data) {
  const auto added = [&] { return uidOf(writer_.add(data)); };
  return data.view().size() >= kLongSize ? addLong(data, added) : added();
}

template <class Bytes, class Add>
ArchiveObjects::UID ArchiveObjects::addLong(const Bytes& bytes, const Add& add) {
  const void* identity = bytes.view().data();
  const auto next = static_cast<std::uint32_t>(known_.size());
  const auto place = placeOf(identity);
  if (place == next) {
    known_.push_back({{}, identity, bytes});
    known_[place].uid = add();
  }
  return known_[place].uid;
}

ArchiveObjects::UID ArchiveObjects::addPlain(Date date) {
  const double seconds = date.secondsSince1970 - BinaryPropertyListFormat::kReferenceDate;
  const Reference keys[] = {classKey_, writer_.add(Format::kTimeKey)};
  const Reference values[] = {classNamed("NSDate", {}), writer_.add(seconds)};
  return add(writer_.addDictionary(keys, values));
}

ArchiveObjects::UID ArchiveObjects::addNull() {
  if (nullUID_ == 0) {
    const Reference classUID[] = {classNamed("NSNull", {})};
    nullUID_ = add(writer_.addDictionary({&classKey_, 1}, classUID));
  }
  return nullUID_;
}

ArchiveObjects::UID ArchiveObjects::classNamed(std::string_view name, std::string_view base) {
  for (const auto& [known, uid] : classes_) {
    if (known == name) return uid;
  }
  std::vector<Reference> chain{writer_.add(name)};
  if (!base.empty()) chain.push_back(writer_.add(base));
  chain.push_back(writer_.add(std::string_view("NSObject")));
  const Reference keys[] = {writer_.add(Format::kClassNameKey), writer_.add(Format::kClassesKey)};
  const Reference values[] = {chain.front(), writer_.addArray(chain)};
  classes_.emplace_back(name, add(writer_.addDictionary(keys, values)));
  return classes_.back().second;
}

/// The number of the thing of that address among what has been met; the next one if it is new.
std::uint32_t ArchiveObjects::placeOf(const void* identity) {
  return knownPlaces_.findOrAdd(
      Hash::of(reinterpret_cast<std::uintptr_t>(identity)),
      static_cast<std::uint32_t>(known_.size()),
      [&](std::uint32_t known) { return known_[known].identity == identity; });
}

std::pair<std::uint32_t, bool> ArchiveObjects::meet(const void* identity, const Value& value) {
  const auto next = static_cast<std::uint32_t>(known_.size());
  const auto place = placeOf(identity);
  if (place != next) return {place, false};
  const auto object = static_cast<std::uint32_t>(objects_.size());
  known_.push_back({{}, identity, value, add(0), object});
  return {place, true};
}

void ArchiveObjects::finish(std::uint32_t number, Reference contents,
                            const ArchiveScopes::Extent& extent) {
  Known& known = known_[number];
  objects_[known.object] = contents;
  static_cast<ArchiveScopes::Extent&>(known) = extent;
  known.isBeingAdded = false;
}

void ArchiveObjects::reserve(std::size_t times) {
  objects_.reserve(times * objects_.size());
  plainUIDs_.reserve(times * plainUIDs_.size());
  known_.reserve(times * known_.size());
  knownPlaces_.reserve(times * known_.size());
}

}  // namespace QVPlatform
