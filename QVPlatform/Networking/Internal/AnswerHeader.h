#pragma once

#include <QVPlatform/Networking/URLConnection.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace QVPlatform {

/// Collects the header of an answer line by line, as libcurl hands it over: those of interim
/// answers first, the trailer of a chunked body last. Operations may throw std::bad_alloc.
class AnswerHeader {
 public:
  void clear();
  /// Takes a line, its end included. Where it must not be taken, tells why the transfer is to fail.
  std::optional<URLErrorCode> receive(std::string_view line);

  /// Whether what comes now goes on with a line of the header before there is one.
  bool isContinuationOfNothing(std::string_view line) const noexcept;
  /// Whether the empty line behind the header has come.
  bool isComplete() const noexcept { return isComplete_; }
  /// The lines of the answer that came last.
  const std::string& text() const noexcept { return text_; }
  bool hasContentEncoding() const noexcept { return hasContentEncoding_; }
  bool hasContentLength() const noexcept { return !contentLength_.empty(); }
  /// Bytes of all the lines.
  std::size_t totalSize() const noexcept { return totalSize_; }

 private:
  bool receiveContentLengths(std::string_view list);

  std::size_t totalSize_ = 0;
  std::string text_;
  std::string contentLength_;
  bool isComplete_ = false;
  bool hasContentEncoding_ = false;
};

}  // namespace QVPlatform
