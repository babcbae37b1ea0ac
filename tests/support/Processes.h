#pragma once

#include <sys/resource.h>

#include "Test.h"

namespace QVTest {

/// Starts a copy of this process that runs the function and ends with its result.
inline pid_t startChild(const std::function<int()>& function) {
  const pid_t child = fork();
  if (child == 0) _exit(function());
  return child;
}

/// Exit status of the child; -1 when it did not exit by itself.
inline int exitStatusOf(pid_t child, rusage* usage = nullptr) {
  int status = 0;
  while (wait4(child, &status, 0, usage) < 0 && errno == EINTR) continue;
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

/// What the action prints on standard output.
inline std::string printed(const std::function<void()>& action) {
  testing::internal::CaptureStdout();
  action();
  std::fflush(stdout);
  return testing::internal::GetCapturedStdout();
}

/// What it prints on standard error.
inline std::string complaintsOf(const std::function<void()>& action) {
  testing::internal::CaptureStderr();
  action();
  return testing::internal::GetCapturedStderr();
}

/// Runs the function on that many threads at once, each with its number, until all have ended.
inline void runAtOnce(int count, const std::function<void(int)>& function) {
  std::vector<std::jthread> threads;
  threads.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) threads.emplace_back(function, i);
}

/// Whether the condition holds within ten seconds. Takes no memory, which may be about to fail.
template <class Condition>
bool waitUntil(const Condition& condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!condition() && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
  return condition();
}

/// The words of the text, between blanks.
inline std::vector<std::string> words(const std::string& text) {
  std::istringstream stream(text);
  return {std::istream_iterator<std::string>(stream), {}};
}

inline std::string contentsOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void putFile(const std::filesystem::path& path, std::string_view bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

}  // namespace QVTest
