#include "hostile/Attack.h"

#include <poll.h>
#include <zlib.h>

#include <atomic>
#include <iterator>

namespace {

using namespace std::string_literals;

constexpr char kStatus[] = "HTTP/1.1 200 OK\r\n";
constexpr int kPatience = 30000;  // milliseconds, longer than a client waits
constexpr int kPause = 5;         // between slow bytes

const std::string kWhole = goodAnswer("whole");
const std::string kChunked = kStatus + "Transfer-Encoding: chunked\r\n\r\n5\r\nwhole\r\n0\r\n\r\n"s;

/// The last byte of a chunked answer may be missing: all has been said before it.
int countOfBytes() { return static_cast<int>(kWhole.size() + kChunked.size() - 1); }

/// So many bytes of the one answer, or of the other.
bool endAtByte(const Socket& socket, int variant) {
  const auto size = static_cast<std::size_t>(variant);
  const bool isChunked = size >= kWhole.size();
  socket.send(isChunked ? kChunked.substr(0, size - kWhole.size()) : kWhole.substr(0, size));
  return false;
}

bool resetAtByte(const Socket& socket, int variant) {
  endAtByte(socket, variant);
  socket.waitUntilDelivered();
  socket.resetAtEnd();
  return false;
}

bool sendSlowly(const Socket& socket, int variant) {
  for (const char byte : variant == 0 ? kWhole : kChunked) {
    if (!socket.send({&byte, 1})) return false;
    poll(nullptr, 0, kPause);
  }
  return true;
}

/// The beginning, and then the same for ever.
bool sendForEver(const Socket& socket, int variant) {
  static const std::pair<std::string, std::string> kTexts[] = {
      {kStatus + "Transfer-Encoding: chunked\r\n\r\n"s,
       "4000\r\n" + std::string(0x4000, 'x') + "\r\n"},
      {kStatus + "\r\n"s, std::string(0x4000, 'x')},
      {kStatus, "Field: " + std::string(1000, 'x') + "\r\n"},
      {kStatus + "Field: "s, std::string(1000, 'x')},
      {"", "HTTP/1.1 100 Continue\r\n\r\n"},
      {"HTTP/1.1 200 ", std::string(1000, 'x')},
      {kStatus + "Transfer-Encoding: chunked\r\n\r\n5;"s, std::string(1000, 'x')},
      {kStatus + "Transfer-Encoding: chunked\r\n\r\n0\r\n"s,
       "Trailer: " + std::string(1000, 'x') + "\r\n"},
  };
  const auto& [beginning, rest] = kTexts[variant];
  bool isWanted = socket.send(beginning);
  while (isWanted) isWanted = socket.send(rest);
  return false;
}

/// Lengths that are none, or not those of what comes; then the end.
bool sendWrongLength(const Socket& socket, int variant) {
  static const char* const kTexts[] = {
      "Content-Length: 6\r\n\r\nwhole",
      "Content-Length: 99999999999\r\n\r\nwhole",
      "Content-Length: 99999999999999999999999999\r\n\r\nwhole",
      "Content-Length: -1\r\n\r\nwhole",
      "Content-Length: five\r\n\r\nwhole",
      "Content-Length: 5\r\nContent-Length: 4\r\n\r\nwhole",
      "Transfer-Encoding: chunked\r\n\r\n6\r\nwhole",
      "Transfer-Encoding: chunked\r\n\r\n4\r\nwhole\r\n0\r\n\r\n",
      "Transfer-Encoding: chunked\r\n\r\n-1\r\nwhole\r\n0\r\n\r\n",
      "Transfer-Encoding: chunked\r\n\r\nfive\r\nwhole\r\n0\r\n\r\n",
      "Transfer-Encoding: chunked\r\n\r\nFFFFFFFFFFFFFFFFFF\r\nwhole\r\n0\r\n\r\n",
      "Transfer-Encoding: chunked\r\n\r\n5\r\nwhole\r\n",
  };
  socket.send(kStatus + std::string(kTexts[variant]));
  return false;
}

/// What may pass for an answer or not.
bool sendOddHeader(const Socket& socket, int variant) {
  static const std::string kTexts[] = {
      "\r\n\r\n",
      "whole",
      "HTTP/9.9 200 OK\r\n\r\n",
      "HTTP/1.1 2000 OK\r\n\r\n",
      "HTTP/1.1 -1 OK\r\n\r\n",
      "HTTP/1.1\r\n\r\n",
      "HTTP/1.1 101 Switching Protocols\r\nUpgrade: h2c\r\nConnection: upgrade\r\n\r\n",
      "HTTP/1.1 100 Continue\r\n\r\n",
      "HTTP/1.1 304 Not Modified\r\n\r\nwhole",
      "HTTP/1.1 200 OK\nContent-Length: 5\n\nwhole",
      kStatus + "no colon\r\nContent-Length: 5\r\n\r\nwhole"s,
      kStatus + " folded\r\nContent-Length: 5\r\n\r\nwhole"s,
      kStatus + "Field: \0\r\nContent-Length: 5\r\n\r\nwhole"s,
      kStatus + "Field: \xff\xfe\r\nContent-Length: 5\r\n\r\nwhole"s,
      kStatus + "Set-Cookie: a=\r\nContent-Encoding: unheard-of\r\nContent-Length: 5\r\n\r\nwhole"s,
      "\x15\x03\x01\x00\x02\x02\x28"s,  // an alert of TLS
  };
  socket.send(kTexts[variant]);
  return false;
}

/// Little to send, and much to hold.
std::string bomb() {
  constexpr uLong kSize = 512UL << 20;
  const std::string zeros(1U << 20, '\0');
  std::string packed(1U << 20, '\0');
  z_stream stream{};
  deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY);
  stream.next_out = reinterpret_cast<Bytef*>(packed.data());
  stream.avail_out = static_cast<uInt>(packed.size());
  for (uLong size = 0; size < kSize; size += zeros.size()) {
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(zeros.data()));
    stream.avail_in = static_cast<uInt>(zeros.size());
    deflate(&stream, size + zeros.size() < kSize ? Z_NO_FLUSH : Z_FINISH);
  }
  packed.resize(stream.total_out);
  deflateEnd(&stream);
  return packed;
}

