#include <curl/curl.h>

#include "tests/support/Exchange.h"
#include "tests/support/FailingAllocations.h"
#include "tests/support/HTTPServer.h"
#include "tests/support/Test.h"

namespace {

/// Has libcurl fail as the rest of the program does.
void shareAllocations() {
  curl_global_init_mem(
      CURL_GLOBAL_DEFAULT, [](std::size_t size) { return FailingAllocations::allocate(size); },
      &std::free,
      [](void* memory, std::size_t size) {
        void* const chance = FailingAllocations::allocate(1);
        std::free(chance);
        return chance ? std::realloc(memory, size) : nullptr;
      },
      [](const char* text) {
        void* const copy = FailingAllocations::allocate(std::strlen(text) + 1);
        return copy ? std::strcpy(static_cast<char*>(copy), text) : nullptr;
      },
      [](std::size_t count, std::size_t size) {
        void* const memory = FailingAllocations::allocate(count * size);
        return memory ? std::memset(memory, 0, count * size) : nullptr;
      });
}

/// Whichever allocation fails, the transfer is answered or fails, and the next one is answered.
TEST(URLConnectionMemory, RunsOutForOneTransferAlone) {
  if (!FailingAllocations::kIsPossible) GTEST_SKIP() << "allocations do not fail here";
  shareAllocations();
  bool isKept = false;
  HTTPServer server([&](const auto& request, auto& response) {
    if (!isKept) response.set_header("Connection", "close");
    if (request.path == "/start") return response.set_redirect("/end", 303);
    response.set_content(std::string(20'000, 'a'), "text/plain");
  });
  MutableURLRequest request = requestWith("PUT", server.url("/start"), Data("body"));
  request.addValueForHTTPHeaderField("1", "X-Field");
  for (int round = 0; round < 2; ++round) {
    isKept = round == 1;
    int failures = 0;
    bool hasFailed = true;
    for (long count = 0; hasFailed; ++count) {
      ASSERT_LT(count, 5000);
      Exchange exchange;
      {
        const FailingAllocations failing(count);
        exchange = send(request);
        hasFailed = failing.hasFailed();
      }
      EXPECT_NE(exchange.body.isNull(), exchange.error == nullptr) << count;
      failures += exchange.body.isNull();
      EXPECT_EQ(get(server.url("/end")).body.view().size(), 20'000U) << count;
    }
    EXPECT_GT(failures, 20);
    // Each request either goes out as it was asked for or not at all.
    for (const auto& received : server.requests()) {
      EXPECT_EQ(received.method + received.target,
                received.target == "/start" ? "PUT/start" : "GET/end");
      EXPECT_EQ(received.body, received.method == "PUT" ? "body" : "");
    }
  }
}

}  // namespace
