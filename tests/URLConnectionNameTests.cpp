#include <dlfcn.h>
#include <netdb.h>

#include "tests/support/Exchange.h"
#include "tests/support/HTTPServer.h"
#include "tests/support/Test.h"

namespace {

std::binary_semaphore hangingLookUps{0};
std::binary_semaphore endedLookUps{0};

}  // namespace

/// Stands in front of the system's own, so that names resolve as the tests need them without a name
/// server.
extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* name,
                                                                  const char* service,
                                                                  const addrinfo* hints,
                                                                  addrinfo** result) {
  if (name && std::strcmp(name, "missing.example") == 0) return EAI_NONAME;
  if (name && std::strcmp(name, "hanging.example") == 0) {
    hangingLookUps.acquire();
    endedLookUps.release();
    return EAI_AGAIN;
  }
  static const auto real =
      reinterpret_cast<decltype(&getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
  return real(name, service, hints, result);
}

namespace {

TEST(URLConnection, FailsForAHostThatDoesNotExistAndWaitsForNoResolver) {
  EXPECT_EQ(get("http://missing.example/").code(), URLErrorCode::kCannotFindHost);
  const auto start = std::chrono::steady_clock::now();
  const Exchange exchange = get("http://hanging.example/", 0.2);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  EXPECT_EQ(exchange.code(), URLErrorCode::kTimedOut);
  HTTPServer server;
  EXPECT_EQ(get(server.url()).body, Data("ok"));
  hangingLookUps.release();
  EXPECT_TRUE(endedLookUps.try_acquire_for(std::chrono::seconds(10)));
}

}  // namespace
