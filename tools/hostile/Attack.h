#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "soak/Socket.h"

/// What a client that is right makes of an attack.
enum class Verdict {
  kError,   // anything else would pass off half an answer for a whole one
  kAnswer,  // there is nothing wrong with the answer itself
  kEither,  // as long as it comes to an end
};

/// Something that a server should not do in answer to a request.
struct Attack {
  const char* name;
  int variants;  // numbered from 0
  Verdict verdict;
  /// Answers one request on the connection. It is kept open where that is true.
  bool (*answer)(const Socket& socket, int variant);
};

const std::vector<Attack>& attacks();

/// Whether all that comes behind answers has arrived.
bool isSettled();

/// An answer that is right, with this body.
std::string goodAnswer(std::string_view body);
