#include "tests/support/Test.h"

namespace {

TEST(QVUtils, RecognisesTheShapeOfAValueAnywhereInTheText) {
  const struct {
    bool (*test)(const String&);
    std::vector<String> matching;
    std::vector<String> others;
  } cases[] = {
      {QVUtils::matchDynamicVariableRegexp, {"#QV_UNIQUEID#", "x#A#y"}, {"##", "#A"}},
      {QVUtils::matchAppleLocaleRegexp, {"en_US", "fra_FR"}, {"en-US", "EN_us", "e_US", "en_U"}},
      {QVUtils::matchIPRegexp, {"10.0.0.1", "999.999.999.999"}, {"1.2.3", "1a2b3c4"}},
      {QVUtils::matchSoftwareVersionRegexp, {"14.4", "1a2", "release 1.2.3-beta"}, {"14"}},
      {QVUtils::matchScreenResolutionRegexp, {"1080x1920", "abc12x34def"}, {"1080X1920"}},
      {QVUtils::matchUUIDRegexp,
       {"00000000-0000-0000-0000-000000000000", "ABCDEF01-2345-6789-ABCD-EF0123456789"},
       {"abcdef01-2345-6789-abcd-ef0123456789", "00000000-0000-0000-0000-00000000000"}}};
  for (const auto& [test, matching, others] : cases) {
    for (const String& text : matching) EXPECT_TRUE(test(text)) << text.view();
    for (const String& text : others) EXPECT_FALSE(test(text)) << text.view();
    EXPECT_FALSE(test(nullptr));
  }
}

TEST(QVUtils, TakesAnInvalidPatternForOneThatMatchesEveryText) {
  for (const String& pattern : {String("("), String("[a"), String()}) {
    for (const String& text : {String("anything"), String(""), String()}) {
      EXPECT_TRUE(QVUtils::doesStringMatchRegexp(text, pattern)) << pattern.view();
    }
  }
  EXPECT_TRUE(QVUtils::doesStringMatchRegexp("", ""));
  EXPECT_FALSE(QVUtils::doesStringMatchRegexp(nullptr, ""));
}

TEST(QVUtils, TakesDigitsOnlyForNumeric) {
  // Arabic-Indic zero and nine; mathematical double-struck zero, beyond 16 bits.
  for (const char* text : {"", "0123456789", "\u0660\u0669", "\U0001D7D8"}) {
    EXPECT_TRUE(QVUtils::isNumeric(text)) << text;
  }
  // Superscript two; Roman numeral eight.
  for (const String& text : {String("12a"), String("-1"), String("1.5"), String(" 1"),
                             String("\u00b2"), String("\u2167"), String("1\0"s), String()}) {
    EXPECT_FALSE(QVUtils::isNumeric(text)) << text.view();
  }
}

TEST(QVUtils, TurnsTextIntoNumbersAndLogsWhatIsTooLong) {
  const std::tuple<String, Value, std::int32_t> cases[] = {
      {"-7", -7, -7},
      {"4294967301", std::int64_t{4294967301}, 5},
      {"-1e300", -1e300, INT32_MIN},
      {"12a", nullptr, 0},
      {nullptr, nullptr, 0}};
  testing::internal::CaptureStdout();
  for (const auto& [text, number, integer] : cases) {
    EXPECT_EQ(QVUtils::nsNumberFromString(text), number) << text.view();
    EXPECT_EQ(QVUtils::numberFromNSString(text), integer) << text.view();
  }
  const std::string text(5000, '7');
  EXPECT_TRUE(QVUtils::nsNumberFromString(text).isNil());
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Invalid value when converting to number: " + text +
                ", The text is too long for a number, (null)\n");
}

TEST(QVURLEncodedString, KeepsUnreservedCharactersAndEscapesTheRest) {
  const String cases[][2] = {
      {"a b&c", "a%20b%26c"},
      {"A-Z_0.9~", "A-Z_0.9~"},
      {"/?#[]@!$'()*+,;=:%", "%2F%3F%23%5B%5D%40%21%24%27%28%29%2A%2B%2C%3B%3D%3A%25"},
      {"`{}|^\"<>\\\x7f\n", "%60%7B%7D%7C%5E%22%3C%3E%5C%7F%0A"},
      {"\u00e9\U0001F600", "%C3%A9%F0%9F%98%80"},
      {"a\0b"s, "a"},
      {"", ""},
      {nullptr, nullptr}};
  for (const auto& [text, encoded] : cases) {
    EXPECT_EQ(QVURLEncodedString(text), encoded) << text.view();
  }
}

}  // namespace
