#pragma once

#include <QVPlatform/Foundation/Array.h>
#include <QVPlatform/Foundation/Data.h>
#include <QVPlatform/Foundation/Date.h>
#include <QVPlatform/Foundation/Dictionary.h>
#include <QVPlatform/Foundation/Object.h>
#include <QVPlatform/Foundation/String.h>

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iosfwd>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace QVPlatform {

/// char and its wide relatives; signed and unsigned char are small numbers.
template <class T>
concept Character = std::same_as<T, char> || std::same_as<T, wchar_t> || std::same_as<T, char8_t> ||
    std::same_as<T, char16_t> || std::same_as<T, char32_t>;

template <class T>
concept IntegerNumber =
    std::integral<T> && !std::same_as<T, bool> && !Character<T> && sizeof(T) <= 8;

/// One value of user info, archives, user defaults or JSON: nil, a boolean, a number, text, bytes,
/// a date, an array, a dictionary, or any other object.
///
/// Numbers keep the kind that they were made with (signed or unsigned, 32 or 64 bits, or double);
/// those of fewer bits become 32 bits wide. A character is no value, since it could be meant as a
/// number or as text.
/// Copying a value shares what it refers to: an Array or a Dictionary inside is the same container
/// in both copies. Threads: as String.
class QVPLATFORM_EXPORT Value {
 public:
  using ObjectReference = std::shared_ptr<Object>;
  using Storage =
      std::variant<std::monostate, bool, std::int32_t, std::uint32_t, std::int64_t, std::uint64_t,
                   double, String, Data, Date, Array, Dictionary, ObjectReference>;

  /// Containers within containers: so deep go the values that JSON, property lists and archives are
  /// read to and written from, and what is compared and described.
  static constexpr std::size_t kMaximumDepth = 512;

  /// Nil. So is a Value made from a null String, Data, Array, Dictionary or object reference.
  Value() noexcept = default;
  Value(std::nullptr_t) noexcept {}
  template <std::same_as<bool> Boolean>
  Value(Boolean value) noexcept : storage_(value) {}
  template <IntegerNumber Number>
  Value(Number value) noexcept : storage_(widthOf(value)) {}
  template <Character Letter>
  Value(Letter) = delete;
  Value(double value) noexcept : storage_(value) {}
  Value(Date value) noexcept : storage_(value) {}
  Value(const char* utf8) : Value(String(utf8)) {}
  Value(const std::string& utf8) : Value(String(utf8)) {}
  Value(String value) noexcept { assign(std::move(value)); }
  Value(Data value) noexcept { assign(std::move(value)); }
  Value(Array value) noexcept { assign(std::move(value)); }
  Value(Dictionary value) noexcept { assign(std::move(value)); }
  template <std::derived_from<Object> T>
  Value(std::shared_ptr<T> object) noexcept {
    if (object) storage_.template emplace<ObjectReference>(std::move(object));
  }

  bool isNil() const noexcept { return std::holds_alternative<std::monostate>(storage_); }
  /// A boolean or a number of any kind.
  bool isNumber() const noexcept { return storage_.index() >= 1 && storage_.index() <= 6; }

  /// What is inside when it is of that type, else null.
  String string() const { return get<String>(); }
  Data data() const { return get<Data>(); }
  Array array() const { return get<Array>(); }
  Dictionary dictionary() const { return get<Dictionary>(); }
  ObjectReference object() const { return get<ObjectReference>(); }

  /// As a number: a double loses its fraction, of text the leading decimal integer counts (leading
  /// blanks skipped, one sign). Text and doubles out of range give the nearest end of it, what is
  /// not a number 0; of an integer intValue() keeps the low 32 bits, while longLongValue() gives
  /// the nearest end. Everything else gives 0.
  std::int32_t intValue() const;
  std::int64_t longLongValue() const;
  /// The number as a double. Of text the decimal number that it begins with counts (blanks and sign
  /// as above), with fraction and exponent. One that no double can hold gives 0, as does all else.
  double doubleValue() const;
  /// Of a number whether it is not 0; of text whether it begins, behind blanks, a sign and zeros,
  /// with a digit from 1 to 9 or with one of "YyTt". False for everything else.
  bool boolValue() const;

  /// Text as it is, and of numbers and booleans the description(); null for everything else.
  String stringValue() const;

  /// What "%@" prints: text as it is, numbers in decimal with as many digits as tell them apart
  /// ("100000", "0.1", "1e+16"), booleans as 1 and 0, containers over several lines, objects by
  /// their description(), nil as "(null)". What lies deeper than kMaximumDepth, or comes after
  /// 65,536 values (one counts each time that it is met), is "...".
  String description() const;

  /// Equal kind and content; numbers are equal when they stand for exactly the same number; objects
  /// when they are the same object; containers when they are the same one or by their elements.
  /// What lies deeper than kMaximumDepth, or comes after a million values, counted likewise, is
  /// unequal.
  friend QVPLATFORM_EXPORT bool operator==(const Value& a, const Value& b);

  /// For code that must tell every kind apart (archives, property lists).
  const Storage& storage() const noexcept { return storage_; }

 private:
  template <IntegerNumber Number>
  static auto widthOf(Number value) noexcept {
    if constexpr (sizeof(Number) <= 4) {
      return static_cast<std::conditional_t<std::is_signed_v<Number>, std::int32_t, std::uint32_t>>(
          value);
    } else {
      return static_cast<std::conditional_t<std::is_signed_v<Number>, std::int64_t, std::uint64_t>>(
          value);
    }
  }
  template <class T>
  void assign(T&& value) noexcept {
    if (!value.isNull()) storage_ = std::forward<T>(value);
  }
  template <class T>
  T get() const {
    const T* held = std::get_if<T>(&storage_);
    return held ? *held : T();
  }

  Storage storage_;
};

/// Writes the description.
template <class Traits>
std::basic_ostream<char, Traits>& operator<<(std::basic_ostream<char, Traits>& stream,
                                             const Value& value) {
  return stream << value.description().view();
}

/// `format` with each "%@" replaced by the description of the next value; a "%@" without a value
/// prints "(null)". Nothing else in the format has a special meaning.
QVPLATFORM_EXPORT String stringWithFormat(std::string_view format,
                                          std::initializer_list<Value> arguments);

}  // namespace QVPlatform
