#pragma once

#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>

namespace QVPlatform {

/// What came of asking for the lock on an open file.
enum class FileLock {
  kHeld,
  kTaken,     ///< Somebody else has it.
  kNotToGet,  ///< There are no locks on this file system.
};

/// Locks the file, without waiting, until the descriptor is unlocked.
inline FileLock lockFile(int descriptor) noexcept {
  int result;
  do {
    result = flock(descriptor, LOCK_EX | LOCK_NB);
  } while (result != 0 && errno == EINTR);
  if (result == 0) return FileLock::kHeld;
  return errno == EWOULDBLOCK ? FileLock::kTaken : FileLock::kNotToGet;
}

/// Closing alone would leave the lock to a process forked meanwhile, which shares the descriptor.
inline void unlockFile(int descriptor) noexcept { flock(descriptor, LOCK_UN); }

/// Whether the open file still is the one at the path: its last owner may have moved or removed it
/// between its being opened and its being locked.
inline bool isAtPath(int descriptor, const std::string& path) noexcept {
  struct stat held {};
  struct stat named {};
  return fstat(descriptor, &held) == 0 && stat(path.c_str(), &named) == 0 &&
         held.st_dev == named.st_dev && held.st_ino == named.st_ino;
}

}  // namespace QVPlatform
