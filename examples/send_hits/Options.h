#pragma once

#include <optional>
#include <string>

/// What the command line asks for.
struct Options {
  std::string file = "-";  ///< "-" is standard input.
  std::string container;   ///< Empty: the platform's default place.
  bool assumesNetwork = false;
  bool isQuiet = false;
};

/// Null for a wrong command line, after it has said so on standard error, and for --help.
std::optional<Options> parseOptions(int argumentCount, char** arguments, int* exitStatus);
