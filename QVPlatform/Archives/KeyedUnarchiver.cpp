#include <QVPlatform/Archives/KeyedUnarchiver.h>

#include <QVPlatform/Archives/Internal/BinaryPropertyListFormat.h>
#include <QVPlatform/Archives/Internal/BinaryPropertyListReader.h>
#include <QVPlatform/Archives/Internal/KeyedArchiveFormat.h>
#include <QVPlatform/Archives/Internal/ObjectMemo.h>
#include <QVPlatform/Archives/Internal/ValueEncoder.h>
#include <QVPlatform/Archives/Internal/XMLPropertyListReader.h>
#include <QVPlatform/Foundation/ClassRegistry.h>
#include <QVPlatform/Foundation/Coding.h>
#include <QVPlatform/Foundation/Log.h>
#include <QVPlatform/Foundation/Null.h>

#include <cxxabi.h>

#include <algorithm>
#include <new>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

// The archive is not turned into values as a whole: an object is made when somebody decodes a key
// that leads to it, and what it contains with it. BinaryPropertyListReader reads one object of the
// file where it lies. ObjectMemo makes the value of each UID once, so that what was one object is
// one again, and keeps count of what the file does; once it has found damage, every answer is nil.
// While an object is made by its own initWithCoder(), `scope_` is the dictionary of its keys.
//
// What a class name means and what a list of keys holds is found out once for each, since the
// messages of one archive are mostly of the same classes and with the same keys.

namespace QVPlatform {
namespace {

namespace Format = KeyedArchiveFormat;

enum class ClassKind { kUnknown, kArray, kDictionary, kString, kData, kDate, kNull, kRegistered };

struct ClassInfo {
  ClassKind kind = ClassKind::kUnknown;
  String name;
};

/// Messages lie far apart in a file: while one is read, a later one is on its way from memory.
constexpr std::size_t kAhead = 4;

constexpr std::pair<std::string_view, ClassKind> kClasses[] = {
    {"NSArray", ClassKind::kArray},
    {"NSMutableArray", ClassKind::kArray},
    {"NSDictionary", ClassKind::kDictionary},
    {"NSMutableDictionary", ClassKind::kDictionary},
    {"NSString", ClassKind::kString},
    {"NSMutableString", ClassKind::kString},
    {"NSData", ClassKind::kData},
    {"NSMutableData", ClassKind::kData},
    {"NSDate", ClassKind::kDate},
    {"NSNull", ClassKind::kNull},
};

ClassInfo classNamed(const String& name) {
  for (const auto& [known, kind] : kClasses) {
    if (known == name.view()) return {kind, name};
  }
  return {ClassRegistry::isRegistered(name) ? ClassKind::kRegistered : ClassKind::kUnknown, name};
}

/// XML archives are turned into binary ones, so that there is one way to read them.
Data binaryArchive(const Data& archive) {
  if (archive.view().starts_with("bplist")) return archive;
  return ValueEncoder(ValueEncoder::UIDs::kAreReferences)
      .encode(valueWithXMLPropertyList(archive.view()));
}

}  // namespace

struct KeyedUnarchiver::State {
  State(KeyedUnarchiver& unarchiver, const Data& archive)
      : unarchiver_(unarchiver),
        archive_(binaryArchive(archive)),
        reader_(archive_.view()),
        root_(reader_.object(reader_.root())),
        objects_(child(root_, Format::kObjectsKey)),
        // There are never more, and a damaged file may claim any number.
        memo_(ObjectMemo::ofArchive(reader_.size(), std::min(objects_.count, reader_.count()))),
        scope_(child(root_, Format::kTopKey)) {
    const Value archiver = reader_.leaf(child(root_, Format::kArchiverKey));
    if (archiver.string().view() != Format::kArchiver || scope_.type != Type::kDictionary ||
        objects_.type != Type::kArray) {
      memo_.fail();
    }
  }

  bool isValid() const { return !memo_.hasFailed(); }

  Value decode(const String& key) {
    if (key.isNull() || !isValid()) return nullptr;
    try {
      const Value value = entry(scope_, Format::escapedKey(key.view()));
      return isValid() ? value : Value();
    } catch (...) {
      memo_.fail();  // what is half made must not be met again
      throw;
    }
  }

