#include <QVPlatform/Archives/KeyedArchiver.h>

#include <QVPlatform/Archives/Internal/BinaryPropertyListFormat.h>
#include <QVPlatform/Archives/Internal/BinaryPropertyListWriter.h>
#include <QVPlatform/Archives/Internal/HashIndex.h>
#include <QVPlatform/Archives/Internal/KeyedArchiveFormat.h>
#include <QVPlatform/Archives/Internal/ObjectMemo.h>
#include <QVPlatform/Archives/PropertyList.h>
#include <QVPlatform/Foundation/Coding.h>
#include <QVPlatform/Foundation/Log.h>
#include <QVPlatform/Foundation/Null.h>

#include <cxxabi.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <new>
#include <optional>
#include <span>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace QVPlatform {

namespace Format = KeyedArchiveFormat;

class KeyedArchiver::Implementation {
 public:
  explicit Implementation(KeyedArchiver& archiver) : archiver_(archiver) {
    objects_.push_back(writer_.add(Format::kNull));  // what UID 0 stands for
  }

  void encode(const Value& value, const String& key) {
    if (isFinished_ || key.isNull()) return;
    const auto uid = value.isNil() ? std::optional(writer_.addUID(0)) : add(value);
    if (uid) put(*uid, key);
  }

  void encodeInteger(std::int64_t number, const String& key) {
    if (!isFinished_ && !key.isNull()) put(writer_.add(number), key);
  }

  Data finish() {
    if (std::exchange(isFinished_, true)) return nullptr;
    const Reference top = writer_.addDictionary(keys_, values_);
    const Reference keys[] = {writer_.add(Format::kArchiverKey), writer_.add(Format::kVersionKey),
                              writer_.add(Format::kTopKey), writer_.add(Format::kObjectsKey)};
    const Reference values[] = {writer_.add(Format::kArchiver), writer_.add(Format::kVersion), top,
                                writer_.addArray(objects_)};
    return writer_.finish(writer_.addDictionary(keys, values));
  }

 private:
  using Reference = BinaryPropertyListWriter::Reference;
  /// The object that a UID is in the property list.
  using UID = Reference;

  /// Has the key stand for the value, in the archive or the object that is being archived.
  void put(Reference value, const String& key) {
    const Reference name = writer_.add(String(Format::escapedKey(key.view())));
    const auto names = keys_.begin() + static_cast<std::ptrdiff_t>(scope_.firstKey);
    const auto place = std::find(names, keys_.end(), name);
    if (place == keys_.end()) {
      keys_.push_back(name);
      values_.push_back(value);
    } else {  // of a key that is used twice, the last value counts
      values_[scope_.firstValue + static_cast<std::size_t>(place - names)] = value;
    }
  }

