// Sends hits for a long time through the core, under everything that a process, a network and a
// server can do to them, and accounts for each hit at the end. See docs/soak.md.

#include <sys/prctl.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <memory>
#include <string_view>
#include <thread>
#include <vector>

#include "soak/Deeds.h"
#include "soak/Host.h"
#include "soak/Lane.h"
#include "soak/Options.h"
#include "soak/Report.h"
#include "tour/kit/TemporaryDirectory.h"

namespace {

// Hosts wait more than they work. In the last lane lives one for the whole time.
constexpr int kLanes = 5;

std::atomic<bool> isStopped{false};

void stop(int) { isStopped = true; }

int runAsHost(char** arguments) {
  std::signal(SIGTERM, [](int) { Host::stop(); });
  prctl(PR_SET_PDEATHSIG, SIGKILL);  // no host without somebody who counts
  // Never destroyed, since outcomes come until the process is gone.
  return (new Host(Errand::from(arguments)))->run();
}

bool soak(const Options& options) {
  const TemporaryDirectory directory;
  Options share = options;
  share.hits = (options.hits + kLanes - 1) / kLanes;
  std::vector<std::unique_ptr<Lane>> lanes;
  std::vector<std::thread> threads;
  for (int i = 0; i < kLanes; ++i) {
    const std::string place = directory.path() + "/" + std::to_string(i);
    std::filesystem::create_directory(place);
    lanes.push_back(std::make_unique<Lane>(
        share, scatter(options.seed, static_cast<std::uint64_t>(i), 0), place, i == kLanes - 1));
    threads.emplace_back([lane = lanes.back().get()] { lane->run(isStopped); });
  }
  for (auto& thread : threads) thread.join();
  Report report;
  for (const auto& lane : lanes) report.add(lane->history());
  const Vitals& vitals = lanes.back()->vitals();
  report.add(vitals);
  if (!options.samples.empty()) vitals.write(options.samples);
  return report.print();
}

}  // namespace

int main(int argumentCount, char** arguments) {
  const bool isHost =
      argumentCount == 2 + Errand::kArgumentCount && std::string_view(arguments[1]) == "--host";
  if (isHost) return runAsHost(arguments + 2);
  int exitStatus = 0;
  const auto options = parseOptions(argumentCount, arguments, &exitStatus);
  if (!options) return exitStatus;
  std::signal(SIGINT, stop);
  std::signal(SIGTERM, stop);
  std::printf("soak: %u hits in %d seconds, --seed %llu\n", options->hits, options->seconds,
              static_cast<unsigned long long>(options->seed));
  std::fflush(stdout);
  return soak(*options) ? 0 : 1;
}
