#pragma once

#include "HTTPServer.h"
#include "Test.h"

namespace QVTest {

/// An HTTPServer in a process of its own, so that the process under test has only the libraries and
/// threads that it brings itself. Make it before this process has a second thread.
class ServerProcess {
 public:
  /// The arguments are HTTPServer's.
  template <class... Arguments>
  explicit ServerProcess(const Arguments&... arguments) {
    int ends[2];
    if (pipe(ends) != 0) throw std::runtime_error("no pipe");
    process_ = fork();
    if (process_ == 0) {
      HTTPServer server(arguments...);
      const std::string url = server.url();
      if (write(ends[1], url.data(), url.size()) < 0) _exit(1);
      for (;;) pause();
    }
    char url[64];
    const ssize_t size = read(ends[0], url, sizeof url);
    close(ends[0]);
    close(ends[1]);
    if (size <= 0) throw std::runtime_error("no server");
    url_.assign(url, static_cast<std::size_t>(size));
  }
  ~ServerProcess() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  const std::string& url() const { return url_; }

 private:
  pid_t process_ = 0;
  std::string url_;
};

}  // namespace QVTest
