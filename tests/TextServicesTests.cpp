#include "tests/support/Test.h"

namespace {

std::string repeated(std::string_view text, int times) {
  std::string result;
  for (int i = 0; i < times; ++i) result += text;
  return result;
}

std::optional<Range> firstMatch(const String& pattern, const String& text) {
  return RegularExpression::regularExpressionWithPattern(pattern).value().firstMatchInString(text);
}

TEST(RegularExpression, FindsTheFirstMatchInUTF16UnitsAndTheEndAtTheEndAlone) {
  const std::tuple<const char*, String, std::optional<Range>> cases[] = {
      {"[0-9]+", "ab123cd45", Range{2, 3}}, {"b", "\U0001F600\u00e9b", Range{3, 1}},
      {"b", "a\0b"s, Range{2, 1}},          {"ABC", "abc", std::nullopt},
      {"", nullptr, std::nullopt},          {"^$", "", Range{0, 0}},
      {"a$", "a\nb", std::nullopt},         {"a$", "a\r\n", std::nullopt},
      {"a$?b$+", "ab", Range{0, 2}},        {"(a$|b)", "b\na", Range{0, 1}},
      {"a[]$[^$]]$", "aa$", Range{1, 2}},   {"[[$]\\]$]$", "$\n", std::nullopt},
      {"[[$]\\]$]$", "a]", Range{1, 1}},    {"\\$\\Qa$\\E$", "$a$", Range{0, 3}},
      {"\\Q$", "a$\n", Range{1, 1}},        {"a$(?m)a$", "a\n", std::nullopt},
      {"(?m)a$", "a\nb", Range{0, 1}},      {"(?i:A)$", "a\n", std::nullopt}};
  for (const auto& [pattern, text, match] : cases) {
    EXPECT_EQ(firstMatch(pattern, text), match) << pattern << " in " << text.view();
  }
}

TEST(RegularExpression, IsNotMadeFromAMalformedOrOverlongPattern) {
  for (const String& pattern : {String(), String("("), String("[$"), String("$\\"),
                                String(repeated("(", 5000)), String(repeated("a", 10001))}) {
    EXPECT_FALSE(RegularExpression::regularExpressionWithPattern(pattern)) << pattern.view();
  }
  EXPECT_TRUE(RegularExpression::regularExpressionWithPattern(repeated("a", 10000)));
}

// Each of these takes minutes or all memory when it is let run: by backtracking, by an expensive
// comparison, by the depth of its stack, and (the last) by work at every position of the text.
TEST(RegularExpression, GivesUpAnEndlessSearch) {
  const std::pair<std::string, std::string> cases[] = {
      {"(a+)+b", repeated("a", 60)},
      {"(a{1,5000})(\\1){5000}b", repeated("a", 300000)},
      {"(.|\\n)*z", repeated("x", 5000000) + "z"},
      {repeated("(a)", 3000) + "b", repeated("a", 5000000)}};
  for (const auto& [pattern, text] : cases) {
    EXPECT_EQ(firstMatch(pattern, text), std::nullopt) << pattern.substr(0, 30);
  }
}

TEST(NumberFormatter, ReadsWholeTextsAsSixtyFourBitsOrDoubles) {
  const std::tuple<const char*, String, Value> cases[] = {
      {"en_US", "2e3", std::int64_t{2000}},
      {"en_US", "9223372036854775807", INT64_MAX},
      {"en_US", "9223372036854775808", 9223372036854775808.0},
      {"de_DE", "1,5", 1.5},
      {"en_US", "", nullptr},
      {"en_US", "12a", nullptr},
      {"en_US", " \t\u2003-42", std::int64_t{-42}},
      {"en_US", "\n42", nullptr},
      {"en_US", "42 ", nullptr},
      {"en_US", "1,234", nullptr},
      {"en_US", "1e400", nullptr},
      {"en_US", nullptr, nullptr},
      {"en_US", repeated("0", 4095) + "7", std::int64_t{7}}};
  for (const auto& [locale, text, number] : cases) {
    String failure;
    const Value read = NumberFormatter(locale).numberFromString(text, &failure);
    EXPECT_EQ(read, number) << text.view();
    EXPECT_EQ(read.storage().index(), number.storage().index()) << text.view();
    EXPECT_TRUE(failure.isNull()) << text.view() << ": " << failure.view();
  }
  String failure;
  EXPECT_TRUE(NumberFormatter().numberFromString(repeated("7", 4097), &failure).isNil());
  EXPECT_EQ(failure, String("The text is too long for a number"));
  EXPECT_TRUE(NumberFormatter().numberFromString(repeated("7", 4097)).isNil());
}

constexpr const char* kHeaderPattern = "EEE, dd MMM yyyy HH:mm:ss zzz";

TEST(DateFormatter, WritesDatesByPatternAndTimeZone) {
  const std::tuple<String, String, double, String> cases[] = {
      {kHeaderPattern, "GMT", 1615215537.999, "Mon, 08 Mar 2021 14:58:57 GMT"},
      {kHeaderPattern, "GMT", -1, "Wed, 31 Dec 1969 23:59:59 GMT"},
      {kHeaderPattern, "GMT", HUGE_VAL, "Tue, 20 Dec 5828963 00:00:00 GMT"},
      {kHeaderPattern, "GMT", std::nan(""), nullptr},
      {"HH:mm", "Europe/Paris", 0, "01:00"},
      {"HH:mm", "Nowhere/Land", 0, "00:00"},
      {"HH:mm", nullptr, 0, "00:00"},
      {"", "GMT", 0, ""},
      {nullptr, "GMT", 0, nullptr}};
  for (const auto& [pattern, zone, seconds, text] : cases) {
    EXPECT_EQ(DateFormatter(pattern, zone).stringFromDate(Date{seconds}), text) << seconds;
  }
}

// What ICU makes at its first use, in whatever thread that is, must not disturb the others.
TEST(TextServices, MayBeUsedFromManyThreadsAtOnce) {
  const DateFormatter dates(kHeaderPattern, "GMT");
  const NumberFormatter numbers;
  runAtOnce(4, [&](int) {
    for (int i = 0; i < 200; ++i) {
      EXPECT_EQ(firstMatch("[0-9]+x", "ab12x"), (Range{2, 3}));
      EXPECT_EQ(numbers.numberFromString("12"), Value(12));
      EXPECT_EQ(dates.stringFromDate(Date{0}), String("Thu, 01 Jan 1970 00:00:00 GMT"));
      EXPECT_TRUE(consistsOfDecimalDigits(String("12")));
    }
  });
}

}  // namespace
