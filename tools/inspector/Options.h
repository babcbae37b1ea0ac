#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "inspector/HTTPServer.h"
#include "inspector/Store.h"

/// What the command line asks for.
struct Options {
  HTTPServer::Place collector{"127.0.0.1", 8787};
  HTTPServer::Place page{"127.0.0.1", 8788};
  std::string rules;  // files; empty for none
  std::string record;
  std::vector<std::string> numberNames{"id"};
  Store::Limits limits{100'000, std::size_t{256} << 20};
  std::vector<std::string> files;  // to look at
};

/// Null for a wrong command line, after it has said so on standard error, and for --help.
std::optional<Options> parseOptions(int argumentCount, char** arguments, int* exitStatus);
