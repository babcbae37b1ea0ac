#pragma once

#include <QVPlatform/Dispatch/CallGate.h>
#include <QVPlatform/Foundation/ForkMutex.h>

#include <optional>

namespace QVPlatform {

/// A value that is read far more often than it is changed, in the manner of a big-reader lock:
/// readers count themselves in a striped gate, so that they do not meet one another, and who
/// changes the value closes that gate and waits until all have left. Readers that find the gate
/// closed wait at the mutex of who changes it.
///
/// What passes between the two is ordered by the gate: a reader that was let through has seen it
/// open, and with that all changes before; who changes the value has seen all readers leave. The
/// child of a fork() finds the value whole, and begins with a gate that knows of no reader.
///
/// Threads: any. Neither reading nor changing may call out, nor nest.
template <class T>
class ReadMostly {
 public:
  template <class Read>
  void read(Read&& read) const {
    if (readers_->enterBriefly([&] { read(value_); })) return;
    const Lock lock(mutex_);
    read(value_);
  }

  /// What `change` throws reaches the caller.
  template <class Change>
  void change(Change&& change) {
    const Lock lock(mutex_);
    const Closed closed(*readers_);
    change(value_);
  }

 private:
  class Closed {
   public:
    explicit Closed(CallGate& gate) : gate_(gate) { gate_.close(); }
    ~Closed() { gate_.open(); }
    Closed(const Closed&) = delete;
    Closed& operator=(const Closed&) = delete;

   private:
    CallGate& gate_;
  };

  static void forgetReaders(void* readMostly) {
    static_cast<ReadMostly*>(readMostly)->readers_.emplace();
  }

  mutable std::optional<CallGate> readers_{std::in_place};
  mutable ForkMutex mutex_{forgetReaders, this};
  T value_;
};

}  // namespace QVPlatform
