#include "AnswerFuzzer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace {

/// Answers one request per connection, wherever it was meant for: it is the proxy of this process,
/// so that no redirection leads out of it.
class Server {
 public:
  Server() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (bind(file_, reinterpret_cast<sockaddr*>(&address), size) != 0 || listen(file_, 64) != 0 ||
        getsockname(file_, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
      std::abort();
    }
    url_ = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    for (const char* name : {"http_proxy", "https_proxy"}) setenv(name, url_.c_str(), 1);
    for (const char* name : {"no_proxy", "NO_PROXY"}) unsetenv(name);
    std::thread([this] { run(); }).detach();
  }

  const std::string& url() const { return url_; }
  void setAnswer(std::string_view answer) {
    const std::lock_guard lock(mutex_);
    answer_ = answer;
  }

 private:
  void run() {
    for (int client; (client = accept(file_, nullptr, nullptr)) >= 0; close(client)) serve(client);
  }

  void serve(int client) {
    const std::string request = readRequest(client);
    const bool isGood = request.substr(0, request.find('\n')).find("/good") != request.npos;
    std::string answer;
    {
      const std::lock_guard lock(mutex_);
      answer = isGood ? QVFuzz::kGoodAnswer : answer_;
    }
    send(client, answer.data(), answer.size(), MSG_NOSIGNAL);
    shutdown(client, SHUT_WR);
    pollfd ending{client, POLLHUP | POLLERR, 0};
    poll(&ending, 1, 200);
    // A reset, once both have said all, leaves no port taken for a minute.
    const linger atOnce{1, 0};
    setsockopt(client, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
  }

  static std::string readRequest(int client) {
    std::string request;
    char buffer[4096];
    while (request.find("\r\n\r\n") == request.npos) {
      const ssize_t size = recv(client, buffer, sizeof buffer, 0);
      if (size <= 0) break;
      request.append(buffer, static_cast<std::size_t>(size));
    }
    return request;
  }

  const int file_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  std::string url_;
  std::mutex mutex_;
  std::string answer_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  static Server& server = *new Server;
  server.setAnswer({reinterpret_cast<const char*>(bytes), size});
  QVFuzz::readAnswers(server.url());
  return 0;
}
