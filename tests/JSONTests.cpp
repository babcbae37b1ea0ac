#include "tests/support/Test.h"

namespace {

/// The value that the text stands for, by way of an array around it.
Value read(const std::string& text) {
  return JSONSerialization::JSONObjectWithText("[" + text + "]").array().at(0);
}

/// Equal, and of one kind.
void expectSame(const Value& value, const Value& expected, const char* text) {
  EXPECT_EQ(value, expected) << text;
  EXPECT_EQ(value.storage().index(), expected.storage().index()) << text;
}

std::string nested(std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

TEST(JSON, MakesValuesOfEveryKind) {
  const Value null = Null::null();
  String error("not touched");
  const Value value = JSONSerialization::JSONObjectWithText(
      R"({"text": "caf\u00e9 \ud83d\ude00\u0000\"/", "list": [1, true, null], "none": null, "in": {"a": -0.5}})",
      &error);
  EXPECT_TRUE(error.isNull());
  const Value expected = Dictionary{{"text", "caf\xc3\xa9 \xf0\x9f\x98\x80\0\"/"s},
                                    {"list", Array{1, true, null}},
                                    {"none", null},
                                    {"in", Dictionary{{"a", -0.5}}}};
  EXPECT_EQ(value, expected);
  EXPECT_EQ(value.dictionary().get("none").description(), String("<null>"));
  EXPECT_TRUE(std::holds_alternative<bool>(value.dictionary().get("list").array().at(1).storage()));
}

TEST(JSON, KeepsTheKindOfNumbersAndReadsThoseBeyondMachineRange) {
  constexpr double kLargest = std::numeric_limits<double>::max();
  const std::pair<const char*, Value> cases[] = {
      {"0", std::int64_t{0}},
      {"-0", std::int64_t{0}},
      {"9223372036854775807", std::numeric_limits<std::int64_t>::max()},
      {"-9223372036854775808", std::numeric_limits<std::int64_t>::min()},
      {"9223372036854775808", std::uint64_t{1} << 63},
      {"18446744073709551615", std::numeric_limits<std::uint64_t>::max()},
      {"1.0", 1.0},
      {"1E2", 100.0},
      {"-2.5e-1", -0.25},
      {"18446744073709551616", 18446744073709551616.0},
      {"-9223372036854775809", -9223372036854775809.0},
      {"123456789012345678901234567890", 123456789012345678901234567890.0},
      {"1e308", 1e308},
      {"1e309", kLargest},
      {"-1e309", -kLargest},
      {"1e99999999999999999999999", kLargest},
      {"0.001e+400", kLargest},
      {"1e-400", 0.0},
      {"1.7976931348623157e308", kLargest},
      {"-0.012345678901", -0.012345678901},
      {"12.00000000e+2", 1200.0},
      {"0.000000001e-99999999999", 0.0},
      {"0e99999999999999999999999", 0.0},
  };
  for (const auto& [text, expected] : cases) {
    expectSame(read(text), expected, text);
    // Beside a number that takes the second way of reading, every number reads the same.
    expectSame(read(text + std::string(R"(, "\\\"", 1e999)")), expected, text);
  }
  EXPECT_EQ(read(R"("1e999 \" 18446744073709551616", 1e999)").string(),
            String(R"(1e999 " 18446744073709551616)"));
  const std::string ones(400, '1');
  expectSame(read(ones), kLargest, "400 digits");
  expectSame(read(ones + "e-399"), 1.1111111111111112, "400 digits and an exponent");
  expectSame(read("0." + std::string(400, '0') + "1"), 0.0, "400 zeros");
}

TEST(JSON, PassesOverALeadingByteOrderMark) {
  EXPECT_EQ(JSONSerialization::JSONObjectWithText("\xEF\xBB\xBF[7]"), Value(Array{7}));
  EXPECT_TRUE(JSONSerialization::JSONObjectWithText("[\xEF\xBB\xBF 7]").isNil());
}

TEST(JSON, RefusesWhatIsNotStrictAndSaysWhy) {
  std::vector<std::string> texts = words(R"(
      "text" 7 null { [1,] {"a":1,} {'a':1} {a:1} [01] [1.] [.5] [+1] [1e] [1e+-5] [0x10] [NaN]
      [1e999.] [1.e999] [-01e999] [.1e999] [1e999,"open] [018446744073709551616] [tru] ["\x"]
      ["\ud800"] ["\udc00"] ["\ud800\u0041"] ["open])");
  for (const std::string& text :
       {""s, " "s, "[1] 2"s, "[\"\t\"]"s, "// no\n[]"s, "[\"\xff\"]"s, "[\"\xed\xa0\x80\"]"s,
        "[1]\0"s, "\xFF\xFE[\0]\0"s /* UTF-16 */, nested(JSONDocument::kMaximumDepth + 1),
        nested(100'000), std::string(100'000, '['),
        "[\"" + std::string(JSONDocument::kMaximumSize, 'a') + "\"]"}) {
    texts.push_back(text);
  }
  for (const std::string& text : texts) {
    String error;
    EXPECT_TRUE(JSONSerialization::JSONObjectWithText(text, &error).isNil()) << text.substr(0, 40);
    EXPECT_FALSE(error.isEmpty()) << text.substr(0, 40);
  }
  EXPECT_FALSE(JSONDocument(nullptr).error().isNull());
  EXPECT_NE(JSONDocument("[\"\\x\"]").error(), JSONDocument("[01]").error())
      << "says what is wrong";
  EXPECT_FALSE(JSONSerialization::JSONObjectWithText(nested(JSONDocument::kMaximumDepth)).isNil());
}

TEST(JSONDocument, EntersMembersAndStaysWhereThereAreNone) {
  JSONDocument document(R"({"a": {"b\n": [1], "n": null, "t": "x"}, "c": [[{}, {"a": 4}], {"a": 5}],
                           "a" : {"c": {"b\n": [[7], 8]}, "b\n" : [2], "": 3} })");
  EXPECT_TRUE(document.error().isNull());
  EXPECT_FALSE(document.enterMember("A"));
  EXPECT_TRUE(document.enterMember("a"));
  EXPECT_FALSE(document.enterMember("n")) << "of a repeated key the last one counts";
  const Dictionary inner{{"b\n", Array{Array{7}, 8}}};
  EXPECT_EQ(document.value(), Value(Dictionary{{"c", inner}, {"b\n", Array{2}}, {"", 3}}));
  EXPECT_TRUE(document.enterMember("b\n"));
  EXPECT_FALSE(document.enterMember("0")) << "arrays have no members";
  EXPECT_EQ(document.value(), Value(Array{2}));
}

TEST(JSONDocument, HasNothingToEnterWhenTheTextCannotBeRead) {
  JSONDocument document(R"({"a": 1)");
  EXPECT_FALSE(document.error().isNull());
  EXPECT_FALSE(document.enterMember("a"));
  EXPECT_TRUE(document.value().isNil());
}

TEST(JSONDocumentDeathTest, IsReadUntilTheVeryEndOfAProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // nothing was read before
  const auto readTwoAtOnce = [] {
    const JSONDocument first("[1]");
    const JSONDocument second("[2]");
    if (first.value() == second.value()) std::abort();
  };
  const auto exitAfterReading = [&] {
    std::atexit(readTwoAtOnce);  // runs after the clean-up of whatever reading makes
    readTwoAtOnce();
    std::exit(0);
  };
  EXPECT_EXIT(exitAfterReading(), testing::ExitedWithCode(0), "");
}

}  // namespace
