#include "tests/support/PropertyListValues.h"
#include "tests/support/Test.h"

namespace {

class OpaqueObject : public Object {};

Value throughBytes(const Value& value) {
  return PropertyList::valueWithData(PropertyList::dataWithValue(value).view());
}

/// A binary property list of these objects, the first being the root.
std::string fileOf(const std::vector<std::string>& objects, char referenceWidth = 1) {
  std::string file = "bplist00";
  std::string table;
  for (const auto& object : objects) {
    for (const int shift : {16, 8, 0}) table.push_back(static_cast<char>(file.size() >> shift));
    file += object;
  }
  const auto number = [](std::size_t value) {
    std::string bytes;
    for (int shift = 56; shift >= 0; shift -= 8) bytes.push_back(static_cast<char>(value >> shift));
    return bytes;
  };
  const std::size_t start = file.size();
  return file + table + "\0\0\0\0\0\0\3"s + referenceWidth + number(objects.size()) + number(0) +
         number(start);
}

std::string arrayOf(std::size_t count, char reference) {
  return "\xAF\x11"s + static_cast<char>(count >> 8) + static_cast<char>(count & 0xFF) +
         std::string(count, reference);
}

/// Each text begins within the one before it.
std::string fileOfOverlappingTexts(std::size_t count) {
  std::vector<std::string> objects{arrayOf(count, 0)};
  for (std::size_t i = 0; i < count; ++i) {
    objects[0][4 + i] = static_cast<char>(i + 1);
    objects.push_back("\x5F\x11\x40\x40");
  }
  objects.push_back(std::string(17000, 'x'));
  return fileOf(objects);
}

TEST(PropertyList, BringsEverythingBackAsItWas) {
  for (const Value& value : QVTest::propertyListValues()) {
    const Value read = throughBytes(Dictionary({{"key", Array({value, "next"})}}));
    EXPECT_TRUE(identical(read.dictionary().get("key").array().at(0), value))
        << value.description().view().substr(0, 100) << " became "
        << read.description().view().substr(0, 100);
    EXPECT_TRUE(identical(throughBytes(value), value)) << value.description().view().substr(0, 100);
  }
}

TEST(PropertyList, KeepsManyObjectsApart) {
  std::vector<Value> values;
  for (int i = 0; i < 70000; ++i) values.emplace_back(Array({i, String(std::to_string(i))}));
  const Array array(std::move(values));
  EXPECT_EQ(throughBytes(array), Value(array));
}

TEST(PropertyList, RefusesWhatIsNone) {
  Array cyclic = Array::array();
  cyclic.append(Dictionary({{"itself", cyclic}}));
  const std::pair<const char*, Value> cases[] = {
      {"nil", nullptr},
      {"object", Array({std::make_shared<OpaqueObject>()})},
      {"cycle", cyclic},
      {"too deep", nested(1, PropertyList::kMaximumDepth + 1)},
  };
  for (const auto& [name, value] : cases) {
    EXPECT_TRUE(PropertyList::dataWithValue(value).isNull()) << name;
    EXPECT_TRUE(PropertyList::copy(value).isNil()) << name;
  }
  cyclic.clear();
  Value sharedTooOften = "x";
  for (int i = 0; i < 3; ++i) sharedTooOften = Array(std::vector<Value>(1000, sharedTooOften));
  EXPECT_TRUE(PropertyList::copy(sharedTooOften).isNil());
  const Value deepest = nested(1, PropertyList::kMaximumDepth);
  EXPECT_EQ(throughBytes(deepest), deepest);
  EXPECT_EQ(PropertyList::copy(deepest), deepest);
}

TEST(PropertyList, CopiesContainersDeeply) {
  Dictionary inner({{"a", 1}});
  const Value copy = PropertyList::copy(Array({inner, inner}));
  inner.set("a", 2);
  EXPECT_EQ(copy, Value(Array({Dictionary({{"a", 1}}), Dictionary({{"a", 1}})})));
  EXPECT_FALSE(copy.array().at(0).dictionary().isSameObject(copy.array().at(1).dictionary()));
}

TEST(PropertyList, IsReadByOtherReaders) {
  const QVTest::TemporaryDirectory directory;
  const auto file = directory.path() / "file.plist";
  Dictionary written({{"b", Array({true, false})},
                      {"d", Data("\0\x01"s)},
                      {"i", Array({-1, 255, 65536U, INT64_MIN, UINT64_MAX, std::uint64_t{5}})},
                      {"r", Array({1.0, 0.1})},
                      {"s", Array({"", "plain", "\u00e9\U0001F600", String("a\0b"s)})},
                      {"t", Date{1000000000}}});
  putFile(file, PropertyList::dataWithValue(written).view());
  EXPECT_EQ(outputOf("python3 -c 'import plistlib,sys\n"
                     "print(ascii(plistlib.load(open(sys.argv[1], \"rb\"))))' " +
                     file.string()),
            "{'b': [True, False], 'd': b'\\x00\\x01', 'i': [-1, 255, 65536, -9223372036854775808, "
            "18446744073709551615, 5], 'r': [1.0, 0.1], 's': ['', 'plain', '\\xe9\\U0001f600', "
            "'a\\x00b'], 't': datetime.datetime(2001, 9, 9, 1, 46, 40)}\n");
  // XML has no way to hold U+0000.
  written.set("s", Array({"", "plain", "\u00e9\U0001F600", "<&>"}));
  putFile(file, PropertyList::dataWithValue(written).view());
  const std::string xml = outputOf("plistutil -f xml -i " + file.string() + " -o -");
  EXPECT_EQ(PropertyList::valueWithData(xml), Value(written));
}

TEST(PropertyList, ReadsWhatOtherWritersWrite) {
  const QVTest::TemporaryDirectory directory;
  const Value expected =
      Dictionary({{"list", Array({Array::array(), Dictionary::dictionary(), true, -3, 300, 1.5})},
                  {"big", UINT64_MAX},
                  {"bytes", Data("\xff\0zz"s)},
                  {"text", "\u00e9 \U0001F600 <&>\n  "},
                  {"when", Date{1000000000}}});
  for (const std::string format : {"XML", "BINARY"}) {
    const auto file = directory.path() / format;
    outputOf(
        "python3 -c 'import plistlib,sys,datetime\n"
        "value = dict(list=[[], {}, True, -3, 300, 1.5], big=2**64-1, bytes=b\"\\xff\\0zz\",\n"
        "  text=\"\\xe9 \\U0001f600 <&>\\n  \", when=datetime.datetime(2001, 9, 9, 1, 46, 40))\n"
        "plistlib.dump(value, open(sys.argv[1], \"wb\"), fmt=plistlib.FMT_" +
        format + ")' " + file.string());
    EXPECT_EQ(PropertyList::valueWithData(contentsOf(file)), expected) << format;
  }
}

TEST(PropertyList, ReadsXMLElements) {
  const std::pair<const char*, Value> cases[] = {
      {"<string/>", ""},
      {"<string>a<!-- note -->b<![CDATA[<c>]]>&#x20ac;</string>", "ab<c>\u20ac"},
      {"<integer> -0x10 </integer>", -16},
      {"<integer>+7</integer>", 7},
      {"<integer>-9223372036854775808</integer>", INT64_MIN},
      {"<integer>18446744073709551615</integer>", UINT64_MAX},
      {"<real>+1e3</real>", 1000.0},
      {"<data>\n\tQU JD\n\tRA==</data>", Data("ABCD")},
      {"<data></data>", Data("")},
      {"<date>1969-12-31T23:59:59Z</date>", Date{-1}},
      {"<array> <true/> <dict> <key>k</key> <false/> </dict> </array>",
       Array({true, Dictionary({{"k", false}})})},
  };
  for (const auto& [xml, expected] : cases) {
    EXPECT_EQ(PropertyList::valueWithData("<plist>"s + xml + "</plist>"), expected) << xml;
  }
}

TEST(PropertyList, RefusesMalformedXML) {
  std::string deep;
  for (std::size_t i = 0; i < 100000; ++i) deep += "<array>";
  const std::string cases[] = {
      "",
      "plain text",
      "<plist>",
      "<plist></plist>",
      "<string>no list</string>",
      "<dict/>",
      "<plist><true/><true/></plist>",
      "<plist>text<true/></plist>",
      "<plist><plist><true/></plist></plist>",
      "<plist><string><dict/></string></plist>",
      "<plist><dict><true/></dict></plist>",
      "<plist><dict><key>a</key></dict></plist>",
      "<plist><dict><key>a</key><key>b</key><true/></dict></plist>",
      "<plist><array><key>a</key></array></plist>",
      "<plist><key>a</key></plist>",
      "<plist><unknown/></plist>",
      "<plist><true>text</true></plist>",
      "<plist><integer></integer></plist>",
      "<plist><integer>--1</integer></plist>",
      "<plist><integer>18446744073709551616</integer></plist>",
      "<plist><integer>-9223372036854775809</integer></plist>",
      "<plist><real>1.0x</real></plist>",
      "<plist><data>A</data></plist>",
      "<plist><data>QQ=A</data></plist>",
      "<plist><date>2001-02-30T00:00:00Z</date></plist>",
      "<plist><date>2001-02-03</date></plist>",
      "<plist><date>-001-02-03T00:00:00Z</date></plist>",
      "<plist>" + deep,
      "<!DOCTYPE plist [<!ENTITY a \"x\">]><plist><string>&a;</string></plist>",
      "<!DOCTYPE plist SYSTEM \"file:///etc/passwd\"><plist><string>&a;</string></plist>",
      "<plist><string>\xff</string></plist>",
  };
  for (const std::string& xml : cases) {
    EXPECT_TRUE(PropertyList::valueWithData(xml).isNil()) << xml.substr(0, 100);
  }
}

TEST(PropertyList, ReadsWhatOnlyOtherWritersDo) {
  const std::pair<std::string, Value> cases[] = {
      {"\x22\x3F\xC0\0\0"s, 1.5},                    // a short real
      {"\x14\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\7"s, 7},  // 16 bytes
      {"\x14"s + std::string(16, '\xff'), -1},       // and negative
      {"\x52\xC3\xA9", "\u00e9"},                    // UTF-8
      {"\x62\xD8\x3D\0a"s, "\uFFFDa"},               // half a pair
      {"\x61\xDE\0"s, "\uFFFD"},                     // the other half
      {"\x10\5\x0F\x0F\x0F\x0F\x0F"s, 5},            // padding
  };
  for (const auto& [object, expected] : cases) {
    EXPECT_EQ(PropertyList::valueWithData(fileOf({object})), expected);
  }
}

TEST(PropertyList, RefusesDamagedObjects) {
  const std::vector<std::string> cases[] = {
      {""s},                               // nothing before the table
      {"\0"s},                             // null
      {"\x0F"},                            // padding
      {"\x70"},                            // no such type
      {"\x15" + std::string(32, '\0')},    // an integer of 32 bytes
      {"\x14\1" + std::string(15, '\0')},  // beyond 64 bits
      {"\x20\0"s},                         // a real of one byte
      {"\x32\0\0\0\0"s},                   // a short date
      {"\x80\1"s},                         // a UID outside of an archive
      {"\x55xy"},                          // longer than the file
      {"\x5F\x13\xff\xff\xff\xff\xff\xff\xff\xff"s},
      {"\x5F\x14" + std::string(16, '\0')},
      {"\x5F"},
      {"\x51\xff"},                      // not UTF-8
      {"\xA1\1"},                        // no such object
      {"\xA1\0"s},                       // itself
      {"\xA1\1", "\xD1\2\0"s, "\x51k"},  // itself, by way of a dictionary
      {"\xD1\1\1", "\x10\1"},            // a key that is no text
  };
  for (const auto& objects : cases) {
    EXPECT_TRUE(PropertyList::valueWithData(fileOf(objects)).isNil()) << objects.front();
  }
}

TEST(PropertyList, RefusesATrailerThatDoesNotFit) {
  const std::string file = fileOf({"\x51x"});
  ASSERT_EQ(PropertyList::valueWithData(file), Value("x"));
  for (const std::size_t place : {0U, 6U}) {
    std::string damaged = file;
    damaged[place] = 'X';
    EXPECT_TRUE(PropertyList::valueWithData(damaged).isNil()) << place;
  }
  for (std::size_t fromEnd = 1; fromEnd <= 26; ++fromEnd) {
    std::string damaged = file;
    damaged[damaged.size() - fromEnd] = '\x7f';
    EXPECT_TRUE(PropertyList::valueWithData(damaged).isNil()) << fromEnd;
  }
}

TEST(PropertyList, IsNotMadeToExpandOrToRecurse) {
  std::vector<std::string> bomb;
  std::vector<std::string> deep;
  for (int i = 0; i < 60; ++i) bomb.push_back(arrayOf(10, static_cast<char>(i + 1)));
  for (std::size_t i = 1; i <= PropertyList::kMaximumDepth + 1; ++i) {
    deep.push_back("\xA1"s + static_cast<char>(i >> 8) + static_cast<char>(i));
  }
  for (auto* objects : {&bomb, &deep}) objects->push_back("\x51x");
  const std::pair<const char*, std::string> cases[] = {
      {"bomb", fileOf(bomb)},
      {"deep", fileOf(deep, 2)},
      {"overlapping texts", fileOfOverlappingTexts(250)},
  };
  EXPECT_EQ(PropertyList::valueWithData(fileOfOverlappingTexts(4)).array().count(), 4U);
  for (const auto& [name, file] : cases) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(PropertyList::valueWithData(file).isNil()) << name;
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2)) << name;
  }
}

TEST(PropertyList, SurvivesTruncationAndDamageOfEveryByte) {
  const std::string whole(
      PropertyList::dataWithValue(Array({"text", "\u00e9", 70000, -1, 1.5, Date{5}, Data("bytes"),
                                         Dictionary({{"key", Array({true, "text"})}})}))
          .view());
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_TRUE(PropertyList::valueWithData(whole.substr(0, length)).isNil()) << length;
  }
  std::mt19937 random(20010101);
  int readable = 0;
  for (int round = 0; round < 20000; ++round) {
    std::string damaged = whole;
    for (int flips = 1 + round % 3; flips > 0; --flips) {
      damaged[random() % damaged.size()] ^= static_cast<char>(1U << random() % 8);
    }
    const Value value = PropertyList::valueWithData(damaged);
    if (value.isNil()) continue;
    // Whatever was read is a property list, which can be written and read again.
    EXPECT_FALSE(throughBytes(value).isNil());
    ++readable;
  }
  EXPECT_GT(readable, 0);
}

}  // namespace
