// What it costs an application to bring the core up: wall time and memory of QVCoreInitialisation,
// in a process that has no web view library and in one that has it beside the platform's. Each
// measurement is the first start in a fresh process and a fresh container; the best and the median
// of them are printed.

#include <QVCore/QVCoreInitialisation.h>
#include <QVPlatform/Application.h>
#include <QVPlatform/Foundation/Log.h>

#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr int kStarts = 21;

struct Cost {
  double milliseconds = 0;
  long kilobytes = 0;
};

/// What the process holds in memory beside the files mapped into it.
long anonymousKilobytes() {
  std::ifstream mappings("/proc/self/smaps_rollup");
  for (std::string line; std::getline(mappings, line);) {
    if (line.starts_with("Anonymous:")) return std::atol(line.c_str() + 10);
  }
  return 0;
}

int start(const char* container) {
  QVPlatform::Application::setContainerDirectory(container);
  const long before = anonymousKilobytes();
  const auto begin = std::chrono::steady_clock::now();
  std::make_shared<QVCoreInitialisation>()->init();
  const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - begin;
  std::printf("%f %ld\n", taken.count(), anonymousKilobytes() - before);
  std::fflush(stdout);
  _exit(0);
}

std::vector<Cost> costsOf(const std::string& environment, const fs::path& scratch) {
  std::vector<Cost> costs;
  for (int i = 0; i < kStarts; ++i) {
    const fs::path container = scratch / "container";
    const std::string command = environment + " " + fs::read_symlink("/proc/self/exe").string() +
                                " " + container.string() + " 2>/dev/null";
    Cost cost;
    FILE* const output = popen(command.c_str(), "r");
    const bool isMeasured =
        output && std::fscanf(output, "%lf %ld", &cost.milliseconds, &cost.kilobytes) == 2;
    if (output) pclose(output);
    if (isMeasured) costs.push_back(cost);
    fs::remove_all(container);
  }
  return costs;
}

template <class T>
std::string bestAndMedian(std::vector<Cost> costs, T Cost::*member) {
  std::sort(costs.begin(), costs.end(),
            [member](const Cost& a, const Cost& b) { return a.*member < b.*member; });
  char text[64];
  std::snprintf(text, sizeof text, "%8.2f %8.2f", static_cast<double>(costs.front().*member),
                static_cast<double>(costs[costs.size() / 2].*member));
  return text;
}

void report(const char* name, const std::string& environment, const fs::path& scratch) {
  const std::vector<Cost> costs = costsOf(environment, scratch);
  if (costs.empty()) return static_cast<void>(std::printf("%-32s could not be measured\n", name));
  std::printf("%-32s %s  %s\n", name, bestAndMedian(costs, &Cost::milliseconds).c_str(),
              bestAndMedian(costs, &Cost::kilobytes).c_str());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1) return start(argv[1]);
  std::string pattern = (fs::temp_directory_path() / "qvcore-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) return 1;
  const fs::path scratch = pattern;
  // A link to the platform's library, beside which no web view library lies.
  Dl_info platform{};
  dladdr(reinterpret_cast<const void*>(&QVPlatform::consoleLog), &platform);
  const fs::path library = fs::absolute(platform.dli_fname);
  fs::create_directory(scratch / "alone");
  fs::create_symlink(library, scratch / "alone" / library.filename());

  std::printf("%-32s %17s  %17s\n", "", "best, median ms", "best, median KiB");
  report("without the web view library", "LD_LIBRARY_PATH=" + (scratch / "alone").string(),
         scratch);
  report("with it", "", scratch);
  fs::remove_all(scratch);
}
