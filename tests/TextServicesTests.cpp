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

TEST(RegularExpression, FindsTheFirstMatchAndCountsUTF16Units) {
  const struct {
    const char* pattern;
    const char* text;
    std::optional<Range> match;
  } cases[] = {
      {"[0-9]+", "ab123cd45", Range{2, 3}},
      {"b",
       "\xf0\x9f\x98\x80\xc3\xa9"
       "b",
       Range{3, 1}},
      {"^$", "", Range{0, 0}},
      {"ABC", "abc", std::nullopt},
      {"a.b", "a\nb", std::nullopt},
      {"^b", "a\nb", std::nullopt},
      {"a$", "a\nb", std::nullopt},
      {"a$", "a\n", std::nullopt},
      {"a$", "a\r\n", std::nullopt},
      {"a$?b$+", "ab", Range{0, 2}},
      {"(a$|b)", "b\na", Range{0, 1}},
      {"a[]$[^$]]$", "aa$", Range{1, 2}},
      {"[[$]\\]$]$", "$\n", std::nullopt},
      {"[[$]\\]$]$", "a]", Range{1, 1}},
      {"\\$\\Qa$\\E$", "$a$", Range{0, 3}},
      {"\\Q$", "a$\n", Range{1, 1}},
      {"a$(?m)a$", "a\n", std::nullopt},
      {"(?m)a$", "a\nb", Range{0, 1}},
      {"(?i:A)$", "a\n", std::nullopt},
      {"\\p{Lu}", "a\xc3\x89", Range{1, 1}},
  };
  for (const auto& [pattern, text, match] : cases) {
    EXPECT_EQ(firstMatch(pattern, text), match) << pattern << " in " << text;
  }
  EXPECT_EQ(firstMatch("b", String(std::string_view("a\0b", 3))), (Range{2, 1}));
  EXPECT_EQ(firstMatch("", nullptr), std::nullopt);
}

TEST(RegularExpression, IsNotMadeFromAMalformedOrOverlongPattern) {
  const String patterns[] = {
      nullptr, "(", "[$", "$\\", repeated("(", 5000), repeated("[", 5000), repeated("a", 10001)};
  for (const String& pattern : patterns) {
    EXPECT_FALSE(RegularExpression::regularExpressionWithPattern(pattern)) << pattern.view();
  }
  EXPECT_TRUE(RegularExpression::regularExpressionWithPattern(repeated("a", 10000)));
}

// Each of these takes minutes or all memory when it is let run: by backtracking, by an expensive
// comparison, by the depth of its stack, and (the last) by work at every position of the text.
TEST(RegularExpression, GivesUpAnEndlessSearch) {
  const struct {
    std::string pattern;
    std::string text;
  } cases[] = {
      {"(a+)+b", repeated("a", 60)},
      {"(a{1,5000})(\\1){5000}b", repeated("a", 300000)},
      {"(.|\\n)*z", repeated("x", 5000000) + "z"},
      {repeated("(a)", 3000) + "b", repeated("a", 5000000)},
  };
  for (const auto& [pattern, text] : cases) {
    EXPECT_EQ(firstMatch(pattern, text), std::nullopt) << pattern.substr(0, 30);
  }
}

TEST(NumberFormatter, ReadsWholeTextsInTheirLocale) {
  const std::int64_t largest = std::numeric_limits<std::int64_t>::max();
  const struct {
    const char* locale;
    const char* text;
    Value number;
  } cases[] = {
      {"en_US", "42", 42},
      {"en_US", "-1", -1},
      {"en_US", "1.5E3", 1500},
      {"en_US", "9223372036854775807", largest},
      {"en_US", "9223372036854775808", 9223372036854775808.0},
      {"en_US", "\xd9\xa4\xd9\xa2", 42},
      {"de_DE", "1,5", 1.5},
      {"en_US", "", nullptr},
      {"en_US", "12a", nullptr},
      {"en_US", "+5", nullptr},
      {"en_US", " \t\xe2\x80\x83-42", -42},
      {"en_US", "\n42", nullptr},
      {"en_US", "42 ", nullptr},
      {"en_US", "1,234", nullptr},
      {"en_US", "1e400", nullptr},
      {"de_DE", "1.5", nullptr},
  };
  for (const auto& [locale, text, number] : cases) {
    String failure;
    EXPECT_EQ(NumberFormatter(locale).numberFromString(text, &failure), number) << text;
    EXPECT_TRUE(failure.isNull()) << text << ": " << failure.view();
  }
}

