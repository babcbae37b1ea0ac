#include <QVPlatform/Archives/KeyedArchiver.h>

#include <QVPlatform/Archives/Internal/ArchiveObjects.h>
#include <QVPlatform/Archives/Internal/ArchiveScopes.h>
#include <QVPlatform/Archives/Internal/BinaryPropertyListWriter.h>
#include <QVPlatform/Archives/Internal/KeyedArchiveFormat.h>
#include <QVPlatform/Archives/Internal/ObjectMemo.h>
#include <QVPlatform/Archives/PropertyList.h>
#include <QVPlatform/Foundation/Coding.h>
#include <QVPlatform/Foundation/Log.h>
#include <QVPlatform/Foundation/Null.h>

#include <cxxabi.h>

#include <algorithm>
#include <cstdint>
#include <new>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

// An archive is made in one walk through the values. ArchiveObjects has the list of all objects, in
// which each has its place, and so its UID, before its contents are known: what refers back to it
// finds the UID there. ArchiveScopes has the way from the archive to the object that is being
// archived. An object collects the UIDs of its contents in its scope; when it is complete, they go
// to the writer as one list, the scope ends, and the object's own UID goes to the scope around it.
// Each scope also counts how deep and how large its object is for the reader, who has limits, so
// that what the reader would refuse is left out here.

namespace QVPlatform {

namespace Format = KeyedArchiveFormat;

struct KeyedArchiver::State {
  explicit State(KeyedArchiver& archiver) : archiver_(archiver) {}

  void encode(const Value& value, const String& key) {
    put(key, [&] { return value.isNil() ? std::optional(writer_.addUID(0)) : add(value); });
  }

  void encodeInteger(std::int64_t number, const String& key) {
    put(key, [&] { return std::optional(writer_.add(number)); });
  }

  Data finish() {
    if (std::exchange(isFinished_, true)) return nullptr;
    const Reference top = writer_.addDictionary(scopes_.keys(), scopes_.values());
    const Reference keys[] = {writer_.add(Format::kArchiverKey), writer_.add(Format::kVersionKey),
                              writer_.add(Format::kTopKey), writer_.add(Format::kObjectsKey)};
    const Reference values[] = {writer_.add(Format::kArchiver), writer_.add(Format::kVersion), top,
                                writer_.addArray(objects_.all())};
    return writer_.finish(writer_.addDictionary(keys, values));
  }

 private:
  using Reference = BinaryPropertyListWriter::Reference;
  using UID = ArchiveObjects::UID;

  /// How many elements of a list are looked at to tell how long the rest will be.
  static constexpr std::size_t kSample = 16;

  /// Has the key stand for what `added` answers. When memory runs out in the middle, or the thread
  /// ends, what was added so far is in no order: there will be no archive.
  template <class Added>
  void put(const String& key, const Added& added) {
    if (isFinished_ || key.isNull()) return;
    try {
      if (const auto value = added()) put(*value, key);
    } catch (...) {
      isFinished_ = true;
      throw;
    }
  }

  /// Has the key stand for the value, in the archive or the object that is being archived.
  void put(Reference value, const String& key) {
    scopes_.put(writer_.add(String(Format::escapedKey(key.view()))), value);
  }

  /// What `contents` answers; nothing when an object throws. The end of a thread is not stopped.
  template <class Contents>
  std::optional<Reference> tried(const Contents& contents) {
    try {
      return contents();
    } catch (const std::bad_alloc&) {
      throw;
    } catch (const abi::__forced_unwind&) {
      throw;
    } catch (...) {
      return std::nullopt;
    }
  }

