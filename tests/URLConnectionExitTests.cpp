#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <latch>
#include <thread>

#include "support/Certificate.h"
#include "support/Exchange.h"
#include "support/HTTPServer.h"

using namespace QVPlatform;
using namespace QVTest;

namespace {

/// An https server in a process of its own, so that the one under test has only the libraries that
/// transfers load.
class ServerProcess {
 public:
  explicit ServerProcess(const Certificate& certificate) {
    int ends[2];
    if (pipe(ends) != 0) throw std::runtime_error("no pipe");
    process_ = fork();
    if (process_ == 0) {
      HTTPServer server(certificate.file(), certificate.keyFile());
      const int port = server.port();
      if (write(ends[1], &port, sizeof port) != sizeof port) _exit(1);
      for (;;) pause();
    }
    if (read(ends[0], &port_, sizeof port_) != sizeof port_) throw std::runtime_error("no port");
    close(ends[0]);
    close(ends[1]);
  }
  ~ServerProcess() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  std::string url() const { return "https://127.0.0.1:" + std::to_string(port_) + "/"; }

 private:
  pid_t process_ = 0;
  int port_ = 0;
};

[[noreturn]] void exitAmidTransfers(const std::string& url) {
  constexpr int kThreads = 4;
  static std::latch& underWay = *new std::latch(kThreads);
  for (int i = 0; i < kThreads; ++i) {
    std::thread([url] {
      if (get(url).body != Data("ok")) std::_Exit(2);
      underWay.count_down();
      for (;;) get(url);
    }).detach();
  }
  underWay.wait();
  std::exit(0);
}

TEST(URLConnectionExit, TheProcessMayExitWhileTransfersAreUnderWay) {
  const Certificate certificate;
  const ServerProcess server(certificate);
  ASSERT_EQ(setenv("SSL_CERT_FILE", certificate.file().c_str(), 1), 0);
  for (int i = 0; i < 10; ++i) {
    EXPECT_EXIT(exitAmidTransfers(server.url()), testing::ExitedWithCode(0), "");
  }
}

}  // namespace
