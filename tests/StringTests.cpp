#include <QVPlatform/Foundation/Value.h>

#include <gtest/gtest.h>

using QVPlatform::String;

namespace {

constinit String::Literal constantText{"QVNotification: Constant"};
constexpr String kConstant{constantText};

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
}

TEST(String, RefusesMalformedUTF8) {
  for (const char* text : {"\xff", "a\xc3", "\xc0\x80", "\xed\xa0\x80", "\xf4\x90\x80\x80"}) {
    EXPECT_TRUE(String(text).isNull()) << text;
  }
  EXPECT_EQ(String("\xc3\xa9\xf0\x9f\x98\x80").view().size(), 6U);
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
  EXPECT_EQ(String("a%20b%C3%A9").stringByReplacingPercentEscapes(), String("a b\xc3\xa9"));
  EXPECT_EQ(String("plain").stringByReplacingPercentEscapes(), String("plain"));
  for (const char* text : {"%", "%4", "%zz", "%ff"}) {
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
    EXPECT_EQ(directory.stringByAppendingPathComponent(component), path) << directory.view();
  }
}

TEST(String, ReplacesEveryOccurrence) {
  EXPECT_EQ(String("xabxab").stringByReplacingOccurrencesOfString("ab", "-"), String("x-x-"));
  EXPECT_EQ(String("x").stringByReplacingOccurrencesOfString("", "-"), String("x"));
}

}  // namespace
