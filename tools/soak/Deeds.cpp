#include "soak/Deeds.h"

namespace {

struct Share {
  Deed deed;
  unsigned count;  // of 10,000
};

// What is left is answered.
constexpr Share kInFlow[] = {
    {Deed::kAnswerAndClose, 100},
    {Deed::kAnswerEmpty, 200},
    {Deed::kCloseAfter, 150},
    {Deed::kCloseBeforeNext, 200},
    {Deed::kSecondAnswer, 200},
    {Deed::kStrayBehind204, 200},
    {Deed::kResetAfterRead, 200},
    {Deed::kCloseAfterRead, 200},
    {Deed::kResetInAnswer, 100},
    {Deed::kForbidden, 100},
    {Deed::kNotFound, 100},
    {Deed::kServerError, 100},
    {Deed::kHang, 2},
};
constexpr Share kLast[] = {
    {Deed::kLateClose, 1500},   {Deed::kLate408, 2000},       {Deed::kLateSecondAnswer, 2000},
    {Deed::kLateLineEnd, 1500}, {Deed::kLateBehind204, 1500},
};
constexpr unsigned kWhole = 10'000;
constexpr unsigned kUnwelcome = 200;

template <std::size_t count>
Deed pick(const Share (&shares)[count], std::uint64_t number) {
  for (const Share& share : shares) {
    if (number < share.count) return share.deed;
    number -= share.count;
  }
  return Deed::kAnswer;
}

std::string response(const char* status, const std::string& body) {
  return "HTTP/1.1 " + std::string(status) + "\r\nContent-Length: " + std::to_string(body.size()) +
         "\r\n\r\n" + body;
}

const std::string kStray = response("200 OK", "nobody asked for this");

}  // namespace

std::uint64_t scatter(std::uint64_t seed, std::uint64_t a, std::uint64_t b) {
  // The finishing steps of SplitMix64.
  std::uint64_t number = seed + a * 0x9E3779B97F4A7C15U + b * 0xD1B54A32D192ED03U;
  number = (number ^ (number >> 30)) * 0xBF58476D1CE4E5B9U;
  number = (number ^ (number >> 27)) * 0x94D049BB133111EBU;
  return number ^ (number >> 31);
}

Deed chooseDeed(std::uint64_t seed, HitID hit, unsigned time, bool isLast) {
  const std::uint64_t number = scatter(seed, hit, time) % kWhole;
  return isLast ? pick(kLast, number) : pick(kInFlow, number);
}

bool isUnwelcome(std::uint64_t seed, unsigned connection) {
  return scatter(seed, 0, connection) % kWhole < kUnwelcome;
}

std::string answerTo(HitID hit, Deed deed) {
  const std::string own = std::to_string(hit);
  switch (deed) {
    case Deed::kAnswerAndClose:
      return "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n" + own;
    case Deed::kAnswerEmpty:
    case Deed::kLateBehind204:
      return "HTTP/1.1 204 No Content\r\n\r\n";
    case Deed::kSecondAnswer:
      return response("200 OK", own) + kStray;
    case Deed::kStrayBehind204:
      return "HTTP/1.1 204 No Content\r\n\r\n" + kStray;
    case Deed::kForbidden:
      return response("403 Forbidden", own);
    case Deed::kNotFound:
      return response("404 Not Found", own);
    case Deed::kServerError:
      return response("500 Internal Server Error", own);
    default:
      return response("200 OK", own);
  }
}

std::string configurationWith(unsigned version) {
  return response("200 OK", "{\"version\":" + std::to_string(version) + "}");
}

std::string lateBytes(Deed deed) {
  switch (deed) {
    case Deed::kLate408:
      return "HTTP/1.1 408 Request Timeout\r\nConnection: close\r\nContent-Length: 4\r\n\r\nlate";
    case Deed::kLateSecondAnswer:
    case Deed::kLateBehind204:
      return kStray;
    case Deed::kLateLineEnd:
      return "\r\n";
    default:
      return "";
  }
}
