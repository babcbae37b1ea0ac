#include <linux/if_arp.h>
#include <linux/if_tun.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>

#include "tests/support/Test.h"

namespace {

/// A network of the test's own, and a view of the file system in which files can be covered. The
/// calling thread moves into it, and with it the threads and programs that it starts.
class NetworkNamespace {
 public:
  /// False where the right to make one is missing.
  static bool enter() {
    if (unshare(CLONE_NEWNET | CLONE_NEWNS) != 0) {
      const auto user = std::to_string(getuid());
      if (unshare(CLONE_NEWUSER | CLONE_NEWNET | CLONE_NEWNS) != 0) return false;
      std::ofstream("/proc/self/uid_map") << "0 " + user + " 1";
    }
    return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
  }

  /// Runs shell commands; all must succeed.
  static void run(const std::string& commands) {
    ASSERT_EQ(std::system(("set -e; " + commands).c_str()), 0) << commands;
  }

  /// Back to a loopback that is up, and nothing else.
  static void clear() {
    run(R"(
        for link in $(ls /proc/sys/net/ipv4/conf); do
          case $link in all|default|lo) ;; *) ip link del $link 2>/dev/null || true ;; esac
        done
        ip link set lo down; ip link set lo up
        ip rule flush; ip rule add lookup main prio 32766; ip rule add lookup default prio 32767
        ip route flush table main || true; ip -6 route flush table main || true)");
  }

  /// Gives the file another content, for this process and what it starts.
  static void cover(const std::string& file, const std::string& content) {
    static std::set<std::string> covered;
    if (covered.insert(file).second) {
      const auto cover = testing::TempDir() + "cover." + std::to_string(getpid());
      putFile(cover, content);
      ASSERT_EQ(mount(cover.c_str(), file.c_str(), nullptr, MS_BIND, nullptr), 0) << file;
      unlink(cover.c_str());
    }
    putFile(file, content);
  }
};

constexpr auto kPatience = std::chrono::seconds(20);

/// The changes of one target.
class Watch {
 public:
  explicit Watch(const char* name, std::shared_ptr<SerialQueue> queue = nullptr)
      : target_(NetworkReachability::createWithName(String(name))) {
    if (!queue) queue = std::make_shared<SerialQueue>(String("test.reachability"));
    EXPECT_TRUE(target_->setCallback([state = state_](NetworkReachabilityFlags flags) {
      const std::lock_guard lock(state->mutex);
      state->changes.push_back(flags);
      state->changed.notify_all();
    }));
    EXPECT_TRUE(target_->setDispatchQueue(queue));
  }

  /// Waits until the last change is to these flags; until then they were 0.
  bool waitFor(NetworkReachabilityFlags flags) {
    std::unique_lock lock(state_->mutex);
    return state_->changed.wait_for(lock, kPatience, [&] {
      return (state_->changes.empty() ? 0 : state_->changes.back()) == flags;
    });
  }
  std::vector<NetworkReachabilityFlags> changes() const {
    const std::lock_guard lock(state_->mutex);
    return state_->changes;
  }
  NetworkReachability& target() { return *target_; }

 private:
  struct State {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<NetworkReachabilityFlags> changes;
  };
  const std::shared_ptr<State> state_ = std::make_shared<State>();
  const std::shared_ptr<NetworkReachability> target_;
};

/// Commands that make two linked interfaces, the first with an address, the other with none.
std::string link(const std::string& name, const std::string& address) {
  const std::string far = "far" + name;
  return "ip link add " + name + " type veth peer name " + far + "; ip link set " + far +
         " addrgenmode none up; ip link set " + name + " up; ip addr add " + address + " dev " +
         name + (address.find(':') != std::string::npos ? " nodad; " : "; ");
}

class NetworkReachabilityTest : public testing::Test {
 protected:
  void SetUp() override {
    static const bool isInNamespace = NetworkNamespace::enter();
    if (isInNamespace) return NetworkNamespace::clear();
    const char* ci = std::getenv("CI");
    if (ci && std::string(ci) == "true") FAIL() << "CI must be able to make a network namespace";
    GTEST_SKIP() << "the right to make a network namespace is missing";
  }

