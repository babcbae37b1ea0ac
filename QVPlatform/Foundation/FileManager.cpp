#include <QVPlatform/Foundation/FileManager.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <system_error>

namespace QVPlatform {
namespace {

/// The path for system calls, which would take a zero byte for its end; nullptr if it is unusable.
const char* systemPath(const String& path) {
  const bool isUsable = !path.isEmpty() && path.view().find('\0') == std::string_view::npos;
  return isUsable ? path.UTF8String() : nullptr;
}

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

/// As contentsAtPath(); where that gives null, errno tells why.
Data readFile(const String& path, std::size_t maximumSize) {
  errno = ENOENT;
  const char* name = systemPath(path);
  if (!name) return nullptr;
  // Without O_NONBLOCK, opening a pipe would wait for a writer.
  const int descriptor = open(name, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  if (descriptor < 0) return nullptr;
  struct stat status {};
  std::string bytes;
  bool isRead = false;
  if (fstat(descriptor, &status) == 0) {
    const auto size = static_cast<std::size_t>(status.st_size);
    errno = !S_ISREG(status.st_mode) ? EINVAL : EFBIG;
    isRead = S_ISREG(status.st_mode) && size <= maximumSize &&
             readAll(descriptor, size, maximumSize, bytes);
  }
  const int reason = errno;
  close(descriptor);
  errno = reason;
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

Data FileManager::contentsAtPath(const String& path, std::size_t maximumSize) {
  return readFile(path, maximumSize);
}

String FileManager::stringWithContentsOfFile(const String& path, String* error) {
  const Data data = readFile(path, kMaximumTextSize);
  const int reason = errno;
  const String text = data.string();
  if (text.isNull() && error) {
    *error = String("The file \"") + path + String("\" could not be read: ") +
             String(data.isNull() ? std::generic_category().message(reason) : "it is not UTF-8");
  }
  return text;
}

bool FileManager::writeAtomically(const Data& data, const String& path) {
  return !data.isNull() && writeAtomically(data.view(), path);
}

}  // namespace QVPlatform
