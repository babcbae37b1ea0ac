#pragma once

#include <string>

#include "soak/History.h"

/// What a host takes down of its hits and of itself: a file to which each event is written at once,
/// so that it is there whatever becomes of the process.
///
/// Threads: write() may be called from any thread.
class Ledger {
 public:
  explicit Ledger(const std::string& path);
  ~Ledger();
  Ledger(const Ledger&) = delete;
  Ledger& operator=(const Ledger&) = delete;

  /// `hit` is 0 for an event of the process itself.
  void write(What what, HitID hit = 0) const;

  /// Adds what was written to the history, as that life's. A missing file holds nothing.
  static void read(const std::string& path, int life, History& history);

 private:
  const int file_;
};