  static NetworkReachabilityFlags flagsNow(const char* name) {
    NetworkReachabilityFlags flags = 0xbad;
    EXPECT_TRUE(NetworkReachability::createWithName(String(name))->getFlags(&flags));
    return flags;
  }
};

struct Scene {
  const char* name;
  const char* target;
  std::string setUp;
  NetworkReachabilityFlags flags;
  std::string change;
  NetworkReachabilityFlags flagsAfterwards;
};

void PrintTo(const Scene& scene, std::ostream* out) { *out << scene.name; }

class NetworkScene : public NetworkReachabilityTest, public testing::WithParamInterface<Scene> {};

TEST_P(NetworkScene, MakesTheFlagsAndTheirChange) {
  const Scene& scene = GetParam();
  Watch watch(scene.target);
  NetworkNamespace::run(scene.setUp);
  EXPECT_TRUE(watch.waitFor(scene.flags));
  EXPECT_EQ(flagsNow(scene.target), scene.flags);
  NetworkNamespace::run(scene.change);
  EXPECT_TRUE(watch.waitFor(scene.flagsAfterwards));
  EXPECT_EQ(flagsNow(scene.target), scene.flagsAfterwards);
}

const std::string kEth = link("eth0", "10.0.0.2/24");
const std::string kEthDefault = kEth + "ip route add default via 10.0.0.1; ";
const std::string kEth6Default =
    link("eth0", "fd00::2/64") + "ip -6 route add default via fd00::1 dev eth0; ";
const std::string kWWANDefault =
    link("wwan0", "10.9.0.2/24") + "ip route add default via 10.9.0.1 metric 700; ";
const std::string kPPPDefault = link("ppp0", "10.8.0.2/32") + "ip route add default dev ppp0; ";

