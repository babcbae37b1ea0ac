#pragma once

#include <sys/resource.h>

#include "Test.h"

namespace QVTest {

/// A copy of this process that runs a function, and what it says to this one. It is killed with
/// this object, if it has not ended by then.
class ChildProcess {
 public:
  /// What the function writes to the descriptor is read here; its result is the exit status. It
  /// begins as the only thread of the child, so that one that does more than start a program is for
  /// a parent that has no other thread, or for kChildrenMayGoOn.
  explicit ChildProcess(const std::function<int(int output)>& function) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    process_ = startChild([&] { return function(ends[1]); });
    close(ends[1]);
    output_ = ends[0];
  }
  /// The child says the text that the function returns.
  explicit ChildProcess(const std::function<std::string()>& function)
      : ChildProcess([&](int output) {
          const std::string text = function();
          return write(output, text.data(), text.size()) == ssize_t(text.size()) ? 0 : 1;
        }) {}
  ~ChildProcess() {
    end(SIGKILL);
    close(output_);
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  /// Reads until the child has said the text; false if it ends before.
  bool waitForOutput(const std::string& text) {
    while (printed_.find(text) == std::string::npos) {
      if (!read()) return false;
    }
    return true;
  }
  /// The first line that it says; empty if it ends before.
  std::string firstLine() {
    return waitForOutput("\n") ? printed_.substr(0, printed_.find('\n')) : std::string();
  }
  /// What has been read so far.
  const std::string& printed() const { return printed_; }
  void signal(int number) const { kill(process_, number); }

  /// Reads all, and answers with the exit status once the child has ended by itself; else -1.
  int finish() {
    while (read()) continue;
    rusage usage{};
    const int status = exitStatusOf(std::exchange(process_, 0), &usage);
    peakKilobytes_ = usage.ru_maxrss;
    return status;
  }
  /// All that the child says until it ends; with " (failed)" when it did not end well.
  std::string text() {
    const bool isSound = finish() == 0;
    return isSound ? printed_ : printed_ + " (failed)";
  }
  /// Ends a child that goes on, and waits for that.
  void end(int signalNumber) {
    if (process_ <= 0) return;
    signal(signalNumber);
    exitStatusOf(std::exchange(process_, 0));
  }
  /// The most memory that it had, once finished.
  long peakKilobytes() const { return peakKilobytes_; }

 private:
  bool read() {
    char buffer[4096];
    const ssize_t count = ::read(output_, buffer, sizeof buffer);
    if (count > 0) printed_.append(buffer, static_cast<std::size_t>(count));
    return count > 0;
  }

  pid_t process_ = 0;
  int output_ = -1;
  std::string printed_;
  long peakKilobytes_ = 0;
};

}  // namespace QVTest
