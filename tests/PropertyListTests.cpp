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

TEST(PropertyList, BringsEverythingBackAsItWas) { expectToComeBack(throughBytes); }

TEST(PropertyList, KeepsManyObjectsApart) {
  std::vector<Value> values;
  values.reserve(25000);
  for (int i = 0; i < 25000; ++i) values.emplace_back(Array({i, String(std::to_string(i))}));
  const Array array(std::move(values));
  EXPECT_EQ(throughBytes(array), Value(array));
}

TEST(PropertyList, RefusesWhatIsNone) {
  Array cyclic = Array::array();
  cyclic.append(Dictionary({{"itself", cyclic}}));
  for (const Value& value :
       {Value(), Value(Array({std::make_shared<OpaqueObject>()})), Value(cyclic)}) {
    EXPECT_TRUE(PropertyList::dataWithValue(value).isNull()) << value.description().view();
    EXPECT_TRUE(PropertyList::copy(value).isNil()) << value.description().view();
  }
  cyclic.clear();
  Value sharedTooOften = 1;
  for (int i = 0; i < 3; ++i) sharedTooOften = Array(std::vector<Value>(1000, sharedTooOften));
  EXPECT_TRUE(PropertyList::copy(sharedTooOften).isNil());
}

TEST(PropertyList, HoldsContainersToOneDepthHoweverItIsMade) {
  constexpr std::size_t kDeepest = PropertyList::kMaximumDepth;
  for (const std::size_t depth : {kDeepest, kDeepest + 1}) {
    std::string opened, closed;
    std::vector<std::string> objects;
    for (std::size_t i = 0; i < depth; ++i) {
      opened += "<array>";
      closed += "</array>";
      objects.push_back("\xA1"s + static_cast<char>((i + 1) >> 8) + static_cast<char>(i + 1));
    }
    objects.push_back("\x09");
    const Value value = nested(true, depth);
    const std::string xml = "<plist>" + opened + "<true/>" + closed + "</plist>";
    const std::size_t expected = depth == kDeepest ? kDeepest : 0;
    EXPECT_EQ(depthOf(throughBytes(value)), expected);
    EXPECT_EQ(depthOf(PropertyList::copy(value)), expected);
    EXPECT_EQ(depthOf(PropertyList::valueWithData(fileOf(objects, 2))), expected);
    EXPECT_EQ(depthOf(PropertyList::valueWithData(xml)), expected);
    EXPECT_EQ(PropertyList::dataWithValue(value).isNull(), expected == 0);
    objects[0] = "\xA2\0\x64\0\1"s;  // what lies deep is made first, from the root
    EXPECT_EQ(PropertyList::valueWithData(fileOf(objects, 2)).isNil(), expected == 0);
  }
}

TEST(PropertyList, CopiesContainersDeeply) {
  const Dictionary inner({{"a", 1}});
  const Array original({inner, inner});
  const Array copy = PropertyList::copy(original).array();
  const Value whole = Array({Dictionary({{"a", 1}}), Dictionary({{"a", 1}})});
  copy.at(0).dictionary().set("a", 2);
  EXPECT_EQ(Value(original), whole);
  copy.at(0).dictionary().set("a", 1);
  Dictionary(inner).clear();
  EXPECT_EQ(Value(copy), whole);
}

TEST(PropertyList, IsReadAndWrittenByOthers) {
  const TemporaryDirectory directory;
  const std::string path = directory.path() / "file";
  const Value written =
      Dictionary({{"b", Array({true, Array::array(), Dictionary::dictionary()})},
                  {"d", Data("\0\x01"s)},
                  {"i", Array({-1, 255, 65536U, INT64_MIN, UINT64_MAX, std::uint64_t{5}})},
                  {"r", Array({1.0, 0.1})},
                  {"s", Array({"", "plain", "\u00e9\U0001F600", "<&>\n  "})},
                  {"t", Date{1000000000}}});
  putFile(path, PropertyList::dataWithValue(written).view());
  EXPECT_EQ(outputOf(R"(python3 -c '
import plistlib, sys
value = plistlib.load(open(sys.argv[1], "rb"))
for form in "XML", "BINARY":
    plistlib.dump(value, open(sys.argv[1] + form, "wb"), fmt=plistlib.PlistFormat["FMT_" + form])
print(ascii(value))' )" +
                     path),
            "{'b': [True, [], {}], 'd': b'\\x00\\x01', 'i': [-1, 255, 65536, -9223372036854775808, "
            "18446744073709551615, 5], 'r': [1.0, 0.1], 's': ['', 'plain', '\\xe9\\U0001f600', "
            "'<&>\\n  '], 't': datetime.datetime(2001, 9, 9, 1, 46, 40)}\n");
  for (const char* form : {"XML", "BINARY"}) {
    EXPECT_EQ(PropertyList::valueWithData(contentsOf(path + form)), written) << form;
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
       Array({true, Dictionary({{"k", false}})})}};
  for (const auto& [xml, expected] : cases) {
    EXPECT_EQ(PropertyList::valueWithData("<plist>"s + xml + "</plist>"), expected) << xml;
  }
}

