#pragma once

#include <QVPlatform/Archives/Internal/BinaryPropertyListReader.h>
#include <QVPlatform/Archives/PropertyList.h>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace QVPlatform {

/// Makes the value of each object of an untrusted file once, and keeps watch over what a file can
/// do by referring to its objects as it likes: contain itself, nest without end, let objects
/// overlap so that a few bytes are read many times, and multiply by references to references.
class ObjectMemo {
 public:
  using Number = std::uint32_t;

  /// For a property list of that size with so many objects to refer to. As many values as there can
  /// be without any sharing, and some more, are all that it may expand to.
  ObjectMemo(std::size_t fileSize, std::size_t count)
      : nodes_(count),
        readableBytes_(fileSize + kAllowance),
        expandedLimit_(8 * std::uint64_t{fileSize} + kAllowance) {}

  /// For a keyed archive. There each element of the outermost container has a limit of its own, and
  /// all together have none, since any number of messages may refer to one table.
  static ObjectMemo ofArchive(std::size_t fileSize, std::size_t count) {
    ObjectMemo memo(fileSize, count);
    memo.expandedLimit_ = expandedLimitOfElement(fileSize);
    memo.firstLimitedDepth_ = 2;
    return memo;
  }

  /// To how many values an element may expand in an archive of that size. Who walks through one
  /// must not be kept for ever.
  static std::uint64_t expandedLimitOfElement(std::size_t fileSize) {
    return 8 * std::uint64_t{fileSize} + PropertyList::kMaximumCount;
  }

  /// The value of the object of that number, which build() makes; it is called once for each of
  /// them and may call this in turn. Nil when the file is damaged, which also holds from then on.
  template <class Build>
  const Value& valueOf(Number number, const Build& build) {
    if (hasFailed_ || number >= nodes_.size()) return fail();
    if (depth_ == 0) children_ = height_ = 0;
    Node& node = nodes_[number];
    if (node.state == State::kNew) make(node, build);
    if (node.state != State::kMade || hasFailed_) return fail();
    children_ += 1 + node.expanded;
    height_ = std::max(height_, node.height + 1U);
    const bool isTooMuch = depth_ >= firstLimitedDepth_ && children_ > expandedLimit_;
    if (isTooMuch || height_ > kMaximumHeight) return fail();
    return node.value;
  }

  /// To be called for every object that is read.
  void countReading(const BinaryPropertyListReader::Object& object) {
    const std::size_t bytes = object.content.size() + 1;
    if (bytes > readableBytes_) fail();
    readableBytes_ -= std::min(bytes, readableBytes_);
  }

  bool hasFailed() const { return hasFailed_; }
  const Value& fail() {
    hasFailed_ = true;
    return nil_;
  }

 private:
  enum class State : std::uint8_t { kNew, kBeingMade, kMade };

  static constexpr int kExpandedBits = 40;
  static constexpr std::uint64_t kMostExpanded = (std::uint64_t{1} << kExpandedBits) - 1;

  /// One for each object of a file, which may have millions: so it is small.
  struct Node {
    Value value;
    /// How many values it contains; one that is shared counts each time. What is beyond any limit
    /// is not told apart.
    std::uint64_t expanded : kExpandedBits = 0;
    State state = State::kNew;
    std::uint16_t height = 0;  // how many levels of containers and objects are below it
  };

  static constexpr std::size_t kAllowance = 1U << 18;
  /// The depth counts containers. The values in the innermost of them are one level more.
  static constexpr std::uint32_t kMaximumHeight = PropertyList::kMaximumDepth + 1;

  template <class Build>
  void make(Node& node, const Build& build) {
    if (depth_ == kMaximumHeight) fail();
    if (hasFailed_) return;
    const auto [outerChildren, outerHeight] = std::pair(children_, height_);
    children_ = height_ = 0;
    ++depth_;
    node.state = State::kBeingMade;
    node.value = build();
    // The mask changes nothing: it tells the compiler that there is room.
    node.expanded = std::min(children_, kMostExpanded) & kMostExpanded;
    node.height = static_cast<std::uint16_t>(height_);
    node.state = State::kMade;
    --depth_;
    children_ = outerChildren;
    height_ = outerHeight;
  }

  const Value nil_;
  std::vector<Node> nodes_;
  std::size_t readableBytes_;
  std::uint64_t expandedLimit_;
  std::uint32_t firstLimitedDepth_ = 0;  // from which on expandedLimit_ holds
  // What is counted for the object that is being made; valueOf() adds each of its values.
  std::uint64_t children_ = 0;
  std::uint32_t height_ = 0;
  std::uint32_t depth_ = 0;
  bool hasFailed_ = false;
};

}  // namespace QVPlatform
