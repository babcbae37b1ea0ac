#pragma once

#include <QVPlatform/Foundation/String.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Reads hits from a file, a pipe or a terminal, one a line: a URL or, for a POST, a URL, a tab and
/// the body. A carriage return at the end of a line does not count. Holds one block of the input
/// and one line at most.
class HitReader {
 public:
  /// A longer line is no hit.
  static constexpr std::size_t kMaximumLineSize = 1U << 20;

  struct Hit {
    std::uint64_t line;  ///< Its number, from 1.
    QVPlatform::String url;
    QVPlatform::String body;  ///< Null for a GET.
  };

  /// The file stays the caller's to close.
  explicit HitReader(int file) : file_(file) {}

  /// The next hit of what has been read; null when more must be read, or at the end.
  std::optional<Hit> next();
  /// Reads once, which waits if the input has nothing to give yet.
  void read();
  /// Whether next() has nothing more to come.
  bool isAtEnd() const { return isInputOver_ && place_ == buffer_.size(); }
  /// Why reading failed, an errno value; 0 if it did not.
  int error() const { return error_; }

  std::uint64_t emptyLines() const { return emptyLines_; }
  /// Lines that are too long or not UTF-8, and the number of the first of them.
  std::uint64_t unreadableLines() const { return unreadableLines_; }
  std::uint64_t firstUnreadableLine() const { return firstUnreadableLine_; }

 private:
  std::optional<std::string_view> nextLine();
  std::optional<Hit> parse(std::string_view line);
  void countUnreadable();

  const int file_;
  std::string buffer_;
  std::size_t place_ = 0;  // where in the buffer the next line begins
  bool isInputOver_ = false;
  bool isSkipping_ = false;  // the rest of a line that is too long
  int error_ = 0;
  std::uint64_t line_ = 0;
  std::uint64_t emptyLines_ = 0;
  std::uint64_t unreadableLines_ = 0;
  std::uint64_t firstUnreadableLine_ = 0;
};
