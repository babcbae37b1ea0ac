#include <QVPlatform/Files/FileManager.h>

#include <QVPlatform/Files/AtomicFile.h>

#include <fcntl.h>
#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>
#include <system_error>

namespace QVPlatform {
namespace {

constexpr std::size_t kEndSize = 64;

/// The path for system calls, which would take a zero byte for its end; nullptr if it is unusable.
const char* systemPath(const String& path) {
  const bool isUsable = !path.isEmpty() && path.view().find('\0') == std::string_view::npos;
  return isUsable ? path.UTF8String() : nullptr;
}

/// A file that is open for reading, for as long as this lives. Closing it leaves errno alone, which
/// tells why a file is not a regular one that can be read.
class OpenFile {
 public:
  explicit OpenFile(const String& path) {
    errno = ENOENT;
    // Without O_NONBLOCK, opening a pipe would wait for a writer.
    if (const char* name = systemPath(path)) {
      descriptor_ = open(name, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    }
    if (descriptor_ < 0 || fstat(descriptor_, &status_) != 0) return;
    isRegular_ = S_ISREG(status_.st_mode);
    if (!isRegular_) errno = EINVAL;
  }
  ~OpenFile() {
    const int reason = errno;
    if (descriptor_ >= 0) close(descriptor_);
    errno = reason;
  }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  bool isRegular() const { return isRegular_; }
  std::size_t size() const { return static_cast<std::size_t>(status_.st_size); }
  int descriptor() const { return descriptor_; }

 private:
  int descriptor_ = -1;
  struct stat status_ {};
  bool isRegular_ = false;
};

/// Reads what there is, also of files that grow meanwhile or do not tell their size. False on an
/// error and when there is more than `maximumSize`.
bool readAll(int descriptor, std::size_t expectedSize, std::size_t maximumSize,
             std::string& bytes) {
  // One byte more than expected shows the end of the file without another buffer.
  bytes.resize(expectedSize + 1);
  std::size_t length = 0;
  for (;;) {
    const ssize_t got = read(descriptor, bytes.data() + length, bytes.size() - length);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return false;
    if (got == 0) break;
    length += static_cast<std::size_t>(got);
    if (length > maximumSize) return false;
    if (length == bytes.size()) bytes.resize(length + length / 2 + 4096);
  }
  bytes.resize(length);
  return true;
}

/// The bytes at that place, fewer at the end of the file; false on an error.
bool readAt(int descriptor, std::size_t place, std::string& bytes) {
  std::size_t length = 0;
  while (length < bytes.size()) {
    const ssize_t got = pread(descriptor, bytes.data() + length, bytes.size() - length,
                              static_cast<off_t>(place + length));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return false;
    if (got == 0) break;
    length += static_cast<std::size_t>(got);
  }
  bytes.resize(length);
  return true;
}

Data readFile(const String& path, std::size_t maximumSize) {
  const OpenFile file(path);
  if (!file.isRegular()) return nullptr;
  std::string bytes;
  errno = EFBIG;
  const bool isRead =
      file.size() <= maximumSize && readAll(file.descriptor(), file.size(), maximumSize, bytes);
  return isRead ? Data(std::move(bytes)) : Data();
}

}  // namespace

bool FileManager::fileExistsAtPath(const String& path) {
  const char* name = systemPath(path);
  struct stat status {};
  return name && stat(name, &status) == 0;
}

bool FileManager::createDirectoryAtPath(const String& path) {
  const char* name = systemPath(path);
  return name && mkdir(name, S_IRWXU) == 0;
}

bool FileManager::removeItemAtPath(const String& path) {
  const char* name = systemPath(path);
  return name && std::remove(name) == 0;
}

bool FileManager::removeContentsOfDirectoryAtPath(const String& path) {
  const char* name = systemPath(path);
  if (!name) return false;
  // Not by the standard library, whose directory iterators end the process when memory runs out.
  // The directory itself may be a link.
  const std::string directory = std::string(name) + "/";
  static constexpr int kOpenDirectories = 16;
  const auto removeItem = [](const char* item, const struct stat*, int, FTW* place) {
    if (place->level > 0) std::remove(item);
    return 0;  // what cannot be removed keeps nobody from removing the rest
  };
  const auto isLeft = [](const char*, const struct stat*, int, FTW* place) {
    return place->level > 0 ? 1 : 0;
  };
  nftw(directory.c_str(), removeItem, kOpenDirectories, FTW_DEPTH | FTW_PHYS);
  const int left = nftw(directory.c_str(), isLeft, kOpenDirectories, FTW_PHYS);
  return left == 0 || (left < 0 && errno == ENOENT);
}

Data FileManager::contentsAtPath(const String& path, std::size_t maximumSize) {
  return readFile(path, maximumSize);
}

String FileManager::stringWithContentsOfFile(const String& path, String* error) {
  const Data data = readFile(path, kMaximumTextSize);
  const int reason = errno;
  String text = data.string();
  if (text.isNull() && error) {
    *error = String("The file \"") + path + String("\" could not be read: ") +
             String(data.isNull() ? std::generic_category().message(reason) : "it is not UTF-8");
  }
  return text;
}

bool FileManager::canBePropertyListAtPath(const String& path, std::size_t maximumXMLSize) {
  const OpenFile file(path);
  if (!file.isRegular()) return errno != ENOENT && errno != ENOTDIR && errno != EINVAL;
  std::string beginning(std::min(file.size(), kEndSize), '\0');
  std::string end = beginning;
  const bool isRead = readAt(file.descriptor(), 0, beginning) &&
                      readAt(file.descriptor(), file.size() - end.size(), end);
  return !isRead || PropertyList::canBe({beginning, end, file.size()}, maximumXMLSize);
}

bool FileManager::writeAtomically(std::string_view bytes, const String& path) {
  AtomicFile file(path);
  return file.write(bytes) && file.moveIntoPlace();
}

bool FileManager::writeAtomically(const Data& data, const String& path) {
  return !data.isNull() && writeAtomically(data.view(), path);
}

}  // namespace QVPlatform
