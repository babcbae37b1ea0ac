#pragma once

#include <QVPlatform/Export.h>

#include <atomic>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>
#include <type_traits>

namespace QVPlatform {

/// Immutable UTF-8 text that may be null.
///
/// A String is one pointer: copying it counts a reference and copies no text. It compares by text,
/// and it is also an object with an identity: two strings of equal text that were made apart are
/// equal and yet not the same object, while all copies of one string are. A string that is not null
/// is always well-formed UTF-8; text that is not makes a null string.
///
/// Threads: immutable, so any number of threads may read and copy one String; like any C++ value, a
/// variable that one thread assigns to must not be used by another at the same time.
class QVPLATFORM_EXPORT String {
 public:
  /// What all copies of a string share; ""_string makes that of a constant.
  class Literal {
   public:
    template <std::size_t N>
    constexpr explicit Literal(const char (&text)[N]) noexcept
        : references_(kImmortal), size_(N - 1), text_(text) {}

   private:
    friend class String;
    constexpr Literal(std::size_t size, const char* text) noexcept
        : references_(1), size_(size), text_(text) {}

    static constexpr std::uint32_t kImmortal = UINT32_MAX;
    std::atomic<std::uint32_t> references_;
    std::atomic<std::uint32_t> traits_{0};  // 0: not known yet
    std::size_t size_;
    const char* text_;
  };

  /// Null.
  constexpr String() noexcept = default;
  constexpr String(std::nullptr_t) noexcept {}
  /// The constant whose text is `literal`; all strings made from one literal are the same object.
  constexpr explicit String(Literal& literal) noexcept : storage_(&literal) {}
  /// A new string with a copy of the text; null for a null pointer and for malformed UTF-8, of
  /// which a line on the console log tells. That of a string_view is not told: it is for whoever
  /// looks himself whether bytes from somewhere are text.
  String(const char* utf8);
  String(std::string_view utf8);
  String(const std::string& utf8);

  String(const String& other) noexcept : storage_(other.storage_) { retain(); }
  String(String&& other) noexcept : storage_(other.storage_) { other.storage_ = nullptr; }
  String& operator=(String other) noexcept {
    std::swap(storage_, other.storage_);
    return *this;
  }
  constexpr ~String() {
    if (!std::is_constant_evaluated()) release();
  }

  bool isNull() const noexcept { return storage_ == nullptr; }
  /// True for null as well as for text without characters.
  bool isEmpty() const noexcept { return view().empty(); }
  /// Whether both are one object (two nulls are).
  bool isSameObject(const String& other) const noexcept { return storage_ == other.storage_; }

  /// The text; empty for null. Valid as long as a copy of this string lives.
  std::string_view view() const noexcept {
    return storage_ ? std::string_view(storage_->text_, storage_->size_) : std::string_view();
  }
  /// A copy of the text; empty for null.
  std::string stdString() const { return std::string(view()); }
  /// The text with a terminating zero byte, or nullptr for null. It may hold zero bytes itself.
  const char* UTF8String() const noexcept { return storage_ ? storage_->text_ : nullptr; }

  /// A number that is the same for equal texts, within one process. Found once for each string.
  std::uint32_t hash() const noexcept;
  /// Whether there are no characters but ASCII. Known once the hash is.
  bool isASCII() const noexcept;

  /// Whether the text begins with `prefix`. False when either is null, true for an empty prefix.
  bool hasPrefix(const String& prefix) const noexcept;
  /// This text with every occurrence of `target` replaced. Null stays null; an empty or null target
  /// changes nothing.
  String stringByReplacingOccurrencesOfString(const String& target,
                                              const String& replacement) const;
  /// This text with every %XX replaced by the byte XX; null when this is null, when a percent sign
  /// is not followed by two hexadecimal digits, or when the result is not UTF-8.
  String stringByReplacingPercentEscapes() const;
  /// The path of what is called `component` in the directory that this text names. There are never
  /// two slashes in a row, nor one at the end, but for that of the root. A null or empty component
  /// adds nothing, and so does a null directory; null for two nulls.
  String stringByAppendingPathComponent(const String& component) const;

  /// Equal text; null equals null only.
  friend bool operator==(const String& a, const String& b) noexcept {
    return a.storage_ == b.storage_ || (a.isNull() == b.isNull() && a.view() == b.view());
  }
  /// By bytes, null first.
  friend std::strong_ordering operator<=>(const String& a, const String& b) noexcept {
    if (a.isNull() != b.isNull()) return b.isNull() <=> a.isNull();
    return a.view() <=> b.view();
  }

 private:
  void retain() const noexcept {
    if (storage_ && storage_->references_.load(std::memory_order_relaxed) != Literal::kImmortal) {
      storage_->references_.fetch_add(1, std::memory_order_relaxed);
    }
  }
  void release() noexcept {
    if (storage_ && storage_->references_.load(std::memory_order_relaxed) != Literal::kImmortal) {
      releaseOwned();
    }
  }
  void releaseOwned() noexcept;
  std::uint32_t traits() const noexcept;

  Literal* storage_ = nullptr;
};

/// Writes the text, and "(null)" for null.
template <class Traits>
std::basic_ostream<char, Traits>& operator<<(std::basic_ostream<char, Traits>& stream,
                                             const String& text) {
  return stream << (text.isNull() ? std::string_view("(null)") : text.view());
}

/// The texts of both, joined; a null counts as empty.
QVPLATFORM_EXPORT String operator+(const String& a, const String& b);

/// The characters of a text in the source, as an argument of a template.
template <std::size_t N>
struct LiteralText {
  consteval LiteralText(const char (&text)[N]) noexcept {
    for (std::size_t i = 0; i < N; ++i) characters[i] = text[i];
  }
  char characters[N]{};
};

/// Each library has its own, so that none leads into another one.
template <LiteralText text>
[[gnu::visibility("hidden")]] inline constinit String::Literal literal{text.characters};

/// A constant:
///
///     constexpr String kName = "QVNotification: Hit Sent"_string;
///
/// It is initialised before any code runs and is never destroyed. Within one library, constants of
/// equal text are the same object.
template <LiteralText text>
constexpr String operator""_string() noexcept {
  return String(literal<text>);
}

}  // namespace QVPlatform

/// @cond
template <>
struct std::hash<QVPlatform::String> {
  std::size_t operator()(const QVPlatform::String& text) const noexcept { return text.hash(); }
};
/// @endcond