const std::vector<Scene> kScenes{
    {"DefaultRouteRemoved", "0.0.0.0", kEthDefault, 0x2, "ip route del default", 0},
    {"LinkDown", "0.0.0.0", kEthDefault, 0x2, "ip link set eth0 down", 0},
    {"CarrierLost", "0.0.0.0", kEthDefault, 0x2, "ip link set fareth0 down", 0},
    {"LinkRemoved", "0.0.0.0", kEthDefault, 0x2, "ip link del eth0", 0},
    {"AddressRemoved", "0.0.0.0", kEthDefault, 0x2, "ip addr flush dev eth0", 0},
    {"AddressReplaced", "10.0.0.9", kEthDefault, 0x20002,
     "ip addr add 10.7.0.2/24 dev eth0; ip route replace default via 10.7.0.1; "
     "ip addr del 10.0.0.2/24 dev eth0",
     0x2},
    {"UnreachableDefault", "0.0.0.0", kEthDefault, 0x2, "ip route replace unreachable default", 0},
    {"ProhibitRule", "0.0.0.0", kEthDefault, 0x2, "ip rule add prio 10 prohibit", 0},
    {"DefaultInTwoHalves", "0.0.0.0",
     kEth + "ip route add 0.0.0.0/1 via 10.0.0.1; ip route add 128.0.0.0/1 via 10.0.0.1", 0x2,
     "ip route del 128.0.0.0/1", 0},
    {"LogInNotDone", "0.0.0.0", kEthDefault, 0x2, "ip link set eth0 mode dormant state dormant", 0},
    {"RouterWithAnIPv6AddressAlone", "192.0.2.9",
     kEth + "ip route add 192.0.2.0/24 via inet6 fe80::1 dev eth0", 0x2, "ip link set eth0 down",
     0},
    {"IPv6AddressInAZone", "fe80::9%lo", "ip -6 addr add fe80::9/64 dev lo nodad", 0x30002,
     "ip -6 addr del fe80::9/64 dev lo", 0},
    {"IPv6Only", "0.0.0.0", kEth6Default, 0x2, "ip -6 route del default", 0},
    {"IPv6UnreachableDefault", "0.0.0.0", kEth6Default, 0x2,
     "ip -6 route add unreachable default metric 1", 0},
    {"IPv6TakesOver", "0.0.0.0",
     kEthDefault + kWWANDefault +
         "ip -6 addr add fd00::2/64 dev wwan0 "
         "nodad; ip -6 route add default via fd00::1 dev wwan0",
     0x2, "ip route del default; ip route del default", 0x40002},
    {"ModemTakesOver", "0.0.0.0", kEthDefault + kWWANDefault, 0x2, "ip link set eth0 down",
     0x40002},
    {"ModemRests", "0.0.0.0", kWWANDefault, 0x40002, "ip link set wwan0 mode dormant state dormant",
     0x40026},
    {"ModemRestsWhileIPv6Works", "0.0.0.0", kWWANDefault, 0x40002,
     kEth6Default + "ip link set wwan0 mode dormant state dormant", 0x2},
    {"ModemWithoutCarrier", "0.0.0.0", kWWANDefault, 0x40002, "ip link set farwwan0 down", 0},
    {"DialledLinkHungUp", "0.0.0.0", kPPPDefault, 0x40003, "ip link set farppp0 down", 0x4000f},
    {"AddressOnTheLink", "10.0.0.9", kEth, 0x20002, "ip link set eth0 down", 0},
    {"AddressBehindARouter", "192.0.2.9", kEthDefault, 0x2, "ip route add unreachable 192.0.2.0/24",
     0},
    {"OwnAddress", "10.0.0.2", kEth, 0x30002,
     "ip addr del 10.0.0.2/24 dev eth0; "
     "ip addr add 10.0.0.3/24 dev eth0",
     0x20002},
    {"IPv6AddressOnTheLink", "fd00::9", kEth6Default, 0x20002, "ip -6 addr del fd00::2/64 dev eth0",
     0x2},
    {"IPv6OwnAddress", "fd00::2", kEth6Default, 0x30002, "ip link set eth0 down", 0},
    {"LocalNetworkRemoved", "169.254.0.0", kEth + kWWANDefault, 0x20002, "ip link del eth0", 0},
    {"LocalNetworkWithoutCarrier", "169.254.0.0", kEth, 0x20002, "ip link set fareth0 down", 0},
};

INSTANTIATE_TEST_SUITE_P(Kernel, NetworkScene, testing::ValuesIn(kScenes),
                         [](const auto& scene) { return std::string(scene.param.name); });

TEST_F(NetworkReachabilityTest, TakesTheLoopbackForALocalAddress) {
  EXPECT_EQ(flagsNow("127.0.0.1"), 0x30002U);
  EXPECT_EQ(flagsNow("::1"), 0x30002U);
  EXPECT_EQ(flagsNow("0.0.0.0"), 0U);
}

/// An interface whose link type is what a modem's driver sets.
class Tunnel {
 public:
  Tunnel(const char* name, int linkType) : file_(open("/dev/net/tun", O_RDWR | O_CLOEXEC)) {
    ifreq request{};
    std::strncpy(request.ifr_name, name, IFNAMSIZ - 1);
    request.ifr_flags = IFF_TUN | IFF_NO_PI;
    isMade_ = file_ >= 0 && ioctl(file_, TUNSETIFF, &request) == 0 &&
              ioctl(file_, TUNSETLINK, linkType) == 0;
  }
  ~Tunnel() { close(file_); }
  Tunnel(const Tunnel&) = delete;
  Tunnel& operator=(const Tunnel&) = delete;

  bool isMade() const { return isMade_; }

 private:
  int file_;
  bool isMade_ = false;
};

