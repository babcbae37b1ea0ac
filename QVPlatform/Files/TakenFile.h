#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Files/AtomicFile.h>
#include <QVPlatform/Foundation/Data.h>
#include <QVPlatform/Foundation/String.h>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace QVPlatform {

/// A file that was taken out of its place, so that what it holds is dealt with once: of any number
/// of threads and processes that want it one gets it, and a new file may take its place meanwhile.
///
/// Taking moves the file to a name of its own beside it (".<name>.taken<n>...") and locks it. What
/// a process took and neither removed nor put back before it ended is taken by the next one that
/// comes. A file that cannot be moved is locked in its place. Where the file system has no locks,
/// the name tells the process: only what belongs to none that lives is taken, and of the threads of
/// one process one may take at a time. Links, and whatever else is no regular file, are left where
/// they are.
///
/// Threads: one object is used by one thread; any number may take from one path.
class QVPLATFORM_EXPORT TakenFile {
 public:
  /// Takes what ended processes have left of the file, oldest first, and last the file itself, if
  /// isWanted() says so of its path.
  static std::vector<TakenFile> takeAtPath(const String& path,
                                           bool (*isWanted)(const String& path));

  TakenFile(TakenFile&& other) noexcept;
  TakenFile& operator=(TakenFile&&) = delete;
  /// Gives it up as it is: whoever comes next takes it.
  ~TakenFile();

  /// As FileManager::contentsAtPath().
  Data contents(std::size_t maximumSize) const;
  /// Where it lies now.
  String path() const { return String(path_); }
  /// Moves the file back to its place. If there is another one by now, it stays where it is.
  void putBack() noexcept;
  /// Leaves a newer file alone that has taken the place of one that could not be moved.
  void remove() noexcept;
  /// Puts the bytes in the place of what it holds, at once; nobody else takes it meanwhile. False
  /// when they cannot be written.
  bool replaceContents(std::string_view bytes);

 private:
  TakenFile(std::string place, std::string path) noexcept;
  bool lock();
  bool takeOver();

  std::string place_;
  std::string path_;
  int descriptor_ = -1;
  std::unique_ptr<AtomicFile> replacement_;  // holds the lock on the new file
};

}  // namespace QVPlatform
