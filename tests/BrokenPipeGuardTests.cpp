#include <QVPlatform/Foundation/Internal/BrokenPipeGuard.h>

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

using QVPlatform::BrokenPipeGuard;

namespace {

/// Raises SIGPIPE on the calling thread.
void writeToBrokenPipe() {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  close(ends[0]);
  EXPECT_EQ(write(ends[1], "x", 1), -1);
  EXPECT_EQ(errno, EPIPE);
  close(ends[1]);
}

bool isBrokenPipe(int (*ask)(sigset_t*)) {
  sigset_t signals;
  ask(&signals);
  return sigismember(&signals, SIGPIPE) == 1;
}
bool isPending() { return isBrokenPipe(&sigpending); }
bool isBlocked() {
  return isBrokenPipe([](sigset_t* mask) { return pthread_sigmask(SIG_BLOCK, nullptr, mask); });
}
void block(int how) {
  sigset_t brokenPipe;
  sigemptyset(&brokenPipe);
  sigaddset(&brokenPipe, SIGPIPE);
  pthread_sigmask(how, &brokenPipe, nullptr);
}

// The default disposition stays in force: a signal that gets through ends the test program.

TEST(BrokenPipeGuard, TakesTheSignalAndRestoresTheMask) {
  {
    const BrokenPipeGuard guard;
    writeToBrokenPipe();
    EXPECT_TRUE(isPending());
  }
  EXPECT_FALSE(isPending());
  EXPECT_FALSE(isBlocked());
}

TEST(BrokenPipeGuard, LeavesTheSignalBlockedForAHostThatBlocksIt) {
  block(SIG_BLOCK);
  {
    const BrokenPipeGuard guard;
    writeToBrokenPipe();
  }
  EXPECT_TRUE(isBlocked());
  EXPECT_FALSE(isPending());
  block(SIG_UNBLOCK);
}

TEST(BrokenPipeGuard, LeavesASignalThatTheHostHasYetToReceive) {
  block(SIG_BLOCK);
  writeToBrokenPipe();
  { const BrokenPipeGuard guard; }
  EXPECT_TRUE(isPending());
  const timespec noWait{};
  sigset_t brokenPipe;
  sigemptyset(&brokenPipe);
  sigaddset(&brokenPipe, SIGPIPE);
  EXPECT_EQ(sigtimedwait(&brokenPipe, nullptr, &noWait), SIGPIPE);
  block(SIG_UNBLOCK);
}

}  // namespace
