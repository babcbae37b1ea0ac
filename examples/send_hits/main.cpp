// Sends hits from a file or from standard input through the core.
//
// It shows an application with an event loop of its own: one thread waits for its input, for the
// core's main queue, for room in the window of hits under way, and for Ctrl-C.

#include <QVCore/QVCore.h>
#include <QVPlatform/Application.h>
#include <QVPlatform/Dispatch/MainQueue.h>
#include <QVPlatform/SystemConfiguration/NetworkReachability.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>

#include "send_hits/AlwaysReachable.h"
#include "send_hits/Console.h"
#include "send_hits/HitReader.h"
#include "send_hits/HitSender.h"
#include "send_hits/Options.h"

namespace {

constexpr int kAllAnswered = 0;
constexpr int kSomeNotAnswered = 1;
constexpr int kUnreadable = 2;

/// A descriptor that tells of Ctrl-C. To be made before any thread is, for all to inherit the mask.
int openInterrupts() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  return signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
}

void startCore(const Options& options, Console& console) {
  QVPlatform::Application::setIdentifier("send_hits");
  if (!options.container.empty()) {
    QVPlatform::Application::setContainerDirectory(options.container);
  }
  if (options.assumesNetwork) {
    QVPlatform::NetworkReachability::setSource(std::make_shared<AlwaysReachable>());
  }
  QVDebug::setDebugLevel(6);              // standard output belongs to the results
  QVDebug::useCustomWKProcessPool(true);  // nobody here asks for a user agent: start no web engine
  std::make_shared<QVCoreInitialisation>()->init();
  if (!QVNetworkManager::sharedInstance()->isInternetReachable()) {
    console.note(
        "There is no route to the Internet: hits wait until there is.\n"
        "(--assume-network sends them all the same.)");
  }
}

/// Hands hits in while there is room. False when the reader must read more first.
bool fillWindow(HitReader& reader, HitSender& sender) {
  while (sender.hasRoom()) {
    const auto hit = reader.next();
    if (!hit) return false;
    sender.send(*hit);
  }
  return true;
}

/// Returns when every hit has come back, or on Ctrl-C, which is false.
bool run(int input, int interrupts, HitReader& reader, HitSender& sender) {
  auto& mainQueue = QVPlatform::MainQueue::mainQueue();
  bool needsInput = true;
  while (!reader.isAtEnd() || sender.underWay() > 0) {
    const bool reads = needsInput && !reader.isAtEnd() && sender.underWay() <= HitSender::kLowWater;
    pollfd files[] = {{interrupts, POLLIN, 0},
                      {mainQueue.fileDescriptor(), POLLIN, 0},
                      {sender.fileDescriptor(), POLLIN, 0},
                      {reads ? input : -1, POLLIN, 0}};
    poll(files, std::size(files), -1);
    if (files[0].revents != 0) return false;
    if (files[1].revents != 0) mainQueue.drain();
    if (files[2].revents != 0) sender.acknowledge();
    if (files[3].revents != 0) reader.read();
    needsInput = !fillWindow(reader, sender);
  }
  return true;
}

void summarise(const HitReader& reader, const Counts& counts, Console& console) {
  console.note(std::to_string(counts.sent) + " sent, " + std::to_string(counts.answered) +
               " answered, " + std::to_string(counts.failed) + " failed");
  const std::uint64_t outstanding = counts.sent - counts.answered - counts.failed;
  if (outstanding > 0) console.note(std::to_string(outstanding) + " without an outcome");
  if (reader.emptyLines() > 0) {
    console.note(std::to_string(reader.emptyLines()) + " empty lines passed over");
  }
  if (reader.unreadableLines() > 0) {
    console.note(std::to_string(reader.unreadableLines()) +
                 " lines that are not UTF-8 or too long, the first of them line " +
                 std::to_string(reader.firstUnreadableLine()));
  }
}

}  // namespace

int main(int argumentCount, char** arguments) {
  int exitStatus = 0;
  const auto options = parseOptions(argumentCount, arguments, &exitStatus);
  if (!options) return exitStatus;

  Console console(options->isQuiet);
  const int input =
      options->file == "-" ? STDIN_FILENO : open(options->file.c_str(), O_RDONLY | O_CLOEXEC);
  if (input < 0) {
    console.note(options->file + ": " + std::strerror(errno));
    return kUnreadable;
  }
  const int interrupts = openInterrupts();
  startCore(*options, console);

  HitReader reader(input);
  HitSender sender(console);
  if (!run(input, interrupts, reader, sender)) console.note("Interrupted.");

  const Counts counts = sender.counts();
  summarise(reader, counts, console);
  if (reader.error() != 0) {
    console.note(options->file + ": " + std::strerror(reader.error()));
    return kUnreadable;
  }
  const bool isComplete = reader.isAtEnd() && counts.answered == counts.sent;
  return isComplete && reader.unreadableLines() == 0 ? kAllAnswered : kSomeNotAnswered;
}
