#include "soak/Options.h"

#include <getopt.h>

#include <cstdio>
#include <cstdlib>
#include <random>

namespace {

constexpr char kUsage[] =
    "usage: qv-soak [options]\n"
    "Sends hits over processes that are killed, restarted and put in the background,\n"
    "to a server of its own that misbehaves, and names for every hit that is lost or\n"
    "doubled the rule that explains it.\n"
    "\n"
    "  --hits N      so many hits (100000)\n"
    "  --seconds N   spread over so many seconds (600)\n"
    "  --seed N      the same processes and deeds as a run that printed this seed\n"
    "  --samples F   write to the file F what memory, threads and descriptors the process\n"
    "                has that lives through the whole run\n"
    "  --quick       3000 hits in 15 seconds\n"
    "  --help        print this\n"
    "\n"
    "Exit status: 0 every hit is accounted for and nothing grew, 1 if not, 2 wrong usage.\n";

constexpr option kOptions[] = {{"hits", required_argument, nullptr, 'n'},
                               {"seconds", required_argument, nullptr, 't'},
                               {"seed", required_argument, nullptr, 's'},
                               {"samples", required_argument, nullptr, 'f'},
                               {"quick", no_argument, nullptr, 'q'},
                               {"help", no_argument, nullptr, 'h'},
                               {}};

constexpr int kWrongUsage = 2;
constexpr std::uint32_t kMostHits = 10'000'000;
constexpr std::uint32_t kLongest = 7 * 24 * 3600;

/// From 1 to the limit; 0 for what is no such number.
std::uint32_t numberIn(const char* text, std::uint32_t limit) {
  char* end = nullptr;
  const unsigned long long number = std::strtoull(text, &end, 10);
  return *end == '\0' && number <= limit ? static_cast<std::uint32_t>(number) : 0;
}

}  // namespace

std::optional<Options> parseOptions(int argumentCount, char** arguments, int* exitStatus) {
  Options options;
  options.seed = std::random_device()();
  *exitStatus = kWrongUsage;
  for (int letter;
       (letter = getopt_long(argumentCount, arguments, "h", kOptions, nullptr)) != -1;) {
    switch (letter) {
      case 'n':
        options.hits = numberIn(optarg, kMostHits);
        break;
      case 't':
        options.seconds = static_cast<int>(numberIn(optarg, kLongest));
        break;
      case 's':
        options.seed = std::strtoull(optarg, nullptr, 10);
        break;
      case 'f':
        options.samples = optarg;
        break;
      case 'q':
        options.hits = 3000;
        options.seconds = 15;
        break;
      case 'h':
        std::fputs(kUsage, stdout);
        *exitStatus = 0;
        return std::nullopt;
      default:
        std::fputs(kUsage, stderr);
        return std::nullopt;
    }
  }
  if (optind < argumentCount || options.hits == 0 || options.seconds == 0) {
    std::fputs(kUsage, stderr);
    return std::nullopt;
  }
  return options;
}
