#include <QVPlatform/Archives/PropertyList.h>

#include <QVPlatform/Archives/Internal/BinaryPropertyListReader.h>
#include <QVPlatform/Archives/Internal/ObjectMemo.h>
#include <QVPlatform/Archives/Internal/ValueEncoder.h>
#include <QVPlatform/Archives/Internal/XMLPropertyListReader.h>

#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

namespace QVPlatform {
namespace {

/// Turns the objects of a binary property list into values.
class ValueDecoder {
 public:
  explicit ValueDecoder(std::string_view bytes)
      : reader_(bytes), memo_(reader_.size(), reader_.count()) {}

  Value decode() { return reader_.isValid() ? value(reader_.root()) : Value(); }

 private:
  using Object = BinaryPropertyListReader::Object;
  using Type = BinaryPropertyListReader::Type;

  const Value& value(BinaryPropertyListReader::Reference reference) {
    return memo_.valueOf(reference, [&] {
      const Object object = reader_.object(reference);
      memo_.countReading(object);
      if (memo_.hasFailed()) return Value();
      Value made = object.type == Type::kArray        ? array(object)
                   : object.type == Type::kDictionary ? dictionary(object)
                                                      : reader_.leaf(object);
      return made.isNil() ? memo_.fail() : made;
    });
  }

  Value array(const Object& object) {
    std::vector<Value> values;
    values.reserve(object.count);
    for (std::size_t i = 0; i < object.count && !memo_.hasFailed(); ++i) {
      values.push_back(value(reader_.reference(object, i)));
    }
    return memo_.hasFailed() ? Value() : Value(Array(std::move(values)));
  }

  Value dictionary(const Object& object) {
    std::vector<Dictionary::Entry> entries;
    entries.reserve(object.count);
    for (std::size_t i = 0; i < object.count && !memo_.hasFailed(); ++i) {
      String key = value(reader_.reference(object, i)).string();
      if (key.isNull()) return memo_.fail();
      entries.emplace_back(std::move(key), value(reader_.reference(object, object.count + i)));
    }
    return memo_.hasFailed() ? Value() : Value(Dictionary(std::move(entries)));
  }

  BinaryPropertyListReader reader_;
  ObjectMemo memo_;
};

/// Copies containers; the budgets bound what is shared, as it may be counted without end.
class DeepCopy {
 public:
  Value copy(const Value& value) {
    if (budget_ == 0 || !pay(value)) return nullptr;
    --budget_;
    return std::visit(
        [&]<class T>(const T& held) -> Value {
          if constexpr (std::is_same_v<T, Array> || std::is_same_v<T, Dictionary>) {
            if (depth_ == PropertyList::kMaximumDepth) return nullptr;
            ++depth_;
            Value copied = copyOf(held);
            --depth_;
            return copied;
          } else if constexpr (std::is_same_v<T, Value::ObjectReference>) {
            return nullptr;
          } else {
            return value;
          }
        },
        value.storage());
  }

 private:
  bool pay(const Value& value) {
    const auto* text = std::get_if<String>(&value.storage());
    const std::size_t size = text ? text->view().size() : value.data().view().size();
    if (size > bytes_) return false;
    bytes_ -= size;
    return true;
  }

  Value copyOf(const Array& array) {
    std::vector<Value> values = array.values();
    for (Value& value : values) {
      value = copy(value);
      if (value.isNil()) return nullptr;
    }
    return Array(std::move(values));
  }

  Value copyOf(const Dictionary& dictionary) {
    std::vector<Dictionary::Entry> entries = dictionary.entries();
    for (auto& entry : entries) {
      entry.second = copy(entry.second);
      if (entry.second.isNil() || !pay(entry.first)) return nullptr;
    }
    return Dictionary(std::move(entries));
  }

  std::size_t budget_ = PropertyList::kMaximumCount;
  std::size_t bytes_ = PropertyList::kMaximumCopySize;
  std::size_t depth_ = 0;
};

}  // namespace

Data PropertyList::dataWithValue(const Value& value) { return ValueEncoder().encode(value); }

Value PropertyList::valueWithData(std::string_view bytes) {
  if (bytes.starts_with("bplist")) return ValueDecoder(bytes).decode();
  return valueWithXMLPropertyList(bytes);
}

bool PropertyList::canBe(const Ends& ends, std::size_t maximumXMLSize) {
  if (ends.beginning.starts_with("bplist")) {
    return BinaryPropertyListReader::canBe(ends.beginning, ends.end, ends.size);
  }
  return ends.size <= maximumXMLSize && canBeXMLPropertyList(ends.beginning, ends.size);
}

Value PropertyList::copy(const Value& value) { return DeepCopy().copy(value); }

}  // namespace QVPlatform
