// A server on 127.0.0.1 that does what no server should. A client is sent to one attack after the
// other, and to something good behind each. See docs/reliability.md.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <thread>

#include "hostile/Attack.h"

namespace {

using namespace std::string_literals;

constexpr const char* kVerdicts[] = {"error", "answer", "either"};
constexpr std::string_view kGood = "/good/";

/// The attacks' paths, each with what a right client makes of it.
std::string listOfAttacks() {
  std::string list;
  for (const Attack& attack : attacks()) {
    for (int i = 0; i < attack.variants; ++i) {
      list += "/"s + attack.name + "/" + std::to_string(i) + " " +
              kVerdicts[static_cast<int>(attack.verdict)] + "\n";
    }
  }
  return list;
}

/// As Attack::answer().
bool answer(const Socket& socket, std::string_view target) {
  while (target == "/settled" && !isSettled()) poll(nullptr, 0, 1);
  if (target == "/settled") return socket.send(goodAnswer("settled"));
  if (target == "/") return socket.send(goodAnswer(listOfAttacks()));
  if (target.starts_with(kGood)) return socket.send(goodAnswer(target.substr(kGood.size())));
  for (const Attack& attack : attacks()) {
    const std::string path = "/"s + attack.name + "/";
    if (!target.starts_with(path)) continue;
    int variant = -1;
    std::from_chars(target.data() + path.size(), target.data() + target.size(), variant);
    if (variant >= 0 && variant < attack.variants) return attack.answer(socket, variant);
  }
  return socket.send("HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n");
}

void serve(int file) {
  Socket socket(file);
  bool isOpen = true;
  while (isOpen) {
    const std::string request = socket.readRequest();
    if (request.empty()) return;
    const std::size_t begin = std::min(request.find(' '), request.size() - 1) + 1;
    isOpen =
        answer(socket, std::string_view(request).substr(begin, request.find(' ', begin) - begin));
  }
}

/// A socket that listens on the port, 0 for any; -1 if that fails.
int listenOn(std::uint16_t port) {
  const int file = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int isOn = 1;
  setsockopt(file, SOL_SOCKET, SO_REUSEADDR, &isOn, sizeof isOn);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  constexpr int kBacklog = 64;
  if (bind(file, reinterpret_cast<sockaddr*>(&address), size) != 0 || listen(file, kBacklog) != 0 ||
      getsockname(file, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    return -1;
  }
  std::printf("http://127.0.0.1:%d\n", ntohs(address.sin_port));
  std::fflush(stdout);
  return file;
}

}  // namespace

/// hostile [PORT]: serves until it is killed. Prints its URL, below which / lists the attacks,
/// /good/X is answered by X, and /settled once late bytes have arrived.
int main(int argumentCount, char** arguments) {
  std::uint16_t port = 0;
  if (argumentCount > 1) {
    std::from_chars(arguments[1], arguments[1] + std::strlen(arguments[1]), port);
  }
  const int file = listenOn(port);
  if (file < 0) {
    std::perror("hostile");
    return 1;
  }
  for (int client; (client = accept4(file, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
    std::thread(serve, client).detach();
  }
  return 1;
}