TEST_F(NetworkReachabilityTest, KnowsAModemByItsLinkType) {
  constexpr int kRawIP = 519;
  for (const auto& [linkType, flags] :
       {std::pair(ARPHRD_NONE, 0x2U), {ARPHRD_PPP, 0x40003U}, {kRawIP, 0x40002U}}) {
    const Tunnel tunnel("cell0", linkType);
    if (!tunnel.isMade()) GTEST_SKIP() << "no /dev/net/tun";
    Watch watch("0.0.0.0");
    NetworkNamespace::run(
        "ip addr add 10.6.0.2/32 dev cell0; ip link set cell0 up; "
        "ip route add default dev cell0");
    EXPECT_TRUE(watch.waitFor(flags)) << linkType;
  }
}

TEST_F(NetworkReachabilityTest, DeliversNothingForABurstThatChangesNothing) {
  Watch watch("0.0.0.0");
  NetworkNamespace::run(kEthDefault);
  ASSERT_TRUE(watch.waitFor(0x2));
  NetworkNamespace::run(R"(
      for verb in add del; do
        seq 20000 | while read i; do
          echo route $verb 10.$((100 + i / 256)).$((i % 256)).0/24 via 10.0.0.1
        done | ip -batch -
      done
      for i in $(seq 20); do ip link set fareth0 mtu $((1400 + i)); done)");
  NetworkNamespace::run("ip link del eth0");
  ASSERT_TRUE(watch.waitFor(0));
  EXPECT_THAT(watch.changes(), ElementsAre(0x2, 0));
}

TEST_F(NetworkReachabilityTest, LosesNoChangeWhenTheQueueIsReplaced) {
  Watch watch("0.0.0.0");
  std::thread network([] {
    for (int i = 0; i < 20; ++i) NetworkNamespace::run(kEthDefault + "ip link del eth0");
    NetworkNamespace::run(kEthDefault);
  });
  for (int i = 0; i < 500; ++i) {
    const auto queue = std::make_shared<SerialQueue>(String("test.other"));
    EXPECT_TRUE(watch.target().setDispatchQueue(queue));
    std::this_thread::yield();
  }
  network.join();
  EXPECT_TRUE(watch.waitFor(0x2));
}

/// How often all threads but the calling one went to sleep so far.
long sleepsOfOtherThreads() {
  long sleeps = 0;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    if (task.path().filename() == std::to_string(gettid())) continue;
    std::ifstream status(task.path() / "status");
    for (std::string word; status >> word;) {
      long count = 0;
      if (word == "voluntary_ctxt_switches:" && status >> count) sleeps += count;
    }
  }
  return sleeps;
}

TEST_F(NetworkReachabilityTest, SleepsWhileNothingHappens) {
  if (kHasThreadSanitizer) GTEST_SKIP() << "the sanitizer has a thread that is never idle";
  Watch internet("0.0.0.0");
  Watch name("localhost");
  ASSERT_TRUE(name.waitFor(0x30002));
  // The kernel still has to say the last of setting up; a thread that rests has slept its last.
  long before = 0;
  for (int i = 0; i < 10 && before != sleepsOfOtherThreads(); ++i) {
    before = sleepsOfOtherThreads();
    std::this_thread::sleep_for(std::chrono::seconds(1));
  }
  EXPECT_GT(before, 0);
  EXPECT_EQ(sleepsOfOtherThreads(), before);
}

