#include "tests/support/Test.h"

namespace {

MutableURLRequest makeRequest(TimeInterval timeout = 5) {
  return {URL::URLWithString("http://example.com/"),
          URLRequestCachePolicy::kReloadIgnoringLocalCacheData, timeout};
}

TEST(MutableURLRequest, TakesAPositiveTimeoutOrTheDefault) {
  EXPECT_EQ(makeRequest(0.25).timeoutInterval(), 0.25);
  for (const double timeout : {0.0, -1.0, std::nan("")}) {
    EXPECT_EQ(makeRequest(timeout).timeoutInterval(), 60) << timeout;
  }
}

TEST(MutableURLRequest, RefusesWhatWouldSmuggleFields) {
  using namespace std::string_view_literals;
  MutableURLRequest request = makeRequest();
  for (const auto value : {"a\r\nInjected: 1"sv, "a\nb"sv, "a\rb"sv, "a\0b"sv}) {
    request.addValueForHTTPHeaderField(value, "X-Field");
  }
  request.addValueForHTTPHeaderField(nullptr, "X-Field");
  for (const auto field : {""sv, "X Y"sv, "X:Y"sv, "X\r\nY"sv, "X\0"sv, "caf\xc3\xa9"sv}) {
    request.addValueForHTTPHeaderField("value", field);
  }
  request.addValueForHTTPHeaderField("value", nullptr);
  EXPECT_EQ(request.allHTTPHeaderFields().count(), 0U);
  EXPECT_EQ(request.HTTPMethod(), String("GET"));
  request.setHTTPMethod("PUT");
  for (const auto method : {""sv, "GET /"sv, "GET\r\nX: y"sv, "G\0T"sv}) {
    request.setHTTPMethod(method);
  }
  request.setHTTPMethod(nullptr);
  EXPECT_EQ(request.HTTPMethod(), String("PUT"));
}

TEST(MutableURLRequest, AddsValuesToAFieldWhateverItsCaseAndIsCopiedWithAllOfIt) {
  MutableURLRequest request = makeRequest();
  request.setHTTPMethod("POST");
  request.setHTTPBody(Data("body"));
  request.addValueForHTTPHeaderField("en", "Accept-Language");
  request.addValueForHTTPHeaderField(" de\t", "ACCEPT-language");
  const auto copy = request.copy();
  request.setHTTPMethod("PUT");
  request.setHTTPBody(Data::dataWithString(nullptr));
  EXPECT_TRUE(request.HTTPBody().isNull());
  request.addValueForHTTPHeaderField("fr", "Accept-Language");
  EXPECT_EQ(copy->url()->absoluteString(), String("http://example.com/"));
  EXPECT_EQ(copy->cachePolicy(), URLRequestCachePolicy::kReloadIgnoringLocalCacheData);
  EXPECT_EQ(copy->timeoutInterval(), 5);
  EXPECT_EQ(copy->HTTPMethod(), String("POST"));
  EXPECT_EQ(copy->HTTPBody(), Data("body"));
  EXPECT_EQ(copy->valueForHTTPHeaderField("accept-language"), String("en, de"));
  EXPECT_EQ(copy->allHTTPHeaderFields().keys(), std::vector<String>{"Accept-Language"});
  EXPECT_TRUE(copy->valueForHTTPHeaderField("Accept").isNull());
}

TEST(MutableURLRequest, MayBeReadWhileAnotherThreadChangesIt) {
  MutableURLRequest request = makeRequest();
  std::thread writer([&] {
    for (int i = 0; i < 1000; ++i) {
      request.setHTTPMethod(i % 2 ? "POST" : "PUT");
      request.setHTTPBody(Data("body"));
      if (i % 100 == 0) request.addValueForHTTPHeaderField("x", "X-Field");
    }
  });
  for (int i = 0; i < 1000; ++i) {
    const auto copy = request.copy();
    EXPECT_FALSE(copy->HTTPMethod().isNull());
    EXPECT_FALSE(request.description().isNull());
  }
  writer.join();
  EXPECT_EQ(request.valueForHTTPHeaderField("X-Field"), String("x, x, x, x, x, x, x, x, x, x"));
}

TEST(HTTPURLResponse, ReadsFieldsAsServersWriteThemAndIsCopiedWithThem) {
  const HTTPURLResponse response("http://example.com/", 200,
                                 "HTTP/1.1 200 OK: fine\r\n"
                                 "Content-Type:text/plain \r\n"
                                 "X-List: a\r\n"
                                 "x-list: b\r\n"
                                 "X-Folded: one\r\n\ttwo\r\n"
                                 "X-UTF8: \xc3\xa9\r\n"
                                 "X-Latin: caf\xe9\r\n"
                                 "X-Empty:\r\n"
                                 "no field at all\r\n"
                                 "not a name: x\r\n"
                                 "X-Bare: newline\n"
                                 "\r\n");
  const auto copy = response.copy();
  EXPECT_EQ(copy->statusCode(), 200);
  EXPECT_EQ(copy->URL(), String("http://example.com/"));
  const std::pair<const char*, const char*> cases[] = {
      {"content-type", "text/plain"}, {"X-LIST", "a, b"},         {"X-Folded", "one\ttwo"},
      {"X-UTF8", "\xc3\xa9"},         {"X-Latin", "caf\xc3\xa9"}, {"X-Empty", ""},
      {"X-Bare", "newline"}};
  for (const auto& [field, value] : cases) {
    EXPECT_EQ(copy->valueForHTTPHeaderField(field), String(value)) << field;
  }
  EXPECT_EQ(copy->allHeaderFields().count(), std::size(cases));
  EXPECT_EQ(copy->allHeaderFields().get("X-List"), Value("a, b"));
  EXPECT_TRUE(copy->valueForHTTPHeaderField("X-Missing").isNull());
}

}  // namespace