TEST(PropertyList, RefusesMalformedXML) {
  for (const std::string& xml : words(R"(
           <true/><true/> text<true/> <plist><true/></plist> <string><dict/></string>
           <dict><true/></dict> <dict><key>a</key></dict>
           <dict><key>a</key><key>b</key><true/></dict> <array><key>a</key></array> <key>a</key>
           <unknown/> <true>text</true> <integer></integer> <integer>--1</integer>
           <integer>18446744073709551616</integer> <integer>-9223372036854775809</integer>
           <real>1.0x</real> <data>A</data> <data>QQ=</data> <data>QQ=A</data>
           <data>QQ==QQ==</data> <data>Q===</data> <data>QUJD-</data> <data>QUJ_</data>
           <date>2001-02-30T00:00:00Z</date> <date>2001-02-03</date>
           <date>-001-02-03T00:00:00Z</date> <date>2001-02-03T00:00:61Z</date>
           <array><string>a<string>b</string></string></array>)")) {
    EXPECT_TRUE(PropertyList::valueWithData("<plist>" + xml + "</plist>").isNil()) << xml;
  }
  for (const std::string xml :
       {"", "<plist></plist>", "<string>no list</string>", "<dict/>",
        "<!DOCTYPE plist [<!ENTITY a \"x\">]><plist><string>&a;</string></plist>",
        "<!DOCTYPE plist SYSTEM \"file:///etc/passwd\"><plist><string>&a;</string></plist>"}) {
    EXPECT_TRUE(PropertyList::valueWithData(xml).isNil()) << xml;
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

TEST(PropertyList, TakesNoReferenceOfAnArchiveForAnotherOne) {
  for (const char high : {'\0', '\1'}) {
    const std::string uid = "\x87\0\0\0"s + high + "\0\0\0\1"s;
    const Data archive(fileOf({"\xD3\1\2\3\4\5\6", "\x59$archiver", "\x54$top", "\x58$objects",
                               "\x5F\x10\x0FNSKeyedArchiver", "\xD1\7\x8", "\xA2\x9\xA", "\x54root",
                               uid, "\x55$null", "\x51x"}));
    EXPECT_EQ(KeyedUnarchiver(archive).decodeObjectForKey("root"), high ? Value() : Value("x"));
  }
}

TEST(PropertyList, RefusesAMagicOrATrailerThatDoesNotFit) {
  const std::string file = fileOf({"\x51x"});
  ASSERT_EQ(PropertyList::valueWithData(file), Value("x"));
  for (std::size_t place = 0; place < file.size(); ++place) {
    if (place >= 7 && place < file.size() - 26) continue;  // the text, and what nobody reads
    std::string damaged = file;
    damaged[place] = '\x7f';
    EXPECT_TRUE(PropertyList::valueWithData(damaged).isNil()) << place;
  }
}

TEST(PropertyList, IsNotMadeToExpand) {
  std::vector<std::string> bomb;
  for (int i = 0; i < 60; ++i) bomb.push_back(arrayOf(10, static_cast<char>(i + 1)));
  bomb.push_back("\x51x");
  EXPECT_EQ(PropertyList::valueWithData(fileOfOverlappingTexts(4)).array().count(), 4U);
  for (const std::string& file : {fileOf(bomb), fileOfOverlappingTexts(250)}) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(PropertyList::valueWithData(file).isNil());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
  }
}

}  // namespace
