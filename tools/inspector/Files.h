#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "inspector/HTTPServer.h"
#include "inspector/Store.h"

// Hits as files: JSON lines, HTTP archives and commands of curl, both ways.

/// Sequences from the first to the last.
struct Range {
  std::uint64_t first;
  std::uint64_t last;
};

/// Reads "1-5,9"; an empty text means all. Null for what is none.
std::optional<std::vector<Range>> rangesIn(std::string_view text);

/// Writes the hits of the ranges, as they are when it comes to them, in one of the formats "jsonl",
/// "har" and "curl".
class Export : public HTTPStream {
 public:
  struct Format;

  /// Nullptr if there is none of that name.
  static const Format* formatNamed(std::string_view name);
  static const char* mediaTypeOf(const Format& format);
  static const char* fileNameOf(const Format& format);

  /// The store outlives it.
  Export(const Store& store, const Format& format, std::vector<Range> ranges)
      : store_(store), format_(format), ranges_(std::move(ranges)) {}

  std::string next() override;
  bool isAtEnd() const override { return isAtEnd_; }

 private:
  /// Nullptr at the end.
  const Hit* nextHit();

  const Store& store_;
  const Format& format_;
  const std::vector<Range> ranges_;
  std::size_t range_ = 0;
  std::uint64_t next_ = 0;
  bool isBegun_ = false;
  bool isAtEnd_ = false;
};

/// Adds the hits of a file to the store, with the file's name as their source. The format shows in
/// the text. Answers how many there were; null if it is none of the formats.
std::optional<std::size_t> import(const std::string& text, const std::string& name, Store& store);