  /// Texts mostly lie at multiples of this.
  static constexpr std::size_t kAlignment = 16;
  /// How many elements of a list are looked at to tell how long the rest will be.
  static constexpr std::size_t kSample = 16;
  static constexpr std::size_t kRoom = 64;
  /// Texts and bytes from this size on are known by where they lie: comparing them again for each
  /// message that shares them would take longer than archiving it.
  static constexpr std::size_t kLongSize = 1024;

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
    const void* identity = nullptr;
    Value value;  // stays alive, so that no other one gets its address
    UID uid = 0;
    bool isBeingAdded = true;
  };

  /// A text that was archived more than once.
  struct Recent {
    String text;
    UID uid = 0;
  };

  UID addPlain(const String& text) {
    if (text.view().size() >= kLongSize) {
      return addLong(text, [&] { return addText(text); });
    }
    // Keys are mostly one object in all the dictionaries, which is told faster than equal text.
    const auto address = reinterpret_cast<std::uintptr_t>(text.UTF8String());
    Recent& recent = recent_[address / kAlignment % recent_.size()];
    if (recent.text.isSameObject(text)) return recent.uid;
    const std::size_t count = objects_.size();
    const UID uid = addText(text);
    if (objects_.size() == count) recent = {text, uid};
    return uid;
  }
  UID addText(const String& text) {
    if (text.view() != Format::kNull) return uidOf(writer_.add(text));
    // Other readers take this text for nil, unless it is inside an object.
    const Reference keys[] = {classKey_, writer_.add(Format::kStringKey)};
    const Reference values[] = {classNamed("NSString", {}), writer_.add(text)};
    return addObject(writer_.addDictionary(keys, values));
  }
  UID addPlain(const Data& data) {
    const auto added = [&] { return uidOf(writer_.addData(data.view())); };
    return data.view().size() >= kLongSize ? addLong(data, added) : added();
  }
  template <class Bytes, class Add>
  UID addLong(const Bytes& bytes, const Add& add) {
    const void* identity = bytes.view().data();
    const auto next = static_cast<std::uint32_t>(known_.size());
    const auto place = placeOf(identity);
    if (place == next) {
      known_.push_back({{}, identity, bytes});
      known_[place].uid = add();
    }
    return known_[place].uid;
  }
  UID addPlain(Date date) {
    const double seconds = date.secondsSince1970 - BinaryPropertyListFormat::kReferenceDate;
    const Reference keys[] = {classKey_, writer_.add(Format::kTimeKey)};
    const Reference values[] = {classNamed("NSDate", {}), writer_.add(seconds)};
    return addObject(writer_.addDictionary(keys, values));
  }
  template <class Number>
  UID addPlain(Number number) {
    return uidOf(writer_.add(number));
  }
  UID addPlain(std::monostate) { return writer_.addUID(0); }
  UID addNull() {
    contain({});
    if (nullUID_ == 0) {
      const Reference classUID[] = {classNamed("NSNull", {})};
      nullUID_ = addObject(writer_.addDictionary({&classKey_, 1}, classUID));
    }
    return nullUID_;
  }

  /// Archives what has an identity, once; `contents` writes it and answers its reference.
  template <class Contents>
  std::optional<UID> addShared(const void* identity, const Value& value, const Contents& contents) {
    if (writer_.isTooLarge()) return std::nullopt;
    if (depth_ == PropertyList::kMaximumDepth) return drop(value);
    const auto next = static_cast<std::uint32_t>(known_.size());
    const auto place = placeOf(identity);
    if (place == next) {
      const std::size_t object = objects_.size();
      known_.push_back({{}, identity, value, addObject(0)});
      const Scope outer = std::exchange(scope_, {{}, keys_.size(), values_.size()});
      ++depth_;
      const auto added = tried(contents);
      --depth_;
      if (added) {
        objects_[object] = *added;
        static_cast<Extent&>(known_[place]) = scope_;
        known_[place].isBeingAdded = false;
      }
      scope_ = outer;
    }
    const Known& known = known_[place];
    if (known.isBeingAdded || depth_ + known.height > PropertyList::kMaximumDepth ||
        (depth_ > 0 && known.expanded > ObjectMemo::expandedLimitOfElement(writer_.size()))) {
      return drop(value);
    }
    contain(known);
    return known.uid;
  }

  /// What `contents` answers; nothing when an object throws. The end of a thread is not stopped.
  template <class Contents>
  std::optional<Reference> tried(const Contents& contents) {
    try {
      return contents();
    } catch (const std::bad_alloc&) {
      isFinished_ = true;  // what was added so far is in no order
      throw;
    } catch (const abi::__forced_unwind&) {
      isFinished_ = true;
      throw;
    } catch (...) {
      keys_.resize(scope_.firstKey);
      values_.resize(scope_.firstValue);
      return std::nullopt;
    }
  }

  /// Where the thing of that address is among what has been met; the end if it is new.
  std::uint32_t placeOf(const void* identity) {
    return knownPlaces_.findOrAdd(
        Hash::of(reinterpret_cast<std::uintptr_t>(identity)),
        static_cast<std::uint32_t>(known_.size()),
        [&](std::uint32_t known) { return known_[known].identity == identity; });
  }

  /// The UID of the value, archived now if it was not before; nothing if it cannot be.
  std::optional<UID> add(const Value& value) {
    return std::visit(
        [&]<class T>(const T& held) -> std::optional<UID> {
          if constexpr (std::is_same_v<T, Array> || std::is_same_v<T, Dictionary>) {
            return addShared(held.identity(), value, [&] { return contentsOf(held); });
          } else if constexpr (std::is_same_v<T, Value::ObjectReference>) {
            if (dynamic_cast<const Null*>(held.get())) return addNull();
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
    const std::vector<Value> elements = array.values();
    for (std::size_t i = 0; i < elements.size(); ++i) {
      if (i == kSample && depth_ == 1) reserveFor(elements.size() / kSample + 1);
      const auto uid = add(elements[i]);
      values_.push_back(uid ? *uid : addNull());  // the others keep their places
    }
    const Reference keys[] = {classKey_, elementsKey_};
    const Reference values[] = {classNamed("NSMutableArray", "NSArray"),
                                listOf(values_, scope_.firstValue)};
    return writer_.addDictionary(keys, values);
  }

  /// The elements of a long list are mostly alike, so that the first ones of the outermost list
  /// tell how much there will be: so many times what there is.
  void reserveFor(std::size_t times) {
    writer_.reserve(times);
    objects_.reserve(times * objects_.size());
    plainUIDs_.reserve(times * plainUIDs_.size());
    known_.reserve(times * known_.size());
    knownPlaces_.reserve(times * known_.size());
  }

  Reference contentsOf(const Dictionary& dictionary) {
    const auto entries = dictionary.snapshot();
    for (const auto& [key, value] : *entries) {
      const auto uid = add(value);
      if (!uid) continue;
      contain({});
      keys_.push_back(addPlain(key));
      values_.push_back(*uid);
    }
    const Reference keys[] = {classKey_, keysKey_, elementsKey_};
    const Reference values[] = {classNamed("NSMutableDictionary", "NSDictionary"), listOfKeys(),
                                listOf(values_, scope_.firstValue)};
    return writer_.addDictionary(keys, values);
  }

  Reference contentsOf(const Object& object, const Coding& coding) {
    coding.encodeWithCoder(archiver_);
    keys_.push_back(classKey_);
    const String name = coding.classNameForCoder();
    values_.push_back(classNamed((name.isNull() ? object.className() : name).view(), {}));
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

  /// As listOf(), for the keys of a dictionary. Messages that follow one another mostly have the
  /// same keys: then they share one list.
  Reference listOfKeys() {
    const auto keys = std::span(keys_).subspan(scope_.firstKey);
    if (!std::ranges::equal(keys, latestKeys_) || latestKeyList_ == 0) {
      latestKeys_.assign(keys.begin(), keys.end());
      latestKeyList_ = writer_.addArray(keys);
    }
    keys_.resize(scope_.firstKey);
    return latestKeyList_;
  }

  void contain(const Extent& part) {
    scope_.height = std::max(scope_.height, part.height + 1);
    scope_.expanded += 1 + part.expanded;
  }

  UID addObject(Reference object) {
    objects_.push_back(object);
    return writer_.addUID(static_cast<std::uint32_t>(objects_.size() - 1));
  }

  /// The UID of a plain object; the writer has each of them once.
  UID uidOf(Reference plain) {
    if (plain >= plainUIDs_.size()) plainUIDs_.resize(plain + kRoom);
    UID& uid = plainUIDs_[plain];
    if (uid == 0) uid = addObject(plain);
    return uid;
  }

  /// The UID of the class; "NSObject" ends every chain.
  UID classNamed(std::string_view name, std::string_view base) {
    for (const auto& [known, uid] : classes_) {
      if (known == name) return uid;
    }
    std::vector<Reference> chain{writer_.add(name)};
    if (!base.empty()) chain.push_back(writer_.add(base));
    chain.push_back(writer_.add(std::string_view("NSObject")));
    const Reference keys[] = {writer_.add(Format::kClassNameKey), writer_.add(Format::kClassesKey)};
    const Reference values[] = {chain.front(), writer_.addArray(chain)};
    classes_.emplace_back(name, addObject(writer_.addDictionary(keys, values)));
    return classes_.back().second;
  }

  std::nullopt_t drop(const Value& value) {
    if (std::exchange(hasReported_, true)) return std::nullopt;
    const auto object = value.object();
    consoleLog(String("KeyedArchiver: ") +
               (object ? object->className() + String(" cannot be archived and is left out")
                       : String("a container within itself, nested too deeply or shared too often "
                                "is left out")));
    return std::nullopt;
  }

  KeyedArchiver& archiver_;
  BinaryPropertyListWriter writer_;
  const Reference classKey_ = writer_.add(Format::kClassKey);
  const Reference keysKey_ = writer_.add(Format::kKeysKey);
  const Reference elementsKey_ = writer_.add(Format::kElementsKey);
  std::vector<Reference> objects_;  // by what UIDs hold
  std::vector<UID> plainUIDs_;      // by reference; 0, which is "$class", for none yet
  std::vector<Known> known_;
  HashIndex knownPlaces_;  // by identity
  std::vector<std::pair<std::string, UID>> classes_;
  std::array<Recent, 64> recent_;  // by address
  std::vector<Reference> latestKeys_;
  Reference latestKeyList_ = 0;
  UID nullUID_ = 0;
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

void KeyedArchiver::encodeIntegerForKey(std::int64_t number, const String& key) {
  implementation_->encodeInteger(number, key);
}

Data KeyedArchiver::finishEncoding() { return implementation_->finish(); }

}  // namespace QVPlatform
