#include "soak/Lane.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <thread>
#include <utility>

#include "soak/Ledger.h"
#include "soak/OfflineFile.h"

extern char** environ;

namespace {

constexpr std::uint32_t kMostHitsOfHost = 200;
constexpr int kLongestLife = 120'000;  // milliseconds
constexpr int kLifeline = 3;           // the hosts' descriptor
constexpr int kLastTries = 3;
constexpr int kLooks = 720;  // at a host that lasts

// How many end in each way, of 20, in the order of the endings.
constexpr std::array kEndings{2.0, 3.0, 3.0, 2.0, 7.0, 3.0};

/// The program again, as a host. It and what it forks hold the pipe's end for as long as they live.
pid_t start(const Errand& errand, int lifeline) {
  std::vector<std::string> texts = errand.arguments();
  texts.insert(texts.begin(), {"soak", "--host"});
  std::vector<char*> arguments;
  arguments.reserve(texts.size() + 1);
  for (auto& text : texts) arguments.push_back(text.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_adddup2(&files, lifeline, kLifeline);
  posix_spawn_file_actions_addopen(&files, STDERR_FILENO, errand.log().c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600);
  // In a group of its own, so that Ctrl-C lets it come to its planned end.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
  pid_t host = 0;
  const int error =
      posix_spawn(&host, "/proc/self/exe", &files, &attributes, arguments.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&files);
  if (error != 0) throw std::runtime_error("cannot start a host");
  return host;
}

std::string textOf(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

bool isAsPlanned(Ending ending, int status) {
  const bool isKilled = ending == Ending::kKilled || ending == Ending::kKilledInBackground;
  return isKilled ? WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL : status == 0;
}

}  // namespace

Lane::Lane(const Options& options, std::uint64_t seed, std::string directory, bool lasts)
    : options_(options),
      directory_(std::move(directory)),
      container_(directory_ + "/container"),
      lasts_(lasts),
      random_(seed),
      server_(seed) {}

void Lane::run(const std::atomic<bool>& isStopped) {
  isStopped_ = &isStopped;
  const auto begin = std::chrono::steady_clock::now();
  const auto end = begin + 2 * std::chrono::seconds(options_.seconds);
  while (history_.hits.size() < options_.hits && !isStopped &&
         std::chrono::steady_clock::now() < end) {
    waitForTurn(begin);
    live(nextErrand());
  }
  // What waits is sent, so that all that is missing is lost.
  for (int i = 0; i < kLastTries && (i == 0 || !hitsOnFile(container_).empty()); ++i) {
    Errand errand = nextErrand();
    errand.hitCount = 0;
    errand.seconds = 0;
    errand.ending = Ending::kDrained;
    live(errand);
  }
}

void Lane::waitForTurn(std::chrono::steady_clock::time_point begin) const {
  const double share = static_cast<double>(history_.hits.size()) / options_.hits;
  const std::chrono::duration<double> time(share * options_.seconds);
  std::this_thread::sleep_until(begin +
                                std::chrono::duration_cast<std::chrono::milliseconds>(time));
}

Errand Lane::nextErrand() {
  std::uniform_int_distribution<std::uint32_t> hitCount(1, kMostHitsOfHost);
  std::discrete_distribution<int> ending(kEndings.begin(), kEndings.end());
  Errand errand;
  errand.container = container_;
  errand.ledger = directory_ + "/ledger";
  errand.port = server_.port();
  errand.seed = random_();
  errand.firstHit = next_;
  errand.hitCount = hitCount(random_);
  errand.ending = static_cast<Ending>(ending(random_));
  if (lasts_) {
    errand.hitCount = options_.hits;
    errand.seconds = options_.seconds;
    errand.ending = Ending::kDrained;
  }
  next_ += errand.hitCount;
  return errand;
}

void Lane::live(const Errand& errand) {
  const int number = static_cast<int>(history_.lives.size());
  Life life;
  life.fileAtStart = readFile(life);
  server_.setLife(number);
  const int status = runHost(errand);
  life.ending = nameOf(errand.ending);
  const std::string log = textOf(errand.log());
  // What a sanitizer found counts in a host that was killed, too.
  life.endedAsPlanned =
      isAsPlanned(errand.ending, status) && log.find("Sanitizer") == std::string::npos;
  if (!life.endedAsPlanned) life.log = "wait status " + std::to_string(status) + ", log:\n" + log;
  server_.waitForSilence();
  life.fileAtEnd = readFile(life);
  history_.lives.push_back(std::move(life));
  readLedgers(errand.ledger, number);
  addReceptions();
}

int Lane::runHost(const Errand& errand) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  const pid_t host = start(errand, ends[1]);
  close(ends[1]);
  pollfd lifeline{ends[0], POLLIN, 0};
  const int look = errand.seconds > 0 ? errand.seconds * 1000 / kLooks : kLongestLife;
  for (int left = kLongestLife + 2000 * errand.seconds; poll(&lifeline, 1, look) == 0;) {
    left -= look;
    if (left <= 0) kill(host, SIGABRT);
    if (*isStopped_) kill(host, SIGTERM);
    if (errand.seconds > 0) vitals_.look(host);
  }
  close(ends[0]);
  int status = 0;
  waitpid(host, &status, 0);
  return status;
}

void Lane::readLedgers(const std::string& ledger, int number) {
  Ledger::read(ledger, number, history_);
  std::filesystem::remove(ledger);
  const std::string forked = ledger + kForkedSuffix;
  if (!std::filesystem::exists(forked)) return;
  const int child = static_cast<int>(history_.lives.size());
  history_.lives.emplace_back();
  history_.lives.back().parent = number;
  history_.lives.back().ending = "forked";
  Ledger::read(forked, child, history_);
  std::filesystem::remove(forked);
}

void Lane::addReceptions() {
  for (Reception reception : server_.takeReceptions()) {
    Hit& hit = history_.hits[reception.hit];
    // To the server, a process and its fork are one.
    const bool isForked =
        hit.life >= 0 && history_.lives[std::size_t(hit.life)].parent == reception.life;
    if (isForked) reception.life = hit.life;
    hit.receptions.push_back(reception);
  }
}

std::set<HitID> Lane::readFile(Life& life) const {
  std::set<HitID> hits;
  for (const HitID hit : hitsOnFile(container_)) {
    if (!hits.insert(hit).second) life.twiceInFile.insert(hit);
  }
  return hits;
}
