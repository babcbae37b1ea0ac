#include "tests/support/Test.h"

namespace {

TEST(QVUtils, RecognisesTheShapeOfAValueAnywhereInTheText) {
  const struct {
    bool (*test)(const String&);
    String text;
    bool matches;
  } cases[] = {
      {QVUtils::matchDynamicVariableRegexp, "#QV_UNIQUEID#", true},
      {QVUtils::matchDynamicVariableRegexp, "x#A#y", true},
      {QVUtils::matchDynamicVariableRegexp, "##", false},
      {QVUtils::matchDynamicVariableRegexp, "#A", false},
      {QVUtils::matchDynamicVariableRegexp, nullptr, false},
      {QVUtils::matchAppleLocaleRegexp, "en_US", true},
      {QVUtils::matchAppleLocaleRegexp, "fra_FR", true},
      {QVUtils::matchAppleLocaleRegexp, "en-US", false},
      {QVUtils::matchAppleLocaleRegexp, "EN_us", false},
      {QVUtils::matchAppleLocaleRegexp, nullptr, false},
      {QVUtils::matchIPRegexp, "10.0.0.1", true},
      {QVUtils::matchIPRegexp, "999.999.999.999", true},
      {QVUtils::matchIPRegexp, "1.2.3", false},
      {QVUtils::matchIPRegexp, "1a2b3c4", false},
      {QVUtils::matchIPRegexp, nullptr, false},
      {QVUtils::matchSoftwareVersionRegexp, "14.4", true},
      {QVUtils::matchSoftwareVersionRegexp, "1a2", true},
      {QVUtils::matchSoftwareVersionRegexp, "release 1.2.3-beta", true},
      {QVUtils::matchSoftwareVersionRegexp, "14", false},
      {QVUtils::matchSoftwareVersionRegexp, nullptr, false},
      {QVUtils::matchScreenResolutionRegexp, "1080x1920", true},
      {QVUtils::matchScreenResolutionRegexp, "abc12x34def", true},
      {QVUtils::matchScreenResolutionRegexp, "1080X1920", false},
      {QVUtils::matchScreenResolutionRegexp, nullptr, false},
      {QVUtils::matchUUIDRegexp, "00000000-0000-0000-0000-000000000000", true},
      {QVUtils::matchUUIDRegexp, "ABCDEF01-2345-6789-ABCD-EF0123456789", true},
      {QVUtils::matchUUIDRegexp, "abcdef01-2345-6789-abcd-ef0123456789", false},
      {QVUtils::matchUUIDRegexp, "00000000-0000-0000-0000-00000000000", false},
      {QVUtils::matchUUIDRegexp, nullptr, false},
  };
  for (const auto& [test, text, matches] : cases) EXPECT_EQ(test(text), matches) << text.view();
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
  const struct {
    String text;
    bool isNumeric;
  } cases[] = {{"", true},
               {"0123456789", true},
               {"\xd9\xa0\xd9\xa9", true},  // Arabic-Indic zero and nine
               {"\xf0\x9d\x9f\x98", true},  // mathematical double-struck zero, beyond 16 bits
               {"12a", false},
               {"-1", false},
               {"1.5", false},
               {" 1", false},
               {"\xc2\xb2", false},      // superscript two
               {"\xe2\x85\xa7", false},  // Roman numeral eight
               {String(std::string_view("1\0", 2)), false},
               {nullptr, false}};
  for (const auto& [text, isNumeric] : cases) {
    EXPECT_EQ(QVUtils::isNumeric(text), isNumeric) << text.view();
  }
}

TEST(QVUtils, TurnsTextIntoNumbers) {
  using Limits = std::numeric_limits<std::int32_t>;
  const struct {
    String text;
    Value number;
    std::int32_t integer;
  } cases[] = {
      {"42", 42, 42},
      {"-7", -7, -7},
      {" 7", 7, 7},
      {"4294967301", std::int64_t{4294967301}, 5},
      {"-4294967301", std::int64_t{-4294967301}, -5},
      {"-1e300", -1e300, Limits::min()},
      {"abc", nullptr, 0},
      {"12a", nullptr, 0},
      {"", nullptr, 0},
      {nullptr, nullptr, 0},
  };
  testing::internal::CaptureStdout();
  for (const auto& [text, number, integer] : cases) {
    EXPECT_EQ(QVUtils::nsNumberFromString(text), number) << text.view();
    EXPECT_EQ(QVUtils::numberFromNSString(text), integer) << text.view();
  }
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(QVUtils, LogsATextThatTheNumberFormatterRefuses) {
  const std::string text(5000, '7');
  testing::internal::CaptureStdout();
  EXPECT_TRUE(QVUtils::nsNumberFromString(text).isNil());
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Invalid value when converting to number: " + text +
                ", The text is too long for a number, (null)\n");
}

TEST(QVURLEncodedString, KeepsUnreservedCharactersAndEscapesTheRest) {
  const struct {
    String text;
    String encoded;
  } cases[] = {
      {"a b&c", "a%20b%26c"},
      {"A-Z_0.9~", "A-Z_0.9~"},
      {"/?#[]@!$'()*+,;=:%", "%2F%3F%23%5B%5D%40%21%24%27%28%29%2A%2B%2C%3B%3D%3A%25"},
      {"`{}|^\"<>\\\x7f\n", "%60%7B%7D%7C%5E%22%3C%3E%5C%7F%0A"},
      {"\xc3\xa9", "%C3%A9"},
      {"\xf0\x9f\x98\x80", "%F0%9F%98%80"},
      {String(std::string_view("a\0b", 3)), "a"},
      {"", ""},
      {nullptr, nullptr},
  };
  for (const auto& [text, encoded] : cases) {
    EXPECT_EQ(QVURLEncodedString(text), encoded) << text.view();
  }
}

}  // namespace
