#include "tour/kit/LogCapture.h"

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <stdexcept>

#include "tour/kit/TemporaryDirectory.h"

std::vector<std::string> linesLoggedDuring(const std::function<void()>& action) {
  const TemporaryDirectory directory;
  const std::string path = directory.path() + "/log";
  std::fflush(stdout);
  const int terminal = dup(STDOUT_FILENO);
  if (terminal < 0 || std::freopen(path.c_str(), "w", stdout) == nullptr) {
    throw std::runtime_error("standard output cannot be captured");
  }
  action();
  std::fflush(stdout);
  dup2(terminal, STDOUT_FILENO);
  close(terminal);

  std::ifstream log(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(log, line);) lines.push_back(line);
  return lines;
}
