#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// What the command line asks for.
struct Options {
  std::uint32_t hits = 100'000;
  int seconds = 600;
  std::uint64_t seed = 0;
  std::string samples;  // where to write what the host that lasts takes of the machine
};

/// Null for a wrong command line, after it has said so on standard error, and for --help.
std::optional<Options> parseOptions(int argumentCount, char** arguments, int* exitStatus);
