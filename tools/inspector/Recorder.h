#pragma once

#include <string>

#include "inspector/Store.h"

/// Writes what arrives to the end of a file, as JSON lines: a hit when it comes, and a line with
/// the outcome when that comes later. What was imported is not written again.
class Recorder : public StoreObserver {
 public:
  Recorder() = default;
  ~Recorder() override;
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  /// Makes the file if there is none. False if it cannot be written; errno says why.
  bool open(const std::string& path);
  /// Hands over to the system what has come since the last call. False if that fails now: nothing
  /// is written from then on, and error() says why.
  bool flush();
  const std::string& error() const { return error_; }

  void onAdded(const Hit& hit) override;
  void onChanged(const Hit& hit) override;
  void onCleared() override {}

 private:
  void add(const Hit& hit, const std::string& line);

  int file_ = -1;
  std::string lines_;
  std::string error_;
};
