#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "soak/History.h"
#include "soak/Socket.h"

/// The server that hits go to, on a port of 127.0.0.1 of its own. It misbehaves as the seed has it,
/// and takes down what it received before it does anything about it.
///
/// A hit for /flow/ID comes in the middle of others. One for /last/ID is the last before the client
/// is idle; what is to be done to its connection then is done when somebody asks for /settled/ID,
/// so that it never meets a request that is on its way. One for /configuration is answered with a
/// newer one each time.
///
/// Threads: all operations may be called from any thread.
class Server {
 public:
  explicit Server(std::uint64_t seed);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  int port() const { return port_; }
  /// From now on requests are that life's.
  void setLife(int life);
  /// Waits until every connection that was made has ended. To be called when no client lives.
  void waitForSilence();
  std::vector<Reception> takeReceptions();

  /// Asks the server on that port to do what remains of a hit's deed, and waits until it is done.
  static void settle(int port, HitID hit);

 private:
  void acceptConnections();
  void serve(unsigned connection, int file);
  /// False when the connection is to end.
  bool respond(Socket& socket, const Reception& reception);
  void rememberLateDeed(Socket& socket, const Reception& reception);
  void forgetLateDeed(const Socket& socket);
  Reception note(unsigned connection, unsigned place, const std::string& request);
  void settleHere(HitID hit);

  const std::uint64_t seed_;
  int file_ = -1;
  int port_ = 0;
  std::mutex mutex_;  // guards what follows
  std::condition_variable ended_;
  int life_ = 0;
  unsigned open_ = 0;
  std::vector<Reception> receptions_;
  std::map<HitID, unsigned> counts_;  // how often a hit was received
  struct Late {
    Socket* socket;
    Deed deed;
  };
  std::map<HitID, Late> late_;
  std::atomic<unsigned> version_ = 0;  // of the configuration
  std::thread acceptor_;
};
