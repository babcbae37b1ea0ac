#include <QVPlatform/Foundation/Coding.h>
#include <QVPlatform/Foundation/KeyedArchiver.h>
#include <QVPlatform/Foundation/Log.h>
#include <QVPlatform/Foundation/PropertyList.h>
#include <QVPlatform/Foundation/PropertyList/BinaryPropertyListFormat.h>
#include <QVPlatform/Foundation/PropertyList/BinaryPropertyListWriter.h>
#include <QVPlatform/Foundation/PropertyList/KeyedArchiveFormat.h>
#include <QVPlatform/Foundation/PropertyList/ObjectMemo.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

namespace QVPlatform {

namespace Format = KeyedArchiveFormat;

class KeyedArchiver::Implementation {
 public:
  explicit Implementation(KeyedArchiver& archiver) : archiver_(archiver) {
    objects_.push_back(writer_.add(Format::kNull));
  }

  void encode(const Value& value, const String& key) {
    if (isFinished_ || key.isNull()) return;
    const auto uid = value.isNil() ? std::optional(kNil) : add(value);
    if (!uid) return;
    const Reference name = writer_.add(Format::escapedKey(key.view()));
    const auto names = keys_.begin() + static_cast<std::ptrdiff_t>(scope_.firstKey);
    const auto place = std::find(names, keys_.end(), name);
    if (place == keys_.end()) {
      keys_.push_back(name);
      values_.push_back(reference(*uid));
    } else {  // of a key that is used twice, the last value counts
      values_[scope_.firstValue + static_cast<std::size_t>(place - names)] = reference(*uid);
    }
  }

  Data finish() {
    if (std::exchange(isFinished_, true)) return nullptr;
    const Reference top = writer_.addDictionary(keys_, values_);
    const Reference keys[] = {writer_.add(Format::kArchiverKey), writer_.add(Format::kVersionKey),
                              writer_.add(Format::kTopKey), writer_.add(Format::kObjectsKey)};
    const Reference values[] = {writer_.add(Format::kArchiver), writer_.add(Format::kVersion), top,
                                writer_.addArray(objects_)};
    const Data archive = writer_.finish(writer_.addDictionary(keys, values));
    const bool isReadable = scope_.expanded <= ObjectMemo::expandedLimit(archive.view().size());
    return isReadable ? archive : Data();
  }

 private:
  using Reference = BinaryPropertyListWriter::Reference;
  /// The number of an object in the archive.
  using UID = std::uint32_t;
  static constexpr UID kNil = 0;

  /// What the reader will ask of an object: levels below it, and values in it, counted as often as
  /// they are referred to.
  struct Extent {
    std::uint32_t height = 0;
    std::uint64_t expanded = 0;
  };

  /// The container or object that is being archived; its contents are the ends of the stacks.
  struct Scope : Extent {
    std::size_t firstKey = 0;
    std::size_t firstValue = 0;
  };

  /// A container or object that has been met before.
  struct Known : Extent {
    Value value;  // stays alive, so that no other one gets its address
    UID uid = kNil;
    bool isBeingAdded = true;
  };

  /// A text that was archived lately.
  struct Recent {
    String text;
    UID uid = kNil;
  };

  UID addPlain(const String& text) {
    // Keys are mostly one object in all the dictionaries, which is told faster than equal text.
    const auto address = reinterpret_cast<std::uintptr_t>(text.UTF8String());
    Recent& recent = recent_[address % recent_.size()];
    if (!recent.text.isSameObject(text)) recent = {text, addText(text)};
    return recent.uid;
  }
  UID addText(const String& text) {
    if (text.view() != Format::kNull) return leaf(writer_.add(text.view()));
    // Other readers take this text for nil, unless it is inside an object.
    const Reference keys[] = {classKey_, writer_.add(Format::kStringKey)};
    const Reference values[] = {classReference("NSString", {}), writer_.add(text.view())};
    return addObject(writer_.addDictionary(keys, values));
  }
  UID addPlain(const Data& data) { return leaf(writer_.addData(data.view())); }
  UID addPlain(Date date) {
    const double seconds = date.secondsSince1970 - BinaryPropertyListFormat::kReferenceDate;
    const Reference keys[] = {classKey_, writer_.add(Format::kTimeKey)};
    const Reference values[] = {classReference("NSDate", {}), writer_.add(seconds)};
    return addObject(writer_.addDictionary(keys, values));
  }
  template <class Number>
  UID addPlain(Number number) {
    return leaf(writer_.add(number));
  }
  UID addPlain(std::monostate) { return kNil; }

  /// Archives what has an identity, once; `contents` writes it and answers its reference.
  template <class Contents>
  std::optional<UID> addShared(const void* identity, const Value& value, const Contents& contents) {
    Known& known = known_[identity];
    const bool isNew = known.uid == kNil;
    if (!isNew && known.isBeingAdded) return drop(value);
    if (depth_ + std::max(known.height, 1U) > PropertyList::kMaximumDepth) {
      if (isNew) known_.erase(identity);
      return drop(value);
    }
    if (isNew) {
      known.value = value;
      known.uid = addObject(0);
      const Scope outer = std::exchange(scope_, {{}, keys_.size(), values_.size()});
      ++depth_;
      objects_[known.uid] = contents();
      --depth_;
      static_cast<Extent&>(known) = scope_;
      scope_ = outer;
      known.isBeingAdded = false;
    }
    contain(known);
    return known.uid;
  }

