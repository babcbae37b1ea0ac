#pragma once

#include <poll.h>

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "inspector/Text.h"

struct MHD_Connection;
struct MHD_Daemon;

struct HTTPRequest {
  std::string method = "?";  // until all of the head is there
  std::string target;        // as it came
  std::string version;
  Headers headers;
  std::string body;            // as far as the server keeps it
  std::uint64_t bodySize = 0;  // of all of it
};

/// The body of an answer that is made while it is sent.
class HTTPStream {
 public:
  virtual ~HTTPStream() = default;
  /// What comes next; empty when there is nothing at the moment, or nothing more.
  virtual std::string next() = 0;
  virtual bool isAtEnd() const = 0;
};

struct HTTPReply {
  int status = 200;
  Headers headers;
  std::string body;
  bool isCutShort = false;               // the connection ends amid the body
  std::shared_ptr<HTTPStream> stream{};  // instead of the body
};

/// A request under way, from when all of it is there until its answer has been sent.
class HTTPExchange {
 public:
  const HTTPRequest& request() const { return request_; }
  void answer(HTTPReply reply);
  /// Closes the connection without an answer.
  void cut();
  /// Says that the stream of the answer has more.
  void wake();

  std::uint64_t tag = 0;  ///< The handler's own.

 private:
  friend class HTTPServer;
  enum class Decision { kNone, kAnswer, kCut };

  void resume();

  MHD_Connection* connection_ = nullptr;
  HTTPRequest request_;
  HTTPReply reply_;
  Decision decision_ = Decision::kNone;
  std::string pending_;  // of the stream
  bool isBegun_ = false;
  bool isHandled_ = false;
  bool isHeld_ = false;
};

/// What a server asks. An exchange that is neither answered nor cut in the call is held until it
/// is, at any later time, or until the client leaves.
class HTTPHandler {
 public:
  virtual ~HTTPHandler() = default;
  virtual void onRequest(HTTPExchange& exchange) = 0;
  /// The last that is heard of the exchange, of which onRequest() has been called. It is delivered
  /// if all of the answer went out.
  virtual void onEnd(HTTPExchange& exchange, bool isDelivered) = 0;
  /// A request that is none, or did not come to its end, and what is known of it: the server
  /// answered it with the status by itself, or the client left, if that is 0.
  virtual void onBroken(const HTTPRequest&, int) {}
};

/// HTTP/1.1 on one port, without a thread of its own: who runs it waits for all of its files at
/// once. It takes any method, target and header, and holds any number of requests that get no
/// answer.
class HTTPServer {
 public:
  struct Place {
    std::string address;  // a numeric one
    std::uint16_t port;   // 0 for any that is free
  };

  /// Keeps so many bytes of a body.
  HTTPServer(const Place& place, std::size_t keptOfBody, HTTPHandler& handler);
  ~HTTPServer();
  HTTPServer(const HTTPServer&) = delete;
  HTTPServer& operator=(const HTTPServer&) = delete;

  /// Why it does not listen, an errno value; 0 if it does.
  int error() const { return error_; }
  std::uint16_t port() const;

  /// Adds the files to wait for. Answers for how many milliseconds at most; -1 for any time.
  int watch(std::vector<pollfd>& files);
  /// Does what there is to do, with what poll() said about these files.
  void run(const std::vector<pollfd>& files);

 private:
  struct Callbacks;

  /// Does what was decided about the exchange, which holds it if nothing was. False to cut it.
  bool handle(HTTPExchange& exchange);
  bool send(HTTPExchange& exchange);
  void hold(HTTPExchange& exchange);
  void releaseThoseWhoLeft(const std::vector<pollfd>& files);

  const std::size_t keptOfBody_;
  HTTPHandler& handler_;
  MHD_Daemon* daemon_ = nullptr;
  int error_ = 0;
  std::set<HTTPExchange*> held_;        // and some that were resumed since
  std::size_t firstFile_ = 0;           // of this server's among those that were watched
  std::vector<HTTPExchange*> watched_;  // those held, in the order of their files
};
