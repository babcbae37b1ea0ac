#include "soak/Vitals.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace {

// What is no growth yet: the allocator gives pages back when it likes, and a short run warms up to
// its end.
constexpr long kMemoryPercent = 3;
constexpr long kMemorySlack = 512;  // kB
constexpr std::size_t kFewest = 40;
// A quarter of a short run may pass over one connection, or over none.
constexpr Time kLong = 300'000'000'000;
constexpr long kSlackOfShortRun = 5;

long numberOf(const std::string& status, const std::string& field) {
  const std::size_t place = status.find("\n" + field + ":");
  return place == std::string::npos ? 0 : std::stol(status.substr(place + field.size() + 2));
}

long countOfFiles(const std::string& directory) {
  std::error_code error;
  long count = 0;
  for (std::filesystem::directory_iterator file(directory, error), end; !error && file != end;
       file.increment(error)) {
    ++count;
  }
  return count;
}

}  // namespace

void Vitals::look(pid_t process) {
  const std::string place = "/proc/" + std::to_string(process);
  std::ifstream file(place + "/status");
  const std::string status(std::istreambuf_iterator<char>(file), {});
  const long memory = numberOf(status, "VmRSS");
  if (memory == 0) return;
  add(timeNow(), {memory, numberOf(status, "Threads"), countOfFiles(place + "/fd")});
}

void Vitals::add(Time time, const Sample& sample) {
  times_.push_back(time);
  samples_.push_back(sample);
}

Vitals::Sample Vitals::medians(std::size_t quarter) const {
  Sample result{};
  const auto begin = samples_.begin() + static_cast<long>(samples_.size() * quarter / 4);
  const auto end = samples_.begin() + static_cast<long>(samples_.size() * (quarter + 1) / 4);
  for (std::size_t i = 0; i < result.size() && begin != end; ++i) {
    std::vector<long> values;
    std::transform(begin, end, std::back_inserter(values),
                   [i](const Sample& sample) { return sample[i]; });
    std::sort(values.begin(), values.end());
    result[i] = values[values.size() / 2];
  }
  return result;
}

std::vector<std::string> Vitals::growth() const {
  std::vector<std::string> grown;
  if (samples_.size() < kFewest) return grown;
  const bool isLong = times_.back() - times_.front() >= kLong;
  const Sample before = early();
  const Sample after = late();
  for (std::size_t i = 0; i < before.size(); ++i) {
    const bool isMemory = i == 0;
    if (isMemory && !kIsMemoryJudged) continue;
    const long slack = isMemory ? before[i] * kMemoryPercent / 100 + kMemorySlack
                       : isLong ? 0
                                : kSlackOfShortRun;
    if (after[i] > before[i] + slack) grown.emplace_back(kNames[i]);
  }
  return grown;
}

void Vitals::write(const std::string& path) const {
  std::ofstream file(path);
  file << "seconds";
  for (const char* name : kNames) file << '\t' << name;
  for (std::size_t line = 0; line < times_.size(); ++line) {
    file << '\n' << (times_[line] - times_.front()) / 1'000'000'000;
    for (const long value : samples_[line]) file << '\t' << value;
  }
  file << '\n';
}
