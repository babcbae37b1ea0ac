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
  explicit Data(std::string bytes)
      : bytes_(std::make_shared<const std::string>(std::move(bytes))) {}

  bool isNull() const noexcept { return bytes_ == nullptr; }
  /// The bytes; none for null.
  std::string_view view() const noexcept {
    return bytes_ ? std::string_view(*bytes_) : std::string_view();
  }
  /// The bytes read as UTF-8 text; null for null and for malformed UTF-8.
  String string() const { return isNull() ? String() : String(view()); }

  /// Equal bytes; null equals null only.
  friend bool operator==(const Data& a, const Data& b) noexcept {
    return a.isNull() == b.isNull() && a.view() == b.view();
  }

 private:
  std::shared_ptr<const std::string> bytes_;
};

}  // namespace QVPlatform
