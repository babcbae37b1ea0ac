// What it costs an application to have the core: the load of its libraries beside that of libcurl
// alone, which any client needs, and of nothing; and the first start of the core in a fresh process
// and a fresh container, without a web view library and with the one beside the platform's.

#include "support/Basics.h"

#include <QVCore/QVCoreInitialisation.h>
#include <QVPlatform/Application.h>
#include <QVPlatform/Foundation/Log.h>

#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

namespace fs = std::filesystem;
using QVBenchmark::fail;
using Clock = std::chrono::steady_clock;

fs::path scratch;
bool hasEngine = false;

/// What the process holds in memory beside the files mapped into it.
double anonymousKilobytes() {
  std::ifstream mappings("/proc/self/smaps_rollup");
  for (std::string line; std::getline(mappings, line);) {
    if (line.starts_with("Anonymous:")) return std::atof(line.c_str() + 10);
  }
  return 0;
}

/// What the program is when it is started by itself: one first start.
int startCore(const char* container) {
  QVPlatform::Application::setContainerDirectory(container);
  const double before = anonymousKilobytes();
  const auto begin = Clock::now();
  std::make_shared<QVCoreInitialisation>()->init();
  const std::chrono::duration<double> taken = Clock::now() - begin;
  std::printf("%.9f %f\n", taken.count(), anonymousKilobytes() - before);
  std::fflush(stdout);
  _exit(0);
}

void start(benchmark::State& state, const std::string& environment) {
  const fs::path container = scratch / "container";
  const std::string command = environment + " " + fs::read_symlink("/proc/self/exe").string() +
                              " --start " + container.string() + " 2>/dev/null";
  double kilobytes = 0;
  for (auto _ : state) {
    double seconds = 0;
    FILE* const output = popen(command.c_str(), "r");
    if (!output || std::fscanf(output, "%lf %lf", &seconds, &kilobytes) != 2) {
      fail("The core did not start.");
    }
    pclose(output);
    fs::remove_all(container);
    state.SetIterationTime(seconds);
  }
  state.counters["kilobytes"] = kilobytes;
  if (!hasEngine) state.SetLabel("no web engine was built");
}

/// A process from its start to its end, in which nothing but loading happens.
void load(benchmark::State& state, const char* program) {
  const fs::path path = fs::read_symlink("/proc/self/exe").parent_path() / program;
  char* arguments[] = {const_cast<char*>(program), nullptr};
  for (auto _ : state) {
    pid_t process = 0;
    int status = -1;
    if (posix_spawn(&process, path.c_str(), nullptr, nullptr, arguments, environ) != 0 ||
        waitpid(process, &status, 0) != process || status != 0) {
      fail("A program that only loads did not run.");
    }
  }
}

}  // namespace

int main(int count, char** arguments) {
  if (count == 3 && std::strcmp(arguments[1], "--start") == 0) return startCore(arguments[2]);
  benchmark::Initialize(&count, arguments);
  if (benchmark::ReportUnrecognizedArguments(count, arguments)) return 1;
  std::string pattern = (fs::temp_directory_path() / "qvcore-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) fail("There is no temporary directory.");
  scratch = pattern;
  // A link to the platform's library, beside which no web view library lies.
  Dl_info platform{};
  dladdr(reinterpret_cast<const void*>(&QVPlatform::consoleLog), &platform);
  const fs::path library = fs::absolute(platform.dli_fname);
  hasEngine = fs::exists(library.parent_path() / "libQVWebKit.so");
  fs::create_directory(scratch / "alone");
  fs::create_symlink(library, scratch / "alone" / library.filename());

  for (const auto& [name, environment] :
       {std::pair("start/alone", "LD_LIBRARY_PATH=" + (scratch / "alone").string()),
        std::pair("start/with_web_view", std::string())}) {
    benchmark::RegisterBenchmark(name, start, environment)->UseManualTime();
  }
  for (const char* what : {"Nothing", "Curl", "Core"}) {
    const std::string program = std::string("Load") + what;
    benchmark::RegisterBenchmark(
        ("load/" + std::string(what)).c_str(),
        [program](benchmark::State& state) { load(state, program.c_str()); })
        ->UseRealTime();
  }
  benchmark::RunSpecifiedBenchmarks();
  fs::remove_all(scratch);
}
