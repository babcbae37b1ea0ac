#pragma once

#include <string>
#include <string_view>

/// One TCP connection on 127.0.0.1. What fails, fails quietly: the other side may die at any time.
///
/// Threads: one reads; send() and the endings may be called from another.
class Socket {
 public:
  explicit Socket(int file) : file_(file) {}
  /// Connects to the port; sends to nobody if that fails.
  static Socket connectedTo(int port);
  Socket(Socket&& other) noexcept;
  ~Socket();

  /// The next request, header and body; empty when the connection ended.
  std::string readRequest();
  /// Whether what can be read begins with the text; reads nothing.
  bool hasInput(std::string_view beginning) const;
  /// Waits until there is something to read, or the end of the connection.
  void waitForInput() const;
  /// Waits until the other side closes, for so many milliseconds at most.
  void waitForClose(int milliseconds) const;
  /// False when the other side has gone.
  bool send(std::string_view bytes) const;
  /// Says that nothing more will come.
  void finish() const;
  /// Lets the end of the connection be a reset.
  void resetAtEnd() const;
  /// Waits until the other side's system has all that was sent, the end included.
  void waitUntilDelivered() const;

 private:
  int file_;
  std::string buffer_;
};
