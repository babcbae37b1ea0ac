#pragma once

#include "Test.h"

namespace QVTest {

/// A child process that runs a function and sends back the text that this returns. To be started
/// while the test has no other thread.
class ChildProcess {
 public:
  explicit ChildProcess(const std::function<std::string()>& body) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    child_ = fork();
    if (child_ == 0) {
      const std::string text = body();
      const bool isSent = write(ends[1], text.data(), text.size()) == ssize_t(text.size());
      _exit(isSent ? 0 : 1);
    }
    close(ends[1]);
    output_ = ends[0];
  }
  ~ChildProcess() {
    close(output_);
    if (child_ > 0) waitpid(child_, nullptr, 0);
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  /// The text, when the child has ended; with " (failed)" when it did not end well.
  std::string text() {
    std::string text;
    char buffer[4096];
    for (ssize_t count = 0; (count = read(output_, buffer, sizeof buffer)) > 0;) {
      text.append(buffer, static_cast<std::size_t>(count));
    }
    int status = 0;
    waitpid(std::exchange(child_, 0), &status, 0);
    return status == 0 ? text : text + " (failed)";
  }

 private:
  pid_t child_ = 0;
  int output_ = -1;
};

}  // namespace QVTest
