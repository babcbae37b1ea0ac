#pragma once

#include <sched.h>
#include <sys/mount.h>

#include "Test.h"

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
      write(cover, content);
      ASSERT_EQ(mount(cover.c_str(), file.c_str(), nullptr, MS_BIND, nullptr), 0) << file;
      unlink(cover.c_str());
    }
    write(file, content);
  }
  static void write(const std::string& file, const std::string& content) {
    std::ofstream(file) << content;
  }
};
