#include "send_hits/Console.h"

#include <unistd.h>

#include <cinttypes>
#include <cstdio>

namespace {

constexpr std::chrono::milliseconds kProgressInterval{100};

}  // namespace

Console::Console(bool isQuiet) : isQuiet_(isQuiet), showsProgress_(isatty(STDERR_FILENO) == 1) {
  std::setvbuf(stdout, nullptr, _IOLBF,
               BUFSIZ);  // who reads us through a pipe wants results at once
}

void Console::result(const std::string& line) {
  if (isQuiet_) return;
  const std::lock_guard lock(mutex_);
  eraseProgress();
  std::fprintf(stdout, "%s\n", line.c_str());
}

void Console::note(const std::string& line) {
  const std::lock_guard lock(mutex_);
  eraseProgress();
  std::fprintf(stderr, "%s\n", line.c_str());
}

void Console::progress(const Counts& counts) {
  if (!showsProgress_) return;
  const std::lock_guard lock(mutex_);
  const auto now = std::chrono::steady_clock::now();
  if (now < nextProgress_) return;
  nextProgress_ = now + kProgressInterval;
  std::fprintf(stderr, "\r\x1b[K%" PRIu64 " sent, %" PRIu64 " answered, %" PRIu64 " failed",
               counts.sent, counts.answered, counts.failed);
  isProgressShown_ = true;
}

void Console::eraseProgress() {
  if (isProgressShown_) std::fputs("\r\x1b[K", stderr);
  isProgressShown_ = false;
}
