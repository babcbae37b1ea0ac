#pragma once

/// The status of the HTTP answer of which this thread is just telling its observers, since the user
/// info of what they are told has no place for it.
class QVToldStatus {
 public:
  /// From now on this status, until the end of the scope; 0 for what is told without an answer.
  explicit QVToldStatus(int status) noexcept;
  ~QVToldStatus();
  QVToldStatus(const QVToldStatus&) = delete;
  QVToldStatus& operator=(const QVToldStatus&) = delete;

  static int current() noexcept;

 private:
  const int outer_;
};
