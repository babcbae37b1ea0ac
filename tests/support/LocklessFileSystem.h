#pragma once

#include <sys/file.h>
#include <sys/syscall.h>

#include "Test.h"

namespace QVTest {

/// While it lives, no file of the process can be locked, as on a file system without locks.
class LocklessFileSystem {
 public:
  LocklessFileSystem() { isHere = true; }
  ~LocklessFileSystem() { isHere = false; }
  LocklessFileSystem(const LocklessFileSystem&) = delete;
  LocklessFileSystem& operator=(const LocklessFileSystem&) = delete;

  static inline bool isHere = false;
};

}  // namespace QVTest

/// Stands in front of the C library's, in the libraries too.
extern "C" __attribute__((visibility("default"))) int flock(int descriptor,
                                                            int operation) noexcept {
  if (!QVTest::LocklessFileSystem::isHere) {
    return static_cast<int>(syscall(SYS_flock, descriptor, operation));
  }
  errno = ENOLCK;
  return -1;
}
