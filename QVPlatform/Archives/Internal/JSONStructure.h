#pragma once

#include <QVPlatform/Foundation/String.h>

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace QVPlatform {

/// Checks a whole JSON text, and notes where its containers end and how much is in them: so a walk
/// steps over those that it does not enter, and a copy is made at its size.
class JSONStructure {
 public:
  struct Container {
    std::uint32_t end;    // offset of what follows it
    std::uint32_t next;   // number of the first container behind it; those before are inside
    std::uint32_t count;  // of elements, or of pairs of key and value
  };

  /// The top level, an object or an array, begins at the offset. The text is shorter than 4 GB.
  JSONStructure(const String& text, std::size_t begin, std::size_t maximumDepth);

  /// Where and why the text is not JSON; null when it is.
  const String& error() const { return error_; }
  /// In the order in which they begin.
  std::vector<Container> takeContainers() { return std::move(containers_); }

 private:
  const char* afterContainer(const char* at);
  const char* afterKey(const char* at);
  const char* afterValue(const char* at);
  const char* fail(const char* at, const char* reason);

  const char* const text_;
  const char* const end_;
  std::size_t remainingDepth_;
  std::vector<Container> containers_;
  String error_;
};

}  // namespace QVPlatform