 private:
  using Object = BinaryPropertyListReader::Object;
  using Reference = BinaryPropertyListReader::Reference;
  using Type = BinaryPropertyListReader::Type;
  using Key = BinaryPropertyListReader::Key;

  /// The object under a dictionary's key; a damaged object when the key is missing.
  Object child(const Object& dictionary, std::string_view key) const {
    Key once{key};
    return child(dictionary, once);
  }
  Object child(const Object& dictionary, Key& key) const {
    const auto reference = reader_.valueForKey(dictionary, key);
    return reference ? reader_.object(*reference) : Object();
  }

  /// What an object has under a key: another object, or a plain value in place.
  Value entry(const Object& dictionary, std::string_view key) {
    Key once{key};
    const auto reference = reader_.valueForKey(dictionary, once);
    if (!reference) return nullptr;
    const Object found = reader_.object(*reference);
    if (found.type == Type::kUID) return valueOfUID(*reference);
    if (found.type != Type::kLeaf) return nullptr;
    memo_.countReading(found);
    return leaf(found);
  }

  Value leaf(const Object& object) {
    const Value value = memo_.hasFailed() ? Value() : reader_.leaf(object);
    return value.isNil() ? memo_.fail() : value;
  }

  const Value& valueOfUID(Reference reference) {
    const auto uid = reader_.uid(reference);
    if (uid == 0U) return nil_;
    if (!uid || *uid >= objects_.count) return memo_.fail();
    return memo_.valueOf(*uid, [&] {
      const Object archived = reader_.object(reader_.reference(objects_, *uid));
      memo_.countReading(archived);
      return memo_.hasFailed() ? Value() : make(archived);
    });
  }

  Value make(const Object& object) {
    if (object.type == Type::kLeaf) return leaf(object);
    if (object.type != Type::kDictionary) return memo_.fail();
    const ClassInfo info = classOf(object);
    switch (info.kind) {
      case ClassKind::kArray:
        return makeArray(object);
      case ClassKind::kDictionary:
        return makeDictionary(object);
      case ClassKind::kString:
        return makeString(object);
      case ClassKind::kData:
        return makeData(object);
      case ClassKind::kDate:
        return makeDate(object);
      case ClassKind::kNull:
        return Null::null();
      case ClassKind::kRegistered:
        return makeRegistered(object, info.name);
      case ClassKind::kUnknown:
        break;
    }
    return nullptr;
  }

  /// The list of UIDs that stands under the key.
  Object list(const Object& object, Key& key) {
    const Object found = child(object, key);
    memo_.countReading(found);
    if (found.type != Type::kArray) memo_.fail();
    return found;
  }

  Value makeArray(const Object& object) {
    const Object elements = list(object, elementsKey_);
    if (memo_.hasFailed()) return nullptr;
    std::vector<Value> values;
    values.reserve(elements.count);
    for (std::size_t i = 0; i < elements.count && !memo_.hasFailed(); ++i) {
      if (i + kAhead < elements.count) reader_.prefetch(reader_.reference(elements, i + kAhead));
      values.push_back(valueOfUID(reader_.reference(elements, i)));
      if (values.back().isNil()) values.back() = Null::null();  // the others keep their places
    }
    return memo_.hasFailed() ? Value() : Value(Array(std::move(values)));
  }

  Value makeDictionary(const Object& object) {
    const std::vector<String>& keys = keysOf(object);
    const Object elements = list(object, elementsKey_);
    if (keys.size() != elements.count) return memo_.fail();
    std::vector<Dictionary::Entry> entries;
    entries.reserve(keys.size());
    for (std::size_t i = 0; i < keys.size() && !memo_.hasFailed(); ++i) {
      entries.emplace_back(keys[i], valueOfUID(reader_.reference(elements, i)));
    }
    return memo_.hasFailed() ? Value() : Value(Dictionary(std::move(entries)));
  }

