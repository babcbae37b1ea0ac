#include "Program.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <utility>

namespace QVPlatform::WebKit {
namespace {

constexpr std::size_t kMaximalOutput = std::size_t{1} << 20;

/// Two descriptors that no program inherits. Both lie above the standard ones, even in a process
/// that has closed those, so that putting one in place in the child overwrites no other.
class Pipe {
 public:
  Pipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return;
    for (int i = 0; i < 2; ++i) {
      ends_[i] = fcntl(ends[i], F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
      close(ends[i]);
    }
  }
  ~Pipe() {
    closeReadEnd();
    closeWriteEnd();
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  int readEnd() const { return ends_[0]; }
  int writeEnd() const { return ends_[1]; }
  void closeReadEnd() { closeEnd(ends_[0]); }
  void closeWriteEnd() { closeEnd(ends_[1]); }

 private:
  static void closeEnd(int& end) {
    if (end >= 0) close(std::exchange(end, -1));
  }

  int ends_[2] = {-1, -1};
};

/// Returns 0 or an error number.
int spawn(pid_t& child, const std::string& path, int input, int output) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);

  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t signals;
  sigemptyset(&signals);
  posix_spawnattr_setsigmask(&attributes, &signals);
  sigfillset(&signals);
  posix_spawnattr_setsigdefault(&attributes, &signals);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

  char* arguments[] = {const_cast<char*>(path.c_str()), nullptr};
  const int error = posix_spawn(&child, path.c_str(), &actions, &attributes, arguments, environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  return error;
}

void writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(descriptor, bytes.data(), bytes.size());
    if (written <= 0) return;  // the program has ended, and its status says why
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
}

std::string readAll(int descriptor) {
  std::string bytes;
  char buffer[4096];
  ssize_t count = 0;
  while (bytes.size() < kMaximalOutput && (count = read(descriptor, buffer, sizeof buffer)) > 0) {
    bytes.append(buffer, static_cast<std::size_t>(count));
  }
  return bytes;
}

std::string failureOf(pid_t child) {
  int status = 0;
  // The application may have reaped the child before: then nothing is known against it.
  if (waitpid(child, &status, 0) != child) return "";
  if (WIFSIGNALED(status)) return "ended by signal " + std::to_string(WTERMSIG(status));
  const int code = WEXITSTATUS(status);
  return code == 0 ? "" : "ended with status " + std::to_string(code);
}

}  // namespace

ProgramResult runProgram(const std::string& path, std::string_view input) {
  Pipe toProgram;
  Pipe fromProgram;
  pid_t child = 0;
  if (const int error = spawn(child, path, toProgram.readEnd(), fromProgram.writeEnd())) {
    return {"", std::string("cannot be started: ") + std::strerror(error)};
  }
  toProgram.closeReadEnd();
  fromProgram.closeWriteEnd();
  writeAll(toProgram.writeEnd(), input);
  toProgram.closeWriteEnd();
  ProgramResult result{readAll(fromProgram.readEnd()), ""};
  fromProgram.closeReadEnd();
  result.failure = failureOf(child);
  return result;
}

}  // namespace QVPlatform::WebKit
