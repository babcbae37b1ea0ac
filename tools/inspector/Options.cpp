#include "inspector/Options.h"

#include <getopt.h>

#include <cstdio>
#include <sstream>

namespace {

constexpr char kUsage[] =
    "usage: qv-inspector [options] [FILE...]\n"
    "Collects hits and shows them on a page as they come. With FILE, shows hits that\n"
    "were recorded or exported before: JSON lines, HTTP archives, commands of curl.\n"
    "\n"
    "  --port N               the collector's port (8787); 0 for any\n"
    "  --listen ADDRESS       the address that hits are taken on (127.0.0.1)\n"
    "  --page-port N          the page's port (8788); 0 for any\n"
    "  --page-listen ADDRESS  the address that the page is shown on (127.0.0.1)\n"
    "  --rules FILE           answer by these rules\n"
    "  --record FILE          add what comes to the end of FILE, as JSON lines\n"
    "  --number NAMES         the parameter with the hit's own number (id);\n"
    "                         several with commas between them\n"
    "  --keep N               keep so many hits (100000); older ones are dropped\n"
    "  --memory N             keep so many MiB of hits (256)\n"
    "  --version              print the version\n"
    "  --help                 print this\n"
    "\n"
    "Exit status: 0 when it was stopped by Ctrl-C or SIGTERM, 1 if it cannot start,\n"
    "2 wrong usage.\n";

constexpr option kOptions[] = {{"port", required_argument, nullptr, 'p'},
                               {"listen", required_argument, nullptr, 'l'},
                               {"page-port", required_argument, nullptr, 'q'},
                               {"page-listen", required_argument, nullptr, 'm'},
                               {"rules", required_argument, nullptr, 'r'},
                               {"record", required_argument, nullptr, 'f'},
                               {"number", required_argument, nullptr, 'n'},
                               {"keep", required_argument, nullptr, 'k'},
                               {"memory", required_argument, nullptr, 'b'},
                               {"version", no_argument, nullptr, 'v'},
                               {"help", no_argument, nullptr, 'h'},
                               {}};

constexpr std::uint64_t kMostHits = 10'000'000;
constexpr std::uint64_t kMostMemory = 65'536;  // MiB

std::vector<std::string> namesIn(const std::string& list) {
  std::vector<std::string> names;
  std::istringstream stream(list);
  for (std::string name; std::getline(stream, name, ',');) names.push_back(name);
  return names;
}

/// Sets the number unless the argument is none from the least to the limit, which is false.
template <typename T>
bool readNumber(T& number, std::uint64_t least, std::uint64_t limit, std::uint64_t unit = 1) {
  const auto value = numberIn(optarg, limit);
  if (!value || *value < least) return false;
  number = static_cast<T>(*value * unit);
  return true;
}

/// False for an option with a wrong argument, and for one that does not exist.
bool readOption(int letter, Options& options) {
  switch (letter) {
    case 'p':
      return readNumber(options.collector.port, 0, 65'535);
    case 'q':
      return readNumber(options.page.port, 0, 65'535);
    case 'k':
      return readNumber(options.limits.hits, 1, kMostHits);
    case 'b':
      return readNumber(options.limits.bytes, 1, kMostMemory, std::uint64_t{1} << 20);
    case 'l':
      options.collector.address = optarg;
      return true;
    case 'm':
      options.page.address = optarg;
      return true;
    case 'r':
      options.rules = optarg;
      return true;
    case 'f':
      options.record = optarg;
      return true;
    case 'n':
      options.numberNames = namesIn(optarg);
      return true;
    default:
      return false;
  }
}

}  // namespace

std::optional<Options> parseOptions(int argumentCount, char** arguments, int* exitStatus) {
  Options options;
  *exitStatus = 0;
  for (int letter;
       (letter = getopt_long(argumentCount, arguments, "h", kOptions, nullptr)) != -1;) {
    if (letter == 'h') {
      std::fputs(kUsage, stdout);
      return std::nullopt;
    }
    if (letter == 'v') {
      std::puts("qv-inspector " QV_VERSION);
      return std::nullopt;
    }
    if (!readOption(letter, options)) {
      std::fputs(kUsage, stderr);
      *exitStatus = 2;
      return std::nullopt;
    }
  }
  options.files.assign(arguments + optind, arguments + argumentCount);
  return options;
}
