#pragma once

#include <sys/prctl.h>

#include "Test.h"

namespace QVTest {

/// A display for this process, in memory: an X server that lives as long as this object.
class XServer {
 public:
  XServer() {
    int ends[2];
    if (pipe(ends) != 0) return;
    server_ = fork();
    if (server_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGTERM);
      const std::string descriptor = std::to_string(ends[1]);
      dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
      execlp("Xvfb", "Xvfb", "-displayfd", descriptor.c_str(), "-nolisten", "tcp", nullptr);
      _exit(127);
    }
    close(ends[1]);
    std::string number;
    char digit = 0;
    while (read(ends[0], &digit, 1) == 1 && digit != '\n') number += digit;
    close(ends[0]);
    isRunning_ = !number.empty();
    if (isRunning_) setenv("DISPLAY", (":" + number).c_str(), 1);
  }
  ~XServer() {
    unsetenv("DISPLAY");
    if (server_ <= 0) return;
    kill(server_, SIGTERM);
    waitpid(server_, nullptr, 0);
  }
  XServer(const XServer&) = delete;
  XServer& operator=(const XServer&) = delete;

  bool isRunning() const { return isRunning_; }

 private:
  pid_t server_ = 0;
  bool isRunning_ = false;
};

}  // namespace QVTest
