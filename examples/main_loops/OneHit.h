#pragma once

#include <atomic>
#include <functional>

/// A descriptor that is readable after a SIGTERM, for loops that know no signals. To be opened
/// before any thread is made, for all to inherit that they leave the signal alone.
int openTermination();

/// What the programs of this folder have in common: the core, and a hit that is sent with it. The
/// loop around it is what each of them shows.
class OneHit {
 public:
  /// Starts the core, on the main thread, and posts the hit that the command line tells. The
  /// function is called there, by MainQueue::drain(), when the hit has come back.
  OneHit(int argumentCount, char** arguments, std::function<void()> whenOver);
  ~OneHit();
  OneHit(const OneHit&) = delete;
  OneHit& operator=(const OneHit&) = delete;

  /// To be called when the loop has ended. Saves the hit if it has not come back, for the next
  /// start to send it. The status for the process to exit with: 0 if the hit was answered.
  int end();

 private:
  std::function<void()> whenOver_;
  std::atomic<bool> isAnswered_{false};
};