bool sendBomb(const Socket& socket, int variant) {
  static const std::string kPacked = bomb();
  const std::string whole = kStatus + "Content-Encoding: gzip\r\nContent-Length: "s;
  if (variant == 0)
    return socket.send(whole + std::to_string(kPacked.size()) + "\r\n\r\n" + kPacked);
  static const std::string kTexts[] = {"no gzip", kPacked.substr(0, 1000),
                                       std::string(kPacked, 0, 10)};
  const std::string& text = kTexts[variant - 1];
  return socket.send(whole + std::to_string(text.size()) + "\r\n\r\n" + text);
}

bool redirect(const Socket& socket, int variant) {
  static const char* const kTargets[] = {
      "/redirection/0",
      "http://127.0.0.1:1/",
      "https://127.0.0.1:1/",
      "file:///etc/passwd",
      "gopher://127.0.0.1/",
      "http://",
      "",
      "//",
      "http://127.0.0.1:99999/",
      "\x01",
  };
  return socket.send("HTTP/1.1 302 Found\r\nContent-Length: 0\r\nLocation: "s + kTargets[variant] +
                     "\r\n\r\n");
}

std::atomic<int> unsettled{0};

/// The answer, and behind it what nobody asked for.
bool sendMore(const Socket& socket, int variant) {
  static const std::string kTexts[] = {
      "x",
      "\r\n",
      goodAnswer("wrong"),
      "HTTP/1.1 408 Request Timeout\r\n\r\n",
      std::string(100000, 'x'),
  };
  constexpr int kCount = static_cast<int>(std::size(kTexts));
  const bool isLate = variant >= kCount;
  ++unsettled;
  socket.send(kWhole + (isLate ? "" : kTexts[variant]));
  if (isLate) {
    socket.waitUntilDelivered();
    poll(nullptr, 0, kPause);
    socket.send(kTexts[variant - kCount]);
    socket.waitUntilDelivered();
  }
  --unsettled;
  return true;
}

bool saySomethingNever(const Socket& socket, int variant) {
  if (variant == 1) socket.send(kWhole.substr(0, kWhole.size() - 1));
  socket.waitForClose(kPatience);
  return false;
}

}  // namespace

std::string goodAnswer(std::string_view body) {
  return kStatus + "Content-Length: "s + std::to_string(body.size()) + "\r\n\r\n" +
         std::string(body);
}

bool isSettled() { return unsettled == 0; }

const std::vector<Attack>& attacks() {
  static const std::vector<Attack> kAll = {
      {"end", countOfBytes(), Verdict::kError, endAtByte},
      {"reset", countOfBytes(), Verdict::kError, resetAtByte},
      {"slow", 2, Verdict::kAnswer, sendSlowly},
      {"endless", 8, Verdict::kError, sendForEver},
      {"length", 12, Verdict::kError, sendWrongLength},
      {"header", 16, Verdict::kEither, sendOddHeader},
      {"bomb", 4, Verdict::kError, sendBomb},
      {"redirection", 10, Verdict::kEither, redirect},
      {"more", 10, Verdict::kAnswer, sendMore},
      {"silence", 2, Verdict::kError, saySomethingNever},
  };
  return kAll;
}
