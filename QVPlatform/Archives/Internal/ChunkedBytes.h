#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

namespace QVPlatform {

/// Bytes that grow at their end and lie in several places, so that they are never copied to make
/// room for more.
class ChunkedBytes {
 public:
  std::size_t size() const { return size_; }

  /// Room for so many bytes in one place, behind all others; the caller fills it.
  char* grow(std::size_t count) {
    if (used_ == 0 || chunks_[used_ - 1].room() < count) beginChunk(count);
    Chunk& chunk = chunks_[used_ - 1];
    char* const room = chunk.bytes.get() + chunk.size;
    chunk.size += count;
    size_ += count;
    return room;
  }

  /// Leaves the first bytes, so many. The memory of the others is used again.
  void truncate(std::size_t size) {
    while (size_ > size) {
      Chunk& last = chunks_[used_ - 1];
      const std::size_t count = std::min(last.size, size_ - size);
      last.size -= count;
      size_ -= count;
      if (last.size == 0) --used_;
    }
  }

  /// Adds the bytes from that place on to the pieces.
  void addTo(std::vector<std::string_view>& pieces, std::size_t from = 0) const {
    for (std::size_t i = 0; i < used_; ++i) {
      const std::size_t skipped = std::min(from, chunks_[i].size);
      from -= skipped;
      pieces.push_back(std::string_view(chunks_[i].bytes.get(), chunks_[i].size).substr(skipped));
    }
  }

 private:
  struct Chunk {
    explicit Chunk(std::size_t count) : bytes(new char[count]), capacity(count) {}
    std::size_t room() const { return capacity - size; }

    std::unique_ptr<char[]> bytes;
    std::size_t capacity;
    std::size_t size = 0;
  };
  static constexpr std::size_t kSmallest = 4096;
  static constexpr std::size_t kLargest = 1U << 20;

  /// As large as all others together, within limits, if none is left that is large enough.
  void beginChunk(std::size_t count) {
    while (used_ < chunks_.size() && chunks_[used_].capacity < count) chunks_.pop_back();
    if (used_ == chunks_.size()) {
      chunks_.emplace_back(std::max(count, std::clamp(size_, kSmallest, kLargest)));
    }
    ++used_;
  }

  std::vector<Chunk> chunks_;
  std::size_t used_ = 0;  // how many of them; what lies behind is empty
  std::size_t size_ = 0;
};

}  // namespace QVPlatform
