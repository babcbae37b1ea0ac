#pragma once

#include <sys/types.h>

#include <array>
#include <string>
#include <vector>

#include "soak/History.h"
#include "tests/support/Sanitizers.h"

/// What a process takes of the machine over its life, looked at from outside, and whether it takes
/// more and more.
class Vitals {
 public:
  static constexpr std::array kNames{"memory in kB", "threads", "descriptors"};
  using Sample = std::array<long, kNames.size()>;

  /// A sanitizer keeps what was freed, so that memory is not judged then.
  static constexpr bool kIsMemoryJudged =
      !QVTest::kHasAddressSanitizer && !QVTest::kHasThreadSanitizer;

  /// Looks at the process; does nothing when it has gone.
  void look(pid_t process);
  void add(Time time, const Sample& sample);

  /// The medians of the second and of the last quarter: the first one is for warming up.
  Sample early() const { return medians(1); }
  Sample late() const { return medians(3); }
  /// What has grown from early to late, by name.
  std::vector<std::string> growth() const;
  /// Writes a table, a line a sample: seconds since the first one, then the sample.
  void write(const std::string& path) const;

 private:
  Sample medians(std::size_t quarter) const;

  std::vector<Time> times_;
  std::vector<Sample> samples_;
};
