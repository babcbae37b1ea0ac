#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/String.h>

#include <span>
#include <string>
#include <string_view>

namespace QVPlatform {

/// A file that is written beside the one that it is to replace, and then moved into its place: for
/// writers that have to decide at the last moment whether theirs is still the newest. All others
/// have FileManager::writeAtomically().
///
/// The unfinished file's name is one of a few fixed ones (".<name>.tmp<n>"), each belonging to
/// whoever holds the lock on the file: so a name that a killed process left is used again instead
/// of piling up, and no writer waits for another one, which may be stopped. A name in whose place
/// there is anything else than a file of this user is passed over. Where the file system has no
/// locks, a left-over is taken over when nobody has written to it for a minute.
///
/// Threads: one object is used by one thread; any number may write to one path.
class QVPLATFORM_EXPORT AtomicFile {
 public:
  /// The path of the file to replace. One that is null, empty or holds a zero byte cannot be
  /// written.
  explicit AtomicFile(const String& path);
  /// Removes the unfinished file, if it was not moved.
  ~AtomicFile();
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  /// Writes all the bytes, mode 0600, in place of what was written before, and flushes them to the
  /// disk; false, with error(), when that fails.
  bool write(std::string_view bytes) { return write(std::span(&bytes, 1)); }
  /// The same for bytes that lie in several places, one behind the other.
  bool write(std::span<const std::string_view> pieces);
  /// The same in steps: writes the bytes behind those that are written.
  bool append(std::span<const std::string_view> pieces);
  /// Flushes what was appended to the disk.
  bool flush();
  /// Moves what was written into its place, at once. False, with error(), when that fails.
  bool moveIntoPlace();
  /// Why the last operation failed, for people ("No space left on device").
  String error() const;

 private:
  bool begin();
  bool open();
  bool claim();
  bool isDone(bool isSuccess);

  const std::string target_;
  std::string path_;
  int descriptor_ = -1;
  bool isEmpty_ = false;
  int error_ = 0;
};

}  // namespace QVPlatform
