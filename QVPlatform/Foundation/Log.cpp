#include <QVPlatform/Foundation/Log.h>

#include <QVPlatform/Foundation/CallOut.h>
#include <QVPlatform/Foundation/ForkMutex.h>
#include <QVPlatform/Foundation/Internal/SignalShield.h>

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <stdio_ext.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

namespace QVPlatform {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPatience{200};
constexpr std::chrono::milliseconds kInterval{1};

/// A pipe that takes anything takes this much without waiting. Some of it is left for what stands
/// around the text.
constexpr std::size_t kLargestPiece = PIPE_BUF - 64;

/// Without a lock, since a line may have to be told under any, and amid a fork().
constinit std::atomic<const LogSink*> currentSink{nullptr};
constinit thread_local bool isInSink = false;

/// Whether the line is told. What comes of the telling is for the outputs.
bool tellSink(const LogLine& line) {
  const LogSink* const sink = currentSink;
  if (!sink || isInSink) return false;
  const struct Turn {
    Turn() { isInSink = true; }
    ~Turn() { isInSink = false; }
  } turn;
  callOut([&] { (*sink)(line); });
  return true;
}

/// The stream's lock. A thread of the host may be held while it prints, with the lock in its hand;
/// one that is cancelled while it waits for room must not keep it.
class StreamLock {
 public:
  StreamLock(std::FILE* stream, Clock::time_point deadline) : stream_(stream) {
    while (!(isHeld_ = ftrylockfile(stream) == 0) && Clock::now() < deadline) {
      std::this_thread::sleep_for(kInterval);
    }
  }
  ~StreamLock() {
    if (isHeld_) funlockfile(stream_);
  }
  StreamLock(const StreamLock&) = delete;
  StreamLock& operator=(const StreamLock&) = delete;

  bool isHeld() const { return isHeld_; }

 private:
  std::FILE* const stream_;
  bool isHeld_ = false;
};

/// Whether a piece can be written without waiting. What is wrong with the output shows then.
bool waitForRoom(std::FILE* stream, Clock::time_point deadline) {
  pollfd output{fileno(stream), POLLOUT, 0};
  if (output.fd < 0) return true;  // a stream of the host's own making
  int ready = 0;
  do {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    ready = poll(&output, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
  } while (ready < 0 && errno == EINTR);
  return ready != 0;
}

/// Whether what the host printed earlier may be too much to go at once without waiting.
bool holdsMuch(std::FILE* stream) {
  struct stat status {};
  const int file = fileno(stream);
  return __fpending(stream) > PIPE_BUF && file >= 0 && fstat(file, &status) == 0 &&
         !S_ISREG(status.st_mode);
}

/// A terminal may have room for less than it is given, and hold the writer until it has more: but
/// not one who came by a description of its own. -1 for what is no terminal.
int openTerminal(std::FILE* stream) {
  const int file = fileno(stream);
  if (file < 0 || isatty(file) == 0) return -1;
  char path[32];
  std::snprintf(path, sizeof path, "/proc/self/fd/%d", file);
  return open(path, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

bool writeTo(int terminal, std::string_view text, Clock::time_point deadline) {
  while (!text.empty()) {
    const ssize_t written = write(terminal, text.data(), text.size());
    if (written > 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (written < 0 && errno != EINTR) {
      if (errno != EAGAIN || Clock::now() >= deadline) return false;
      std::this_thread::sleep_for(kInterval);
    }
  }
  return true;
}

/// What the host printed earlier goes first. Nothing of the line stays in the stream's buffer,
/// where the exit of the process would wait for it or be ended by a signal.
bool print(std::FILE* stream, const char* prefix, std::string_view text,
           Clock::time_point deadline) {
  if (holdsMuch(stream) || !waitForRoom(stream, deadline) || std::fflush(stream) != 0) return false;
  if (const int terminal = openTerminal(stream); terminal >= 0) {
    const bool isPrinted = writeTo(terminal, prefix, deadline) &&
                           writeTo(terminal, text, deadline) && writeTo(terminal, "\n", deadline);
    close(terminal);
    return isPrinted;
  }
  for (;;) {
    const std::string_view piece = text.substr(0, kLargestPiece);
    text.remove_prefix(piece.size());
    const bool isPrinted = std::fprintf(stream, "%s%.*s%s", prefix, static_cast<int>(piece.size()),
                                        piece.data(), text.empty() ? "\n" : "") >= 0;
    if (!isPrinted || std::fflush(stream) != 0) {
      __fpurge(stream);
      return false;
    }
    if (text.empty()) return true;
    if (!waitForRoom(stream, deadline)) return false;
    prefix = "";
  }
}

/// Prints the line or drops it. `dropped` is how many were since the last one that was printed;
/// once one had to wait in vain, the next ones do not wait.
void printOrDrop(std::FILE* stream, const char* prefix, const String& text,
                 std::atomic<std::size_t>& dropped) {
  const char* const line = text.isNull() ? "(null)" : text.UTF8String();
  const auto deadline = Clock::now() + (dropped == 0 ? kPatience : Clock::duration::zero());
  const SignalShield shield;
  bool isPrinted = false;
  {
    const StreamLock lock(stream, deadline);
    isPrinted = lock.isHeld() && print(stream, prefix, line, deadline);
  }
  if (!isPrinted) {
    ++dropped;
  } else if (const std::size_t count = dropped.exchange(0); count > 0) {
    consoleLog(String("lines that nobody read in time were dropped: ") + std::to_string(count));
  }
}

}  // namespace

void consoleLog(const String& message) {
  static constinit std::atomic<std::size_t> dropped{0};
  if (tellSink({LogOutput::kConsole, std::nullopt, message})) return;
  printOrDrop(stderr, QVPLATFORM_KIT ": ", message, dropped);
}

void printLine(const String& text, std::optional<std::int32_t> level) {
  static constinit std::atomic<std::size_t> dropped{0};
  if (tellSink({LogOutput::kStandardOutput, level, text})) return;
  printOrDrop(stdout, "", text, dropped);
}

bool setLogSink(LogSink sink) {
  return callOut([&] {
    static constinit Mutex mutex;
    const LogSink* const next = sink ? new LogSink(std::move(sink)) : nullptr;
    const Lock lock(mutex);
    keepForEver(currentSink.exchange(next));
  });
}

}  // namespace QVPlatform
