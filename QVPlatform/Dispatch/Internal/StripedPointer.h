#pragma once

#include <QVPlatform/Dispatch/Internal/Stripe.h>

#include <array>
#include <memory>
#include <utility>

namespace QVPlatform {

/// A reference to a thing that many threads copy and drop at once: each stripe has a count of its
/// own, all of which keep the one thing.
template <class T>
class StripedPointer {
 public:
  /// Null.
  StripedPointer() = default;
  /// May throw std::bad_alloc.
  explicit StripedPointer(std::shared_ptr<T> thing) {
    for (auto& reference : references_) {
      auto counted = std::make_shared<Counted>(thing);
      reference = std::shared_ptr<T>(std::move(counted), thing.get());
    }
  }

  explicit operator bool() const noexcept { return references_.front() != nullptr; }
  /// The calling thread's.
  const std::shared_ptr<T>& get() const noexcept { return references_[stripeOfThisThread()]; }

 private:
  /// Its alignment keeps the count, which lies before it, away from others.
  struct alignas(kCacheLine) Counted {
    explicit Counted(std::shared_ptr<T> itsThing) : thing(std::move(itsThing)) {}
    const std::shared_ptr<T> thing;
  };

  std::array<std::shared_ptr<T>, kStripes> references_;
};

}  // namespace QVPlatform