  /// The number of the value, archived now if it was not before; nothing if it cannot be.
  std::optional<UID> add(const Value& value) {
    return std::visit(
        [&]<class T>(const T& held) -> std::optional<UID> {
          if constexpr (std::is_same_v<T, Array> || std::is_same_v<T, Dictionary>) {
            return addShared(held.identity(), value, [&] { return contentsOf(held); });
          } else if constexpr (std::is_same_v<T, Value::ObjectReference>) {
            const auto* coding = dynamic_cast<const Coding*>(held.get());
            if (!coding) return drop(value);
            return addShared(held.get(), value, [&] { return contentsOf(*held, *coding); });
          } else {
            contain({});
            return addPlain(held);
          }
        },
        value.storage());
  }

  Reference contentsOf(const Array& array) {
    for (const Value& element : array.values()) {
      if (const auto uid = add(element)) values_.push_back(reference(*uid));
    }
    const Reference keys[] = {classKey_, elementsKey_};
    const Reference values[] = {classReference("NSMutableArray", "NSArray"),
                                listOf(values_, scope_.firstValue)};
    return writer_.addDictionary(keys, values);
  }

  Reference contentsOf(const Dictionary& dictionary) {
    for (const auto& [key, value] : dictionary.entries()) {
      const auto uid = add(value);
      if (!uid) continue;
      contain({});
      keys_.push_back(reference(addPlain(key)));
      values_.push_back(reference(*uid));
    }
    const Reference keys[] = {classKey_, keysKey_, elementsKey_};
    const Reference values[] = {classReference("NSMutableDictionary", "NSDictionary"),
                                listOf(keys_, scope_.firstKey), listOf(values_, scope_.firstValue)};
    return writer_.addDictionary(keys, values);
  }

  Reference contentsOf(const Object& object, const Coding& coding) {
    coding.encodeWithCoder(archiver_);
    keys_.push_back(classKey_);
    values_.push_back(classReference(object.className().view(), {}));
    const Reference dictionary = writer_.addDictionary(
        std::span(keys_).subspan(scope_.firstKey), std::span(values_).subspan(scope_.firstValue));
    keys_.resize(scope_.firstKey);
    values_.resize(scope_.firstValue);
    return dictionary;
  }

  /// A list of what the scope has on the stack, which is taken off.
  Reference listOf(std::vector<Reference>& stack, std::size_t first) {
    const Reference list = writer_.addArray(std::span(stack).subspan(first));
    stack.resize(first);
    return list;
  }

  void contain(const Extent& part) {
    scope_.height = std::max(scope_.height, part.height + 1);
    scope_.expanded += 1 + part.expanded;
  }

  UID addObject(Reference object) {
    objects_.push_back(object);
    return static_cast<UID>(objects_.size() - 1);
  }

  /// The number of a plain object; the writer has each of them once.
  UID leaf(Reference object) {
    if (object >= leafUIDs_.size()) leafUIDs_.resize(2 * object + 64, kNil);
    UID& uid = leafUIDs_[object];
    if (uid == kNil) uid = addObject(object);
    return uid;
  }

  /// The UID object for that number.
  Reference reference(UID uid) {
    if (uid >= uidReferences_.size()) uidReferences_.resize(2 * uid + 64);
    Reference& known = uidReferences_[uid];
    if (known == 0) known = writer_.addUID(uid);
    return known;
  }

  /// The UID object for the class; "NSObject" ends every chain.
  Reference classReference(std::string_view name, std::string_view base) {
    for (const auto& [known, uid] : classes_) {
      if (known == name) return reference(uid);
    }
    std::vector<Reference> chain{writer_.add(name)};
    if (!base.empty()) chain.push_back(writer_.add(base));
    chain.push_back(writer_.add(std::string_view("NSObject")));
    const Reference keys[] = {writer_.add(Format::kClassNameKey), writer_.add(Format::kClassesKey)};
    const Reference values[] = {chain.front(), writer_.addArray(chain)};
    classes_.emplace_back(name, addObject(writer_.addDictionary(keys, values)));
    return reference(classes_.back().second);
  }

  std::nullopt_t drop(const Value& value) {
    if (std::exchange(hasReported_, true)) return std::nullopt;
    const auto object = value.object();
    consoleLog(String("KeyedArchiver: ") +
               (object ? object->className() + String(" cannot be archived and is left out")
                       : String("a container within itself or nested too deeply is left out")));
    return std::nullopt;
  }

  KeyedArchiver& archiver_;
  BinaryPropertyListWriter writer_;
  const Reference classKey_ = writer_.add(Format::kClassKey);
  const Reference keysKey_ = writer_.add(Format::kKeysKey);
  const Reference elementsKey_ = writer_.add(Format::kElementsKey);
  std::vector<Reference> objects_;                // by UID
  std::vector<Reference> uidReferences_;          // by UID; 0, which is "$null", for none yet
  std::vector<UID> leafUIDs_;                     // by reference
  std::unordered_map<const void*, Known> known_;  // by identity
  std::vector<std::pair<std::string, UID>> classes_;
  std::array<Recent, 61> recent_;  // by address
  std::vector<Reference> keys_;
  std::vector<Reference> values_;
  Scope scope_;
  std::size_t depth_ = 0;
  bool hasReported_ = false;
  bool isFinished_ = false;
};

KeyedArchiver::KeyedArchiver() : implementation_(std::make_unique<Implementation>(*this)) {}

KeyedArchiver::~KeyedArchiver() = default;

void KeyedArchiver::encodeObjectForKey(const Value& value, const String& key) {
  implementation_->encode(value, key);
}

Data KeyedArchiver::finishEncoding() { return implementation_->finish(); }

}  // namespace QVPlatform
