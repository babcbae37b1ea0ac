#pragma once

#include "ChildProcess.h"
#include "HTTPServer.h"

namespace QVTest {

/// An HTTPServer in a process of its own, so that the process under test has only the libraries and
/// threads that it brings itself. Make it before this process has a second thread.
class ServerProcess {
 public:
  /// The arguments are HTTPServer's.
  template <class... Arguments>
  explicit ServerProcess(const Arguments&... arguments)
      : process_([&](int output) -> int {
          const HTTPServer server(arguments...);
          dprintf(output, "%s\n", server.url().c_str());
          for (;;) pause();
        }),
        url_(process_.firstLine()) {
    if (url_.empty()) throw std::runtime_error("no server");
  }

  const std::string& url() const { return url_; }

 private:
  ChildProcess process_;
  const std::string url_;
};

}  // namespace QVTest
