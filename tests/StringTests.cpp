#include "tests/support/Test.h"

namespace {

struct PlainObject : Object {
  Value content;
};

constexpr String kConstant = "QVNotification: Constant"_string;

TEST(String, ComparesByTextAndKnowsItsIdentity) {
  const String built("QVNotification: Constant");
  EXPECT_EQ(built, kConstant);
  EXPECT_EQ(built.hash(), kConstant.hash());
  EXPECT_FALSE(built.isSameObject(kConstant));
  const String copy = kConstant;
  EXPECT_TRUE(copy.isSameObject(kConstant));
}

TEST(String, TellsNullFromEmpty) {
  EXPECT_TRUE(String().isNull());
  EXPECT_TRUE(String(static_cast<const char*>(nullptr)).isNull());
  EXPECT_FALSE(String("").isNull());
  EXPECT_TRUE(String("").isEmpty());
  EXPECT_NE(String(), String(""));
  EXPECT_LT(String(), String(""));
  EXPECT_EQ(String().UTF8String(), nullptr);
  EXPECT_TRUE(Array(nullptr).isNull());
  EXPECT_EQ(String().stdString() + String("a").stdString(), "a");
}

TEST(String, IsNullForMalformedUTF8WhereverItStands) {
  for (const char* text :
       {"\xff", "\x80", "\xc3", "\xc0\x80", "\xe0\x9f\xbf", "\xe2\x82", "\xed\xa0\x80",
        "\xf0\x8f\xbf\xbf", "\xf0\x9f\x98", "\xf4\x90\x80\x80", "\xf5\x80\x80\x80"}) {
    for (const char* before : {"", "a", "seven b", "eight by", "\u00e9"}) {
      EXPECT_TRUE(String(before + std::string(text)).isNull()) << before << text;
      EXPECT_TRUE(String(before + std::string(text) + "eight by").isNull()) << before << text;
    }
  }
  const std::string wellFormed = "\u0080\u07ff\u0800\ud7ff\ue000\uffff\U00010000\U0010ffff";
  EXPECT_EQ(String(wellFormed).view(), wellFormed);
}

TEST(String, TellsASCIIWhereverAnotherCharacterStands) {
  for (std::size_t size = 0; size < 20; ++size) {
    const std::string text(size, 'a');
    EXPECT_TRUE(String(text).isASCII()) << size;
    for (std::size_t place = 0; place <= size; ++place) {
      EXPECT_FALSE(String(std::string(text).insert(place, "\u00e9")).isASCII()) << place;
    }
  }
}

TEST(String, ReplacesPercentEscapesOrRefusesThem) {
  EXPECT_EQ(String("a%20b%C3%a9").stringByReplacingPercentEscapes(), String("a b\u00e9"));
  EXPECT_EQ(String("plain").stringByReplacingPercentEscapes(), String("plain"));
  for (const char* text : {"%", "%4", "%zz", "%4z", "%ff"}) {
    EXPECT_TRUE(String(text).stringByReplacingPercentEscapes().isNull()) << text;
  }
}

TEST(String, AppendsAPathComponentWithOneSlash) {
  const String cases[][3] = {{"a", "b", "a/b"},
                             {"a/", "b", "a/b"},
                             {"a", "/b", "a/b"},
                             {"a//", "//b//", "a/b"},
                             {"/", "b", "/b"},
                             {"/", "/", "/"},
                             {"a/", "", "a"},
                             {"", "b", "b"},
                             {nullptr, "b", "b"},
                             {"a", nullptr, "a"},
                             {"/a//c", "b/d", "/a/c/b/d"},
                             {nullptr, nullptr, nullptr}};
  for (const auto& [directory, component, path] : cases) {
    EXPECT_EQ(directory.stringByAppendingPathComponent(component), path) << directory;
  }
}

TEST(String, ReplacesEveryOccurrence) {
  EXPECT_EQ(String("xabxab").stringByReplacingOccurrencesOfString("ab", "-"), String("x-x-"));
  EXPECT_EQ(String("x").stringByReplacingOccurrencesOfString("", "-"), String("x"));
}

TEST(Value, BecomesAnIntegerAndATextByTheKindOfItsNumber) {
  const std::tuple<Value, std::int32_t, double, bool, String> cases[] = {
      {std::int64_t{4294967301}, 5, 4294967301.0, true, "4294967301"},
      {UINT64_MAX, -1, 0x1p64, true, "18446744073709551615"},
      {4e9, INT32_MAX, 4e9, true, "4000000000"},
      {-1e300, INT32_MIN, -1e300, true, "-1e+300"},
      {std::numeric_limits<double>::infinity(), INT32_MAX, INFINITY, true, "inf"},
      {-1.9, -1, -1.9, true, "-1.9"},
      {0.1, 0, 0.1, true, "0.1"},
      {-0.0, 0, 0, false, "-0"},
      {0.1 + 0.2, 0, 0.1 + 0.2, true, "0.30000000000000004"},
      {0.00001, 0, 0.00001, true, "1e-05"},
      {1e15, INT32_MAX, 1e15, true, "1000000000000000"},
      {1e16, INT32_MAX, 1e16, true, "1e+16"},
      {true, 1, 1, true, "1"},
      {std::int8_t{-7}, -7, -7, true, "-7"},
      {std::uint16_t{65535}, 65535, 65535, true, "65535"},
      {" 7x", 7, 7, true, " 7x"},
      {"+5", 5, 5, true, "+5"},
      {"+-5", 0, 0, false, "+-5"},
      {"-00.25e1", 0, -2.5, false, "-00.25e1"},
      {"1e999", 1, 0, true, "1e999"},
      {"information", 0, 0, false, "information"},
      {"yes", 0, 0, true, "yes"},
      {"000", 0, 0, false, "000"},
      {"-4294967301", INT32_MIN, -4294967301.0, true, "-4294967301"},
      {"99999999999999999999", INT32_MAX, 1e20, true, "99999999999999999999"},
      {"-99999999999999999999", INT32_MIN, -1e20, true, "-99999999999999999999"},
      {Array({5}), 0, 0, false, nullptr},
      {nullptr, 0, 0, false, nullptr}};
  for (const auto& [value, integer, real, flag, text] : cases) {
    EXPECT_EQ(value.intValue(), integer) << value;
    EXPECT_EQ(value.doubleValue(), real) << value;
    EXPECT_EQ(value.boolValue(), flag) << value;
    EXPECT_EQ(value.stringValue(), text) << value;
  }
  EXPECT_EQ(Value(std::nan("")).intValue(), 0);
  static_assert(!std::constructible_from<Value, char> && !std::constructible_from<Value, char32_t>);
}

TEST(Value, EqualsOnlyWhatStandsForTheSameNumber) {
  constexpr std::int64_t kLarge = std::int64_t{1} << 53;
  const std::tuple<Value, double, bool> cases[] = {{kLarge, 0x1p53, true},
                                                   {kLarge + 1, 0x1p53, false},
                                                   {UINT64_MAX, 0x1p64, false},
                                                   {std::uint64_t{1} << 63, 0x1p63, true},
                                                   {INT64_MIN, -0x1p63, true},
                                                   {INT64_MIN, 0x1p63, false},
                                                   {INT64_MIN, -0x1p64, false},
                                                   {true, 1.0, true},
                                                   {0, -0.0, true},
                                                   {1, 1.5, false},
                                                   {0, std::nan(""), false},
                                                   {-1, -1.0, true}};
  for (const auto& [integer, real, isEqual] : cases) {
    EXPECT_EQ(integer == Value(real), isEqual) << real;
    EXPECT_EQ(Value(real) == integer, isEqual) << real;
  }
}

TEST(Value, IsComparedAndDescribedInTimeHoweverOftenItsPartsAreShared) {
  const auto made = [](int levels) {
    Value value = Array({1});
    for (int i = 0; i < levels; ++i) value = Array({value, value});
    return value;
  };
  EXPECT_EQ(made(15), made(15));
  EXPECT_NE(made(60), made(60));
  EXPECT_LT(made(60).description().view().size(), 1U << 30);
}

TEST(Value, IsDestroyedAtAnyDepthOfContainers) {
  auto innermost = std::make_shared<PlainObject>();
  const std::weak_ptr<PlainObject> watch = innermost;
  Value nested = std::move(innermost);
  for (int i = 0; i < 100000; ++i) {
    nested = i % 3 == 0 ? Value(Array({nested, "beside"})) : Value(Dictionary({{"key", nested}}));
  }
  for (int i = 0; i < 100000; ++i) {
    auto holder = std::make_shared<PlainObject>();
    holder->content = std::exchange(nested, nullptr);
    nested = Array({std::move(holder)});
  }
  EXPECT_EQ(nested, nested);
  EXPECT_LT(nested.description().view().size(), 100000U);
  nested = nullptr;
  EXPECT_TRUE(watch.expired());
}

TEST(Value, IsFilledThroughAContainerThatWasNull) {
  Dictionary table;
  Array list;
  const Dictionary earlier = table;
  list.append(nullptr);
  table.set("a", nullptr);
  EXPECT_TRUE(table.isNull() && list.isNull());
  table.set("b", "x"s);
  list.append(table);
  EXPECT_EQ((std::ostringstream() << list << earlier.get("b") << String()).str(),
            "(\n    {\n        b = x;\n    },\n)(null)(null)");
}

TEST(Value, IsLeftAsItWasByWhatIsDoneToACopyOfItOrToWhatItIsACopyOf) {
  using Change = void (*)(Dictionary, Array);
  const Change changes[] = {
      [](Dictionary table, Array list) { table.set("a", 2), list.append(2); },
      [](Dictionary table, Array list) { table.set("c", 2), list.removeLast(); },
      [](Dictionary table, Array list) { table.remove("a"), list.removeEqual(1); },
      [](Dictionary table, Array list) { table.clear(), list.clear(); }};
  const Dictionary wholeTable({{"a", 1}, {"b", 1}});
  const Array wholeList({1, 2});
  for (std::size_t i = 0; i < std::size(changes); ++i) {
    for (const bool isCopyChanged : {true, false}) {
      const Dictionary table({{"a", 1}, {"b", 1}});
      const Array list({1, 2});
      const Dictionary otherTable = isCopyChanged ? table.copy() : Dictionary(table).copy();
      const Array otherList = list.copy();
      EXPECT_EQ(Value(Array(Array(list).values())), Value(wholeList));  // of one that others have
      changes[i](isCopyChanged ? otherTable : table, isCopyChanged ? otherList : list);
      EXPECT_EQ(Value(table) == Value(wholeTable), isCopyChanged) << i;
      EXPECT_EQ(Value(otherTable) == Value(wholeTable), !isCopyChanged) << i;
      EXPECT_EQ(Value(list) == Value(wholeList), isCopyChanged) << i;
      EXPECT_EQ(Value(otherList) == Value(wholeList), !isCopyChanged) << i;
    }
  }
}

TEST(Value, OfATableIsTheLastOneUnderItsKeyAndKeysAreInOrder) {
  for (const int count : {3, 16, 17, 100}) {
    std::vector<Dictionary::Entry> entries;
    std::map<String, Value> last;
    for (int i = 0; i < count; ++i) {
      const String key(std::to_string(i * 7 % 11));
      entries.emplace_back(key, i);
      last[key] = i;
    }
    EXPECT_EQ(Dictionary(entries).entries(),
              std::vector<Dictionary::Entry>(last.begin(), last.end()));
  }
}

}  // namespace
