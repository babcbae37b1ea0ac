#include "send_hits/Options.h"

#include <getopt.h>

#include <cstdio>

namespace {

constexpr char kUsage[] =
    "usage: send_hits [options] [FILE]\n"
    "Sends the hits of FILE, or of standard input: one URL a line, with a tab and\n"
    "a body for a POST. Prints what became of each.\n"
    "\n"
    "  --assume-network  send although the system has no route to the Internet,\n"
    "                    to this machine for instance\n"
    "  --container DIR   keep the core's files in DIR\n"
    "  --quiet           print only the summary\n"
    "  --help            print this\n"
    "\n"
    "Exit status: 0 every hit was answered, 1 some were not, 2 wrong usage or\n"
    "unreadable input.\n";

constexpr option kOptions[] = {{"assume-network", no_argument, nullptr, 'a'},
                               {"container", required_argument, nullptr, 'c'},
                               {"quiet", no_argument, nullptr, 'q'},
                               {"help", no_argument, nullptr, 'h'},
                               {}};

}  // namespace

std::optional<Options> parseOptions(int argumentCount, char** arguments, int* exitStatus) {
  Options options;
  *exitStatus = 2;
  for (int letter;
       (letter = getopt_long(argumentCount, arguments, "qh", kOptions, nullptr)) != -1;) {
    switch (letter) {
      case 'a':
        options.assumesNetwork = true;
        break;
      case 'c':
        options.container = optarg;
        break;
      case 'q':
        options.isQuiet = true;
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
  if (argumentCount - optind > 1) {
    std::fputs(kUsage, stderr);
    return std::nullopt;
  }
  if (optind < argumentCount) options.file = arguments[optind];
  return options;
}
