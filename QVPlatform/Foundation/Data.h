#pragma once

#include <QVPlatform/Foundation/String.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace QVPlatform {

/// Immutable bytes that may be null; null ("there is none") and empty differ. Copies share the
/// bytes. Safe to read and copy from any number of threads.
class Data {
 public:
  Data() noexcept = default;
  Data(std::nullptr_t) noexcept {}
  /// Takes the bytes over; never null.
  explicit Data(std::string bytes) : bytes_(keep(std::move(bytes))) {}
  /// The bytes of the text, which both have from now on; null for null.
  static Data dataWithString(String text) {
    Data data;
    if (!text.isNull()) data.bytes_ = keep(std::move(text));
    return data;
  }

  bool isNull() const noexcept { return bytes_ == nullptr; }
  /// The bytes; none for null.
  std::string_view view() const noexcept { return bytes_ ? *bytes_ : std::string_view(); }
  /// The bytes read as UTF-8 text; null for null and for malformed UTF-8.
  String string() const { return isNull() ? String() : String(view()); }

  /// Equal bytes; null equals null only.
  friend bool operator==(const Data& a, const Data& b) noexcept {
    return a.isNull() == b.isNull() && a.view() == b.view();
  }

 private:
  using Bytes = std::shared_ptr<const std::string_view>;

  static std::string_view viewOf(const std::string& bytes) noexcept { return bytes; }
  static std::string_view viewOf(const String& text) noexcept { return text.view(); }
  /// What the owner has, and the owner for as long as anybody has that.
  template <class Owner>
  static Bytes keep(Owner given) {
    struct Kept {
      explicit Kept(Owner&& given) : owner(std::move(given)), bytes(viewOf(owner)) {}
      const Owner owner;
      const std::string_view bytes;
    };
    const auto kept = std::make_shared<Kept>(std::move(given));
    return {kept, &kept->bytes};
  }

  Bytes bytes_;
};

}  // namespace QVPlatform
