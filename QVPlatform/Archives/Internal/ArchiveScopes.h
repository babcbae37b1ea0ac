#pragma once

#include <QVPlatform/Archives/Internal/BinaryPropertyListWriter.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

namespace QVPlatform {

/// The containers and objects that an archiver is in, each within the one before: what each has so
/// far, on two stacks that all of them share, and how far it extends. The outermost scope is the
/// archive itself.
class ArchiveScopes {
 public:
  using Reference = BinaryPropertyListWriter::Reference;

  /// What the reader will ask of an object: levels below it, and values in it, counted as often as
  /// they are referred to.
  struct Extent {
    std::uint32_t height = 0;
    std::uint64_t expanded = 0;
  };
  struct Scope : Extent {
    std::size_t firstKey = 0;
    std::size_t firstValue = 0;
  };

  /// How many there are within the archive.
  std::size_t depth() const { return depth_; }
  /// Begins a scope, and answers the one to go back to.
  [[nodiscard]] Scope enter() {
    ++depth_;
    return std::exchange(scope_, {{}, keys_.size(), values_.size()});
  }
  /// Ends it with all that it has, and answers how far it extended.
  Extent leave(const Scope& outer) {
    --depth_;
    keys_.resize(scope_.firstKey);
    values_.resize(scope_.firstValue);
    const Scope ended = std::exchange(scope_, outer);
    return static_cast<const Extent&>(ended);
  }

  /// Counts a value of that extent among those of the scope.
  void contain(const Extent& part) {
    scope_.height = std::max(scope_.height, part.height + 1);
    scope_.expanded += 1 + part.expanded;
  }
  void pushKey(Reference key) { keys_.push_back(key); }
  void pushValue(Reference value) { values_.push_back(value); }
  /// Has the key stand for the value; of a key that is used twice, the last value counts.
  void put(Reference key, Reference value) {
    const auto known = keys();
    const auto place = std::find(known.begin(), known.end(), key);
    if (place == known.end()) {
      pushKey(key);
      pushValue(value);
    } else {
      values_[scope_.firstValue + static_cast<std::size_t>(place - known.begin())] = value;
    }
  }

  std::span<const Reference> keys() const { return std::span(keys_).subspan(scope_.firstKey); }
  std::span<const Reference> values() const {
    return std::span(values_).subspan(scope_.firstValue);
  }

 private:
  std::vector<Reference> keys_;
  std::vector<Reference> values_;
  Scope scope_;
  std::size_t depth_ = 0;
};

}  // namespace QVPlatform
