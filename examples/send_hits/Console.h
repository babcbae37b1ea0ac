#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

/// How many hits were handed to the core, and what became of them.
struct Counts {
  std::uint64_t sent = 0;
  std::uint64_t answered = 0;
  std::uint64_t failed = 0;
};

/// What the person in front of the terminal sees: results on standard output, and on standard error
/// notes and, if that is a terminal, one line that tells the progress.
///
/// Threads: all operations may be called from any thread.
class Console {
 public:
  /// To be made before anything is printed.
  explicit Console(bool isQuiet);

  /// One result, printed unless the console is quiet.
  void result(const std::string& line);
  /// A note, printed in any case.
  void note(const std::string& line);
  /// Brings the progress up to date, ten times a second at most.
  void progress(const Counts& counts);

 private:
  void eraseProgress();

  const bool isQuiet_;
  const bool showsProgress_;
  std::mutex mutex_;  // guards what follows, and keeps lines whole
  bool isProgressShown_ = false;
  std::chrono::steady_clock::time_point nextProgress_{};
};
