#pragma once

#include <sys/resource.h>

#include <spawn.h>
#include "tests/support/Test.h"

extern char** environ;

/// A program that runs beside the test. What it prints, on either stream, is read as one text.
class Program {
 public:
  Program(const std::string& path, std::vector<std::string> arguments) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    arguments.insert(arguments.begin(), path);
    std::vector<char*> pointers;
    for (auto& argument : arguments) pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&files, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&files, ends[1], STDERR_FILENO);
    const int error =
        posix_spawn(&process_, path.c_str(), &files, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    close(ends[1]);
    output_ = ends[0];
    if (error != 0) throw std::runtime_error("cannot start " + path);
  }
  ~Program() {
    if (process_ != 0) {
      kill(process_, SIGKILL);
      waitpid(process_, nullptr, 0);
    }
    close(output_);
  }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  /// Reads until the program has printed the text; false if it ends before.
  bool waitForOutput(const std::string& text) {
    while (printed_.find(text) == std::string::npos) {
      if (!read()) return false;
    }
    return true;
  }
  void interrupt() { kill(process_, SIGINT); }

  /// The exit status, when the program has ended; 128 and the signal if one ended it.
  int finish() {
    while (read()) {
    }
    int status = 0;
    rusage usage{};
    wait4(std::exchange(process_, 0), &status, 0, &usage);
    peakKilobytes_ = usage.ru_maxrss;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  const std::string& printed() const { return printed_; }
  /// The most memory that it had, once finished.
  long peakKilobytes() const { return peakKilobytes_; }

 private:
  bool read() {
    char buffer[4096];
    const ssize_t count = ::read(output_, buffer, sizeof buffer);
    if (count > 0) printed_.append(buffer, static_cast<std::size_t>(count));
    return count > 0;
  }

  pid_t process_ = 0;
  int output_ = -1;
  std::string printed_;
  long peakKilobytes_ = 0;
};
