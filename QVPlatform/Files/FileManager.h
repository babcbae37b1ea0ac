#pragma once

#include <QVPlatform/Archives/PropertyList.h>
#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/Data.h>
#include <QVPlatform/Foundation/String.h>

#include <cstddef>
#include <string_view>

namespace QVPlatform {

/// Files and directories. A path that is null, empty or holds a zero byte names nothing: whatever
/// is asked of it fails.
///
/// Threads: every operation may be called from any thread and waits for the disk on it. No
/// operation keeps anything open.
class QVPLATFORM_EXPORT FileManager {
 public:
  /// The most that stringWithContentsOfFile() reads, in bytes.
  static constexpr std::size_t kMaximumTextSize = 64U << 20;

  /// Whether anything is there; a symbolic link counts as what it points to.
  static bool fileExistsAtPath(const String& path);
  /// Makes one directory, mode 0700; the one that is to hold it must exist. False when nothing was
  /// made, also when something is there already.
  static bool createDirectoryAtPath(const String& path);
  /// Removes a file, a symbolic link (not what it points to) or an empty directory.
  static bool removeItemAtPath(const String& path);
  /// Removes all that a directory holds, directories in it with their own contents, and leaves it
  /// itself; follows no symbolic link. False when something is still there; true when there is no
  /// such directory.
  static bool removeContentsOfDirectoryAtPath(const String& path);

  /// All bytes of a regular file; null when it is missing, unreadable, larger than `maximumSize`
  /// or no regular file; then errno tells why, EFBIG and EINVAL being the last two. Never waits for
  /// the other end of a pipe.
  static Data contentsAtPath(const String& path, std::size_t maximumSize);
  /// Whether a regular file begins and ends as a property list does (PropertyList::canBe()): a
  /// quick look that spares the reading of a large file that is none. True of a file that is there
  /// and cannot be read at the moment: it may be one.
  static bool canBePropertyListAtPath(const String& path,
                                      std::size_t maximumXMLSize = PropertyList::kMaximumSize);
  /// The file's text. Null when contentsAtPath() has none or it is not UTF-8; then `error`, unless
  /// nullptr, receives the reason.
  static String stringWithContentsOfFile(const String& path, String* error = nullptr);

  /// Replaces the file by a new one, mode 0600, with these bytes. The file is written beside the
  /// old one, flushed to the disk and then moved into its place: whatever happens, and however many
  /// threads and processes write it at once, it holds the old or the new bytes, entire. False when
  /// the old file stayed. The move itself is flushed by the file system, in its own time: if the
  /// power fails before, the old file is back. A process that is killed while writing leaves at
  /// most its unfinished ".<name>.tmp<n>", which a later write of the file takes over. AtomicFile
  /// does the same in two steps, and tells why it failed.
  static bool writeAtomically(std::string_view bytes, const String& path);
  static bool writeAtomically(const Data& data, const String& path);
};

}  // namespace QVPlatform
