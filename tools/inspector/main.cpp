// Collects hits on one port and shows them on a page on another. See docs/inspector.md.
//
// One thread does all of it: it waits for both servers, for the delays of answers to end, and for
// Ctrl-C.

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>

#include "inspector/Collector.h"
#include "inspector/Control.h"
#include "inspector/Files.h"
#include "inspector/HTTPServer.h"
#include "inspector/Live.h"
#include "inspector/Options.h"
#include "inspector/Recorder.h"
#include "inspector/Rules.h"
#include "inspector/Store.h"

namespace {

/// A descriptor that tells of Ctrl-C.
int openInterrupts() {
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);  // a file that may not grow is an error of the recorder
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  return signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
}

bool fail(const std::string& what, const std::string& why) {
  std::fprintf(stderr, "qv-inspector: %s: %s\n", what.c_str(), why.c_str());
  return false;
}

/// Null if it cannot be read, with errno set.
std::optional<std::string> contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream content;
  if (!file || (file.peek() != EOF && !(content << file.rdbuf()))) return std::nullopt;
  return content.str();
}

std::string urlOf(const HTTPServer::Place& place, std::uint16_t port) {
  const bool isSix = place.address.find(':') != std::string::npos;
  return "http://" + (isSix ? "[" + place.address + "]" : place.address) + ":" +
         std::to_string(port);
}

class Inspector {
 public:
  explicit Inspector(const Options& options)
      : options_(options),
        store_(options.limits, Numbering(options.numberNames)),
        live_(store_, rules_, [this] { return state(); }),
        collector_(store_, rules_),
        control_(store_, rules_, live_),
        hits_(options.collector, Collector::kKeptOfBody, collector_),
        page_(options.page, Control::kLargestImport, control_) {
    store_.addObserver(live_);
    store_.addObserver(recorder_);
  }

  /// False after it has said what is wrong.
  bool start() {
    for (const auto& [server, place] :
         {std::pair{&hits_, &options_.collector}, std::pair{&page_, &options_.page}}) {
      if (server->error() != 0) {
        return fail(urlOf(*place, place->port), std::strerror(server->error()));
      }
    }
    if (!options_.record.empty() && !recorder_.open(options_.record)) {
      return fail(options_.record, std::strerror(errno));
    }
    return readRules() && std::all_of(options_.files.begin(), options_.files.end(),
                                      [this](const auto& file) { return readHits(file); });
  }

  /// Returns when there is something to read from the descriptor.
  void run(int interrupts) {
    std::printf("Send hits to %s\nSee them at  %s\n",
                urlOf(options_.collector, hits_.port()).c_str(),
                urlOf(options_.page, page_.port()).c_str());
    std::fflush(stdout);
    std::vector<pollfd> files{{interrupts, POLLIN, 0}};
    while (files.front().revents == 0) {
      files.resize(1);
      int timeout = -1;
      for (const int each :
           {hits_.watch(files), page_.watch(files), collector_.answerDue(), live_.flush()}) {
        if (each >= 0) timeout = timeout < 0 ? each : std::min(timeout, each);
      }
      poll(files.data(), files.size(), timeout);
      hits_.run(files);
      page_.run(files);
      if (!recorder_.flush()) {
        fail(options_.record, recorder_.error());
        live_.sendStateAnew();
      }
    }
  }

 private:
  bool readRules() {
    if (options_.rules.empty()) return true;
    const auto text = contentOf(options_.rules);
    const std::string error = text ? rules_.read(*text) : std::strerror(errno);
    return error.empty() || fail(options_.rules, error);
  }

  bool readHits(const std::string& path) {
    const auto text = contentOf(path);
    if (!text) return fail(path, std::strerror(errno));
    return import(*text, path.substr(path.rfind('/') + 1), store_) || fail(path, "no hits");
  }

  std::string state() {
    const nlohmann::json state{{"collector", urlOf(options_.collector, hits_.port())},
                               {"record", textOf(options_.record)},
                               {"recordError", recorder_.error()},
                               {"keep", options_.limits.hits},
                               {"memory", options_.limits.bytes >> 20},
                               {"numberNames", options_.numberNames}};
    return state.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  }

  const Options& options_;
  Store store_;
  Rules rules_;
  Recorder recorder_;
  Live live_;
  Collector collector_;
  Control control_;
  HTTPServer hits_;
  HTTPServer page_;
};

}  // namespace

int main(int argumentCount, char** arguments) {
  int exitStatus = 0;
  const auto options = parseOptions(argumentCount, arguments, &exitStatus);
  if (!options) return exitStatus;
  const int interrupts = openInterrupts();
  Inspector inspector(*options);
  if (!inspector.start()) return 1;
  inspector.run(interrupts);
  return 0;
}
