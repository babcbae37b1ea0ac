#include <QVPlatform/Files/DirectoryClaim.h>

#include <QVPlatform/Files/Internal/FileLock.h>
#include <QVPlatform/Foundation/ForkMutex.h>
#include <QVPlatform/Foundation/Lasting.h>

#include <fcntl.h>
#include <unistd.h>

#include <string>
#include <utility>

namespace QVPlatform {
namespace {

/// The directory that this process has claimed.
struct Claim {
  /// A child has the parent's descriptor, and with it the lock, which would outlive the parent.
  static void giveUpInChild(void* claim) {
    auto& own = *static_cast<Claim*>(claim);
    own.mutex.assumeHeld();
    own.replace(-1);
  }

  /// Closes without unlocking, since a child's copy has the same lock as the parent's.
  void replace(int opened) QV_REQUIRES(mutex) {
    const int earlier = std::exchange(descriptor, opened);
    if (earlier >= 0) close(earlier);
  }

  ForkMutex mutex{giveUpInChild, this};
  int descriptor QV_GUARDED_BY(mutex) = -1;
};

}  // namespace

bool claimDirectoryAtPath(const String& path) {
  const std::string name(path.view());
  Claim& claim = Lasting<Claim>::object();
  const Lock lock(claim.mutex);
  if (claim.descriptor >= 0 && isAtPath(claim.descriptor, name)) return true;
  const int opened = open(name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (opened < 0) return true;
  const bool isTaken = lockFile(opened) == FileLock::kTaken;
  isTaken ? static_cast<void>(close(opened)) : claim.replace(opened);
  return !isTaken;
}

}  // namespace QVPlatform
