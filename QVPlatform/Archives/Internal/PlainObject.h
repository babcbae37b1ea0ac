#pragma once

#include <QVPlatform/Foundation/Data.h>
#include <QVPlatform/Foundation/Date.h>
#include <QVPlatform/Foundation/String.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace QVPlatform {

/// What a boolean, a number, a date, a text or bytes are in a binary property list: a head, and
/// behind it the content, which only texts and bytes have. It does not copy them, so they must
/// outlive it.
class PlainObject {
 public:
  explicit PlainObject(bool value);
  explicit PlainObject(std::int32_t value);
  explicit PlainObject(std::uint32_t value);
  explicit PlainObject(std::int64_t value);
  explicit PlainObject(std::uint64_t value);
  explicit PlainObject(double value);
  explicit PlainObject(Date value);
  explicit PlainObject(const String& text);
  explicit PlainObject(const Data& bytes);
  PlainObject(const PlainObject&) = delete;
  PlainObject& operator=(const PlainObject&) = delete;

  std::string_view head() const { return {head_, headSize_}; }
  std::string_view content() const { return content_; }
  std::size_t size() const { return headSize_ + content_.size(); }

 private:
  /// Bytes that a number or the head of anything takes at most.
  static constexpr std::size_t kMaximumHeadSize = 24;

  void setInteger(bool isNegative, std::uint64_t bits, std::size_t kindMark);
  void setReal(std::uint8_t marker, double value);
  void setContent(std::uint8_t type, std::size_t count, std::string_view content);
  void setHead(const char* end) { headSize_ = static_cast<std::size_t>(end - head_); }

  char head_[kMaximumHeadSize];
  std::size_t headSize_ = 0;
  std::string_view content_;
  std::string utf16_;
};

}  // namespace QVPlatform
