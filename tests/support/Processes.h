#pragma once

#include <gtest/gtest.h>

#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

namespace QVTest {

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
#ifdef __SANITIZE_ADDRESS__
inline constexpr bool kHasAddressSanitizer = true;
#else
inline constexpr bool kHasAddressSanitizer = false;
#endif
inline constexpr bool kHasThreadSanitizer = !kHasAddressSanitizer;
#elif defined(__has_feature)
inline constexpr bool kHasAddressSanitizer = __has_feature(address_sanitizer);
inline constexpr bool kHasThreadSanitizer = __has_feature(thread_sanitizer);
#else
inline constexpr bool kHasAddressSanitizer = false;
inline constexpr bool kHasThreadSanitizer = false;
#endif

/// Whether a child of a process with several threads may go on: ThreadSanitizer ends it when it
/// starts some of its own, and AddressSanitizer may wait for ever for another thread of the parent
/// that was just allocating.
inline constexpr bool kChildrenMayGoOn = !kHasAddressSanitizer && !kHasThreadSanitizer;

/// Starts a copy of this process that runs the function and ends with its result.
inline pid_t startChild(const std::function<int()>& function) {
  const pid_t child = fork();
  if (child == 0) _exit(function());
  return child;
}

/// Exit status of the child; -1 when it did not exit by itself.
inline int exitStatusOf(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

inline int runInChild(const std::function<int()>& function) {
  return exitStatusOf(startChild(function));
}

/// What the shell command prints; a command that fails is a failure of the test.
inline std::string outputOf(const std::string& command) {
  std::string output;
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) throw std::runtime_error("no pipe");
  char buffer[4096];
  while (const std::size_t got = fread(buffer, 1, sizeof buffer, pipe)) output.append(buffer, got);
  EXPECT_EQ(pclose(pipe), 0) << command;
  return output;
}

inline std::string contentsOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void putFile(const std::filesystem::path& path, std::string_view bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

}  // namespace QVTest