/// Takes every file descriptor that the process may have.
class NoFilesLeft {
 public:
  NoFilesLeft() {
    for (int file = 0; (file = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;) {
      taken_.push_back(file);
    }
  }
  ~NoFilesLeft() {
    for (const int file : taken_) close(file);
  }
  NoFilesLeft(const NoFilesLeft&) = delete;
  NoFilesLeft& operator=(const NoFilesLeft&) = delete;

 private:
  std::vector<int> taken_;
};

TEST_F(NetworkReachabilityTest, SaysWhyItCannotAskTheKernel) {
  Watch watch("0.0.0.0");
  NetworkReachabilityFlags flags = 0xbad;
  {
    const NoFilesLeft noFilesLeft;
    EXPECT_FALSE(watch.target().getFlags(&flags));
  }
  EXPECT_EQ(flags, 0xbadU);
  EXPECT_EQ(NetworkReachability::lastError(), EMFILE);
  EXPECT_EQ(NetworkReachability::lastErrorString(), String("Too many open files"));
  EXPECT_TRUE(watch.target().getFlags(&flags));
}

TEST_F(NetworkReachabilityTest, StartsWhenThereAreFileDescriptorsAgain) {
  // UndefinedBehaviorSanitizer, which comes with it, needs descriptors itself.
  if (kHasAddressSanitizer) GTEST_SKIP() << "no descriptor may be missing under a sanitizer";
  NetworkNamespace::run(kEthDefault);
  const auto starts = [] {
    std::unique_ptr<Watch> watch;
    {
      const NoFilesLeft noFilesLeft;
      watch = std::make_unique<Watch>("0.0.0.0");  // counts from 0: nothing is reachable
    }
    return watch->waitFor(0x2);
  };
  const Watch earlier("0.0.0.0");  // from here on the kernel's events come
  EXPECT_TRUE(starts());
  if (!kChildrenMayGoOn) return;
  EXPECT_EQ(runInChild([&] { return starts() ? 0 : 1; }), 0);  // here they do not yet
}

TEST_F(NetworkReachabilityTest, LooksANameUpAnewOnAnotherNetwork) {
  NetworkNamespace::cover("/etc/hosts", "10.0.0.9 box.example\n");
  Watch watch("box.example");
  NetworkNamespace::run(kEthDefault);
  ASSERT_TRUE(watch.waitFor(0x20002));
  putFile("/etc/hosts", "10.99.0.9 box.example\n");
  NetworkNamespace::run("ip link del eth0; " + kEthDefault);
  EXPECT_TRUE(watch.waitFor(0x2));
}

TEST_F(NetworkReachabilityTest, FindsANameThatIsKnownOnlyLater) {
  NetworkNamespace::cover("/etc/hosts", "::1 early.example\n");
  NetworkNamespace::cover("/etc/resolv.conf", "nameserver 127.0.0.1\n");
  Watch watch("late.example");
  Watch known("early.example");  // looked up after the other
  ASSERT_TRUE(known.waitFor(0x30002));
  EXPECT_EQ(flagsNow("late.example"), 0U);
  putFile("/etc/hosts", "127.0.0.1 late.example\n");
  EXPECT_TRUE(watch.waitFor(0x30002));
}

TEST_F(NetworkReachabilityTest, ForgetsNamesThatNobodyWatches) {
  const auto nameOf = [](int i) { return "n" + std::to_string(i) + ".example"; };
  std::string hosts;
  for (int i = 0; i < 300; ++i) hosts += "127.0.0.1 " + nameOf(i) + "\n";
  NetworkNamespace::cover("/etc/hosts", hosts);
  NetworkNamespace::run(kEth);
  for (int i = 0; i < 300; ++i) {
    ASSERT_TRUE(waitUntil([&] { return flagsNow(nameOf(i).c_str()) == 0x30002; })) << i;
  }
  putFile("/etc/hosts", "10.0.0.9 " + nameOf(0) + "\n");
  EXPECT_TRUE(waitUntil([&] { return flagsNow(nameOf(0).c_str()) == 0x20002; }));
}

TEST_F(NetworkReachabilityTest, WaitsForNoNameServer) {
  NetworkNamespace::cover("/etc/resolv.conf",
                          "nameserver 10.0.0.1\noptions timeout:30 attempts:1\n");
  const auto queue = std::make_shared<SerialQueue>(String("test.reachability"));
  Watch internet("0.0.0.0", queue);
  NetworkNamespace::run(kEthDefault);  // 10.0.0.1 never answers
  ASSERT_TRUE(internet.waitFor(0x2));
  const auto start = std::chrono::steady_clock::now();
  Watch silent("silent.example", queue);
  EXPECT_EQ(flagsNow("silent.example"), 0U);
  NetworkNamespace::run("ip route del default");
  EXPECT_TRUE(internet.waitFor(0));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

}  // namespace
