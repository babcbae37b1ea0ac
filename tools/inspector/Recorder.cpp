#include "inspector/Recorder.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "inspector/HitJSON.h"

Recorder::~Recorder() {
  flush();
  if (file_ >= 0) close(file_);
}

bool Recorder::open(const std::string& path) {
  file_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  return file_ >= 0;
}

bool Recorder::flush() {
  std::size_t written = 0;
  while (written < lines_.size()) {
    const ssize_t size = write(file_, lines_.data() + written, lines_.size() - written);
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) {
      error_ = std::strerror(errno);
      close(file_);
      file_ = -1;
      lines_ = std::string();
      return false;
    }
    written += static_cast<std::size_t>(size);
  }
  lines_.clear();
  return true;
}

void Recorder::onAdded(const Hit& hit) { add(hit, jsonOf(hit)); }
void Recorder::onChanged(const Hit& hit) { add(hit, changeOf(hit)); }

void Recorder::add(const Hit& hit, const std::string& line) {
  if (file_ >= 0 && hit.source.empty()) lines_ += line + '\n';
}