TEST(NumberFormatter, GivesIntegersAsSixtyFourBitsAndTheRestAsDoubles) {
  for (const auto& [text, isInteger] :
       {std::pair("-5000000000", true), {"2e3", true}, {"1.25", false}, {"1e19", false}}) {
    const Value number = NumberFormatter("en_US").numberFromString(text);
    EXPECT_EQ(std::holds_alternative<std::int64_t>(number.storage()), isInteger) << text;
    EXPECT_EQ(std::holds_alternative<double>(number.storage()), !isInteger) << text;
  }
}

TEST(NumberFormatter, TellsTheTextItCannotJudgeFromTheOneThatIsNoNumber) {
  String failure;
  EXPECT_EQ(NumberFormatter().numberFromString(repeated("0", 4095) + "7", &failure), Value(7));
  EXPECT_TRUE(NumberFormatter().numberFromString(nullptr, &failure).isNil());
  EXPECT_TRUE(failure.isNull());
  const String overlong = repeated("7", 4097);
  EXPECT_TRUE(NumberFormatter().numberFromString(overlong, &failure).isNil());
  EXPECT_EQ(failure, String("The text is too long for a number"));
  EXPECT_TRUE(NumberFormatter().numberFromString(overlong).isNil());
}

constexpr const char* kHeaderPattern = "EEE, dd MMM yyyy HH:mm:ss zzz";

TEST(DateFormatter, WritesDatesForServers) {
  const double infinity = std::numeric_limits<double>::infinity();
  const double nearLargest = 18446744073709551615.0;
  const struct {
    double seconds;
    const char* text;
  } cases[] = {
      {0, "Thu, 01 Jan 1970 00:00:00 GMT"},
      {1615215537.999, "Mon, 08 Mar 2021 14:58:57 GMT"},
      {-1, "Wed, 31 Dec 1969 23:59:59 GMT"},
      {nearLargest, "Tue, 20 Dec 5828963 00:00:00 GMT"},
      {infinity, "Tue, 20 Dec 5828963 00:00:00 GMT"},
  };
  const DateFormatter formatter(kHeaderPattern, "GMT");
  for (const auto& [seconds, text] : cases) {
    EXPECT_EQ(formatter.stringFromDate(Date{seconds}), String(text)) << seconds;
  }
  EXPECT_FALSE(formatter.stringFromDate(Date{-infinity}).isNull());
  const double notANumber = std::numeric_limits<double>::quiet_NaN();
  EXPECT_TRUE(formatter.stringFromDate(Date{notANumber}).isNull());
}

TEST(DateFormatter, TakesPatternAndTimeZone) {
  const struct {
    String pattern;
    String zone;
    String text;
  } cases[] = {
      {"HH:mm", "Europe/Paris", "01:00"}, {"HH:mm", "Nowhere/Land", "00:00"},
      {"HH:mm", nullptr, "00:00"},        {"", "GMT", ""},
      {nullptr, "GMT", nullptr},
  };
  for (const auto& [pattern, zone, text] : cases) {
    EXPECT_EQ(DateFormatter(pattern, zone).stringFromDate(Date{0}), text) << pattern.view();
  }
}

// What ICU makes at its first use, in whatever thread that is, must not disturb the others.
TEST(TextServices, MayBeUsedFromManyThreadsAtOnce) {
  const DateFormatter dates(kHeaderPattern, "GMT");
  const NumberFormatter numbers;
  const auto use = [&] {
    for (int i = 0; i < 200; ++i) {
      EXPECT_EQ(firstMatch("[0-9]+x", "ab12x"), (Range{2, 3}));
      EXPECT_EQ(numbers.numberFromString("12"), Value(12));
      EXPECT_EQ(dates.stringFromDate(Date{0}), String("Thu, 01 Jan 1970 00:00:00 GMT"));
      EXPECT_TRUE(QVPlatform::consistsOfDecimalDigits(String("12")));
      EXPECT_NE(UUID::UUIDString(), UUID::UUIDString());
    }
  };
  std::vector<std::jthread> threads;
  for (int i = 0; i < 4; ++i) threads.emplace_back(use);
}

}  // namespace
