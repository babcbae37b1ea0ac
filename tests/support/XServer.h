#pragma once

#include <sys/prctl.h>

#include "ChildProcess.h"

namespace QVTest {

/// A display for this process, in memory: an X server that lives as long as this object.
class XServer {
 public:
  XServer() {
    if (isRunning()) setenv("DISPLAY", (":" + number_).c_str(), 1);
  }
  /// The server, told to end, removes its lock and its socket.
  ~XServer() {
    unsetenv("DISPLAY");
    process_.end(SIGTERM);
  }
  XServer(const XServer&) = delete;
  XServer& operator=(const XServer&) = delete;

  bool isRunning() const { return !number_.empty(); }

 private:
  static int run(int output) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    fcntl(output, F_SETFD, 0);
    const std::string descriptor = std::to_string(output);
    dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
    execlp("Xvfb", "Xvfb", "-displayfd", descriptor.c_str(), "-nolisten", "tcp", nullptr);
    return 127;
  }

  ChildProcess process_{run};
  const std::string number_ = process_.firstLine();
};

}  // namespace QVTest