  /// The keys of a dictionary. Their list is read once, however many dictionaries share it.
  const std::vector<String>& keysOf(const Object& dictionary) {
    const auto reference = reader_.valueForKey(dictionary, keysKey_);
    const auto [place, isNew] = keyLists_.try_emplace(reference.value_or(0));
    std::vector<String>& keys = place->second;
    if (!isNew) return keys;
    const Object keyList = list(dictionary, keysKey_);
    if (!memo_.hasFailed()) keys.reserve(keyList.count);
    for (std::size_t i = 0; i < keyList.count && !memo_.hasFailed(); ++i) {
      keys.push_back(valueOfUID(reader_.reference(keyList, i)).string());
    }
    return keys;
  }

  Value makeString(const Object& object) {
    const Value text = entry(object, Format::kStringKey);
    return text.isNil() ? Value(entry(object, Format::kBytesKey).data().string()) : text.string();
  }

  Value makeData(const Object& object) {
    const Value bytes = entry(object, Format::kDataKey);
    return bytes.isNil() ? entry(object, Format::kBytesKey).data() : bytes.data();
  }

  Value makeDate(const Object& object) {
    const Value time = entry(object, Format::kTimeKey);
    if (!time.isNumber()) return nullptr;
    const auto* seconds = std::get_if<double>(&time.storage());
    return Date{(seconds ? *seconds : static_cast<double>(time.longLongValue())) +
                BinaryPropertyListFormat::kReferenceDate};
  }

  Value makeRegistered(const Object& object, const String& name) {
    const Object outer = std::exchange(scope_, object);
    try {
      const auto made = ClassRegistry::make(name);
      auto* coding = dynamic_cast<Coding*>(made.get());
      if (coding) coding->initWithCoder(unarchiver_);
      scope_ = outer;
      return coding ? Value(made) : Value();
    } catch (const std::bad_alloc&) {
      throw;
    } catch (const abi::__forced_unwind&) {
      throw;
    } catch (...) {
      if (!std::exchange(hasReported_, true)) {
        consoleLog(String("KeyedUnarchiver: ") + name + String(" cannot be read and is left out"));
      }
    }
    scope_ = outer;
    return nullptr;
  }

  /// The first class that is known here, from the object's own up to its bases.
  ClassInfo classOf(const Object& object) {
    const auto reference = reader_.valueForKey(object, classKey_);
    const auto uid = reference ? reader_.uid(*reference) : std::nullopt;
    if (!uid || *uid >= objects_.count) return {};
    const auto [place, isNew] = classes_.try_emplace(*uid);
    if (!isNew) return place->second;
    const Object description = reader_.object(reader_.reference(objects_, *uid));
    memo_.countReading(description);
    const Object name = child(description, Format::kClassNameKey);
    const Object chain = child(description, Format::kClassesKey);
    ClassInfo info = classNamedBy(name);
    if (chain.type != Type::kArray) return place->second = info;
    for (std::size_t i = 0; i < chain.count && !memo_.hasFailed(); ++i) {
      if (info.kind != ClassKind::kUnknown) break;
      info = classNamedBy(reader_.object(reader_.reference(chain, i)));
    }
    return place->second = info;
  }

  ClassInfo classNamedBy(const Object& text) {
    memo_.countReading(text);
    return memo_.hasFailed() ? ClassInfo() : classNamed(reader_.leaf(text).string());
  }

  KeyedUnarchiver& unarchiver_;
  const Data archive_;
  const BinaryPropertyListReader reader_;
  const Object root_;
  const Object objects_;
  ObjectMemo memo_;
  Object scope_;  // the dictionary whose keys are decoded: the archive's top, or an object
  Key classKey_{Format::kClassKey};
  Key keysKey_{Format::kKeysKey};
  Key elementsKey_{Format::kElementsKey};
  std::unordered_map<std::uint32_t, ClassInfo> classes_;         // by UID
  std::unordered_map<Reference, std::vector<String>> keyLists_;  // by their lists
  const Value nil_;
  bool hasReported_ = false;
};

KeyedUnarchiver::KeyedUnarchiver(const Data& archive)
    : state_(std::make_unique<State>(*this, archive)) {}

KeyedUnarchiver::~KeyedUnarchiver() = default;

bool KeyedUnarchiver::isValid() const { return state_->isValid(); }

Value KeyedUnarchiver::decodeObjectForKey(const String& key) { return state_->decode(key); }

}  // namespace QVPlatform
