#pragma once

#include <curl/curl.h>

#include <cstdint>
#include <vector>

namespace QVPlatform {

/// The sockets of one session's connections, those included that are kept open between transfers.
///
/// libcurl takes a kept connection for usable unless it is closed, and sends a request a second
/// time when the connection breaks before a whole line of the answer has come. What the system
/// knows of the sockets tells more.
///
/// Threads: as HTTPSession. In a child process that fork() makes, all these sockets are closed.
class KeptSockets {
 public:
  KeptSockets();
  ~KeptSockets();
  KeptSockets(const KeptSockets&) = delete;
  KeptSockets& operator=(const KeptSockets&) = delete;

  /// Has the handle open and close its sockets here. This must outlive the connections.
  void attachTo(CURL* easy);

  /// From here on counts what comes. Tells whether a request may go out on any of the connections:
  /// not so if the other side has closed one of them, or has said what nobody asked for, which
  /// would pass for the answer to the request.
  bool beginRequest();
  /// Says that an answer was read, which took as many bytes at least.
  void endRequest(std::uint64_t bytes);
  /// Whether more bytes than that came on one of the connections since beginRequest().
  bool haveReceivedMoreThan(std::uint64_t bytes) const;
  /// Whether a connection was closed on which something had come since beginRequest().
  bool wasClosedWithinAnswer() const noexcept { return wasClosedWithinAnswer_; }

 private:
  struct Registry;
  /// What has come on a connection, as the system counts it.
  struct Received {
    std::uint64_t bytes = 0;     // the end of the connection is one more
    std::uint32_t segments = 0;  // with data
    bool isOpen = false;         // on both sides
  };
  struct Socket {
    /// Whether nothing has come but what was read: then there is no need to look.
    bool isAsLeft() const { return seen.isOpen && seen.bytes == read; }

    curl_socket_t file;
    Received seen;
    std::uint64_t read;  // as many bytes at least
  };

  static Received received(curl_socket_t file);
  static curl_socket_t open(void* sockets, curlsocktype purpose, curl_sockaddr* address);
  static int close(void* sockets, curl_socket_t file);

  std::vector<Socket> sockets_;
  bool wasClosedWithinAnswer_ = false;
};

}  // namespace QVPlatform
