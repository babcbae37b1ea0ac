#pragma once

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace QVBenchmark {

/// Ends the program: a figure of what did not work tells nothing.
[[noreturn]] inline void fail(const char* what) {
  std::fprintf(stderr, "%s\n", what);
  std::_Exit(1);
}

/// The text, made as long as that.
inline std::string filled(std::string text, std::size_t size) {
  while (text.size() < size) text.push_back(static_cast<char>('a' + text.size() % 26));
  return text;
}

}  // namespace QVBenchmark