  /// Archives what has an identity, once; `contents` writes it and answers its reference.
  template <class Contents>
  std::optional<UID> addShared(const void* identity, const Value& value, const Contents& contents) {
    if (writer_.isTooLarge()) return std::nullopt;
    if (scopes_.depth() == PropertyList::kMaximumDepth) return drop(value);
    const auto [number, isNew] = objects_.meet(identity, value);
    if (isNew) {
      const auto outer = scopes_.enter();
      const auto added = tried(contents);
      const auto extent = scopes_.leave(outer);
      if (added) objects_.finish(number, *added, extent);
    }
    const ArchiveObjects::Known& known = objects_.known(number);
    if (known.isBeingAdded || isTooMuch(known)) return drop(value);
    scopes_.contain(known);
    return known.uid;
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
            scopes_.contain({});
            return objects_.addPlain(held);
          }
        },
        value.storage());
  }

  UID addNull() {
    scopes_.contain({});
    return objects_.addNull();
  }

  /// Whether the reader would refuse it where it stands now.
  bool isTooMuch(const ArchiveScopes::Extent& extent) const {
    return scopes_.depth() + extent.height > PropertyList::kMaximumDepth ||
           (scopes_.depth() > 0 &&
            extent.expanded > ObjectMemo::expandedLimitOfElement(writer_.size()));
  }

  Reference contentsOf(const Array& array) {
    const std::vector<Value> elements = array.values();
    for (std::size_t i = 0; i < elements.size(); ++i) {
      if (i == kSample && scopes_.depth() == 1) reserveFor(elements.size() / kSample + 1);
      const auto uid = add(elements[i]);
      scopes_.pushValue(uid ? *uid : addNull());  // the others keep their places
    }
    const Reference keys[] = {objects_.classKey(), elementsKey_};
    const Reference values[] = {objects_.classNamed("NSMutableArray", "NSArray"),
                                writer_.addArray(scopes_.values())};
    return writer_.addDictionary(keys, values);
  }

  /// The elements of a long list are mostly alike, so that the first ones of the outermost list
  /// tell how much there will be: so many times what there is. It brings 2,000 hits from 0.79 ms
  /// to 0.53.
  void reserveFor(std::size_t times) {
    writer_.reserve(times);
    objects_.reserve(times);
  }

  Reference contentsOf(const Dictionary& dictionary) {
    const auto entries = dictionary.snapshot();
    for (const auto& [key, value] : *entries) {
      const auto uid = add(value);
      if (!uid) continue;
      scopes_.contain({});
      scopes_.pushKey(objects_.addPlain(key));
      scopes_.pushValue(*uid);
    }
    const Reference keys[] = {objects_.classKey(), keysKey_, elementsKey_};
    const Reference values[] = {objects_.classNamed("NSMutableDictionary", "NSDictionary"),
                                listOfKeys(), writer_.addArray(scopes_.values())};
    return writer_.addDictionary(keys, values);
  }

  /// The list of the scope's keys. Messages that follow one another mostly have the same keys: then
  /// they share one list. Without that 2,000 hits take 8 % longer to be archived, and 30 % to be
  /// read.
  Reference listOfKeys() {
    const auto keys = scopes_.keys();
    if (!std::ranges::equal(keys, latestKeys_) || latestKeyList_ == 0) {
      latestKeys_.assign(keys.begin(), keys.end());
      latestKeyList_ = writer_.addArray(keys);
    }
    return latestKeyList_;
  }

  Reference contentsOf(const Object& object, const Coding& coding) {
    coding.encodeWithCoder(archiver_);
    const String name = coding.classNameForCoder();
    scopes_.pushKey(objects_.classKey());
    scopes_.pushValue(objects_.classNamed((name.isNull() ? object.className() : name).view(), {}));
    return writer_.addDictionary(scopes_.keys(), scopes_.values());
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
  ArchiveObjects objects_{writer_};
  ArchiveScopes scopes_;
  const Reference keysKey_ = writer_.add(Format::kKeysKey);
  const Reference elementsKey_ = writer_.add(Format::kElementsKey);
  std::vector<Reference> latestKeys_;
  Reference latestKeyList_ = 0;
  bool hasReported_ = false;
  bool isFinished_ = false;
};

KeyedArchiver::KeyedArchiver() : state_(std::make_unique<State>(*this)) {}

KeyedArchiver::~KeyedArchiver() = default;

void KeyedArchiver::encodeObjectForKey(const Value& value, const String& key) {
  state_->encode(value, key);
}

void KeyedArchiver::encodeIntegerForKey(std::int64_t number, const String& key) {
  state_->encodeInteger(number, key);
}

Data KeyedArchiver::finishEncoding() { return state_->finish(); }

}  // namespace QVPlatform
