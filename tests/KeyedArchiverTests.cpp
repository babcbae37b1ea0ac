#include "tests/support/PropertyListValues.h"
#include "tests/support/Test.h"

namespace {

class OpaqueObject : public Object {};

/// An object whose parts are whatever the test gives it.
class Folder : public Object, public Coding {
 public:
  void encodeWithCoder(KeyedArchiver& coder) const override {
    coder.encodeObjectForKey("first", "repeated");
    coder.encodeObjectForKey(content, "$class");
    coder.encodeObjectForKey(nullptr, "nothing");
    coder.encodeObjectForKey("last", "repeated");
  }
  void initWithCoder(KeyedUnarchiver& coder) override {
    content = coder.decodeObjectForKey("$class");
    repeated = coder.decodeObjectForKey("repeated");
    missing = coder.decodeObjectForKey("nothing");
  }

  Value content;
  Value repeated;
  Value missing = "not decoded";
};

class Stranger : public Folder {};

class Thrower : public Folder {
  void encodeWithCoder(KeyedArchiver& coder) const override {
    Folder::encodeWithCoder(coder);
    throw 1;
  }
};

class Leaver : public Folder {
  void encodeWithCoder(KeyedArchiver&) const override { pthread_exit(nullptr); }
};

Data archiveOf(const Value& value) {
  KeyedArchiver archiver;
  archiver.encodeObjectForKey(value, "root");
  return archiver.finishEncoding();
}

Value rootOf(const Data& archive) { return KeyedUnarchiver(archive).decodeObjectForKey("root"); }

Value throughArchive(const Value& value) { return rootOf(archiveOf(value)); }

/// An XML archive; each object is XML, "@3" stands for a reference to object 3. The root is 1.
Data archiveOfObjects(const std::vector<std::string>& objects) {
  std::string xml =
      "<plist><dict><key>$archiver</key><string>NSKeyedArchiver</string><key>$version</key>"
      "<integer>100000</integer><key>$top</key><dict><key>root</key>@1;</dict><key>$objects</key>"
      "<array><string>$null</string>";
  for (const auto& object : objects) xml += object;
  xml += "</array></dict></plist>";
  for (std::size_t at; (at = xml.find('@')) != std::string::npos;) {
    const std::size_t end = xml.find(';', at);
    xml.replace(at, end + 1 - at,
                "<dict><key>CF$UID</key><integer>" + xml.substr(at + 1, end - at - 1) +
                    "</integer></dict>");
  }
  return Data(xml);
}

std::string classNamed(const std::string& names) {
  return "<dict><key>$classes</key><array><string>" + names + "</string></array></dict>";
}

std::string listOf(const std::string& references, const std::string& classReference = "@2;") {
  return "<dict><key>$class</key>" + classReference + "<key>NS.objects</key><array>" + references +
         "</array></dict>";
}

TEST(KeyedArchiver, BringsEverythingBackAsItWas) { expectToComeBack(throughArchive); }

TEST(KeyedArchiver, KeepsValuesUnderSeveralKeys) {
  KeyedArchiver archiver;
  archiver.encodeObjectForKey("a", "first");
  archiver.encodeObjectForKey(nullptr, "nil");
  archiver.encodeObjectForKey("ignored", nullptr);
  archiver.encodeObjectForKey(Array::array(), "$top");
  const Data archive = archiver.finishEncoding();
  EXPECT_TRUE(archiver.finishEncoding().isNull());
  KeyedUnarchiver unarchiver(archive);
  EXPECT_EQ(unarchiver.decodeObjectForKey("first"), Value("a"));
  EXPECT_EQ(unarchiver.decodeObjectForKey("$top"), Value(Array::array()));
  for (const String& key : {String("nil"), String("missing"), String()}) {
    EXPECT_TRUE(unarchiver.decodeObjectForKey(key).isNil());
  }
  EXPECT_TRUE(unarchiver.isValid());
}

TEST(KeyedArchiver, KeepsWhatIsOneObjectOneObject) {
  const Dictionary shared({{"a", 1}});
  const Array read = throughArchive(Array({shared, shared, Dictionary({{"a", 1}})})).array();
  EXPECT_TRUE(read.at(0).dictionary().isSameObject(read.at(1).dictionary()));
  EXPECT_FALSE(read.at(0).dictionary().isSameObject(read.at(2).dictionary()));
  const String text(std::string(1000, 'x'));
  EXPECT_LT(archiveOf(Array({text, String(std::string(1000, 'x')), text})).view().size(), 2000U);
}

TEST(KeyedArchiver, TellsApartWhatLivesInOnePlaceOneAfterTheOther) {
  const auto made = [](int kind, int number) {
    const String text(std::to_string(number));
    const std::string longText = std::string(5000, 'x') + std::to_string(number);
    const Value kinds[] = {text,
                           String(longText),
                           Data(longText),
                           Array({number}),
                           Dictionary({{text, number}}),
                           std::make_shared<Error>("Domain", number, text)};
    return kinds[kind];
  };
  const auto forEach = [&](const auto& action) {
    for (int i = 0; i < 600; ++i) action(made(i / 100, i % 100 / 2), String(std::to_string(i)));
  };
  KeyedArchiver archiver;
  forEach([&](const Value& value, const String& key) { archiver.encodeObjectForKey(value, key); });
  KeyedUnarchiver unarchiver(archiver.finishEncoding());
  forEach([&](const Value& value, const String& key) {
    EXPECT_EQ(unarchiver.decodeObjectForKey(key).description(), value.description());
  });
}

TEST(KeyedArchiver, ArchivesObjectsByTheirParts) {
  const RegisteredClass<Folder> registered{"Folder"};
  const auto inner = std::make_shared<Folder>();
  const auto outer = std::make_shared<Folder>();
  inner->content = 7U;
  outer->content = Array({inner, "text", inner});
  const auto read = std::dynamic_pointer_cast<Folder>(throughArchive(outer).object());
  EXPECT_EQ(read->repeated, Value("last"));
  EXPECT_TRUE(read->missing.isNil());
  const Array content = read->content.array();
  ASSERT_EQ(content.count(), 3U);
  EXPECT_EQ(content.at(0), content.at(2));
  EXPECT_EQ(std::dynamic_pointer_cast<Folder>(content.at(0).object())->content, Value(7U));
  if (!kThreadsMayEnd) return;  // one that ends it is not stopped
  ClassRegistry::registerClass("Leaver",
                               []() -> std::shared_ptr<Object> { pthread_exit(nullptr); });
  const std::string object = "<dict><key>$class</key>@2;</dict>";
  int ends = 0;
  std::thread([&] { ends += archiveOf(std::make_shared<Leaver>()).isNull() ? 1 : 2; }).join();
  std::thread([&] {
    ends += rootOf(archiveOfObjects({object, classNamed("Leaver")})).isNil() ? 1 : 2;
  }).join();
  EXPECT_EQ(ends, 0);
}

TEST(KeyedArchiver, BringsBackTheObjectsOfRequests) {
  const auto request = std::make_shared<MutableURLRequest>(
      URL::URLWithString("http://h/"), URLRequestCachePolicy::kReturnCacheDataElseLoad, 2.5);
  request->setHTTPMethod("POST");
  request->setHTTPBody(Data("a\0b"s));
  request->addValueForHTTPHeaderField("x", "Field");
  const Array read =
      throughArchive(Array({Null::null(), std::make_shared<URL>(*request->url()), request,
                            std::make_shared<Error>("Domain", -7, "It failed."),
                            std::make_shared<HTTPURLResponse>("http://h/", 404, "A: \xe9\r\n")}))
          .array();
  EXPECT_EQ(read.at(0), Value(Null::null()));
  EXPECT_EQ(read.at(1).description(), String("http://h/"));
  const auto copy = std::static_pointer_cast<MutableURLRequest>(read.at(2).object());
  EXPECT_EQ(copy->cachePolicy(), request->cachePolicy());
  EXPECT_EQ(copy->timeoutInterval(), 2.5);
  EXPECT_EQ(copy->HTTPBody(), request->HTTPBody());
  EXPECT_EQ(copy->HTTPMethod(), request->HTTPMethod());
  EXPECT_EQ(copy->allHTTPHeaderFields().get("Field"), Value("x"));
  EXPECT_EQ(read.at(3).description(), String("Domain -7: It failed."));
  const auto response = std::static_pointer_cast<HTTPURLResponse>(read.at(4).object());
  EXPECT_EQ(response->statusCode(), 404);
  EXPECT_EQ(response->valueForHTTPHeaderField("a"), String("\u00e9"));
}

TEST(KeyedArchiver, LeavesOutObjectsOfUnknownClasses) {
  const auto stranger = std::make_shared<Stranger>();
  EXPECT_EQ(throughArchive(Array({1, stranger, 2})), Value(Array({1, Null::null(), 2})));
  ClassRegistry::registerClass("Stranger");
  EXPECT_EQ(throughArchive(Array({1, stranger, 2})), Value(Array({1, Null::null(), 2})));
  EXPECT_EQ(throughArchive(Dictionary({{"a", stranger}})), Value(Dictionary::dictionary()));
}

TEST(KeyedArchiver, LeavesOutWhatCannotBeArchivedAndSaysSoOnce) {
  Array cyclic = Array::array();
  cyclic.append(1);
  cyclic.append(cyclic);
  const Value opaque = std::make_shared<OpaqueObject>();
  const Value null = Null::null();
  const auto selfish = std::make_shared<Stranger>();
  selfish->content = Array({selfish});
  constexpr std::size_t kDeepest = PropertyList::kMaximumDepth;
  const std::pair<Value, Value> cases[] = {
      {Array({1, opaque, opaque, "x"}), Array({1, null, null, "x"})},
      {Array({std::make_shared<Thrower>(), 2}), Array({null, 2})},
      {Dictionary({{"a", opaque}, {"b", 2}}), Dictionary({{"b", 2}})},
      {Array({cyclic, cyclic}), Array({Array({1, null}), Array({1, null})})},
      {opaque, nullptr},
      {Array({selfish}), Array({null})},
      {nested(1, kDeepest + 1), nested(null, kDeepest)},
      {nested(Array::array(), kDeepest), nested(null, kDeepest)}};
  for (const auto& [value, expected] : cases) {
    Value read;
    const std::string lines = complaintsOf([&, &it = value] { read = throughArchive(it); });
    EXPECT_EQ(read.description(), expected.description());
    EXPECT_EQ(depthOf(read), depthOf(expected));
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 1) << lines;
  }
  cyclic.clear();
  selfish->content = nullptr;
}

TEST(KeyedArchiver, ReadsBackAllThatItArchives) {
  // Met first where it is shallow, this is too deep where it is met next.
  const Value chain = nested(1, PropertyList::kMaximumDepth - 28);
  const auto archiveChain = [&] {
    EXPECT_EQ(throughArchive(Array({chain, nested(chain, 100)})).array().count(), 2U);
  };
  EXPECT_NE(complaintsOf(archiveChain), "");
  // One table in each of many messages.
  std::vector<Dictionary::Entry> entries;
  entries.reserve(1000);
  for (int i = 0; i < 1000; ++i) entries.emplace_back(String(std::to_string(i)), i);
  const Dictionary table(std::move(entries));
  std::vector<Value> messages;
  messages.reserve(5000);
  for (int i = 0; i < 5000; ++i) messages.emplace_back(Dictionary({{"ID", i}, {"table", table}}));
  EXPECT_EQ(throughArchive(Array(std::exchange(messages, {}))).array().count(), 5000U);
  // Long lists of keys, each shared by two messages between which there is another list.
  std::vector<Dictionary::Entry> fields;
  fields.reserve(500);
  for (int i = 0; i < 500; ++i) fields.emplace_back(String(std::to_string(i)), "x");
  const Dictionary message(std::move(fields));
  for (int i = 0; i < 1000; ++i) {
    messages.emplace_back(message.copy());
    if (i % 2 == 0) messages.back().dictionary().set("0", Dictionary({{"ID", i}}));
  }
  const Array all(std::exchange(messages, {}));
  EXPECT_TRUE(throughArchive(all) == Value(all));
  // Of what no reader could walk through, as much as one can.
  Value bomb = Array({"x"});
  for (int i = 0; i < 60; ++i) bomb = Array({bomb, bomb});
  const auto archiveBomb = [&] {
    EXPECT_EQ(throughArchive(Array({1, bomb, 2})).array().at(2), Value(2));
  };
  EXPECT_NE(complaintsOf(archiveBomb), "");
  // A long text that many share is looked at once: converting it each time would take minutes.
  std::string accented;
  for (int i = 0; i < 10000; ++i) accented += "\u00e9";
  std::vector<String> texts(200, String());
  for (String& text : texts) text = String(accented += "x");
  for (int i = 0; i < 500; ++i)
    messages.emplace_back(Array(std::vector<Value>(texts.begin(), texts.end())));
  EXPECT_EQ(throughArchive(Array(std::move(messages))).array().count(), 500U);
}

TEST(KeyedArchiver, IsReadByOtherReaders) {
  const TemporaryDirectory directory;
  const auto file = directory.path() / "archive";
  const Value hits = Array({Dictionary({{"url", "http://a/?\u00e9"}, {"ID", 7U}}),
                            Dictionary({{"when", Date{978307201.5}}, {"POSTData", "$null"}}),
                            std::make_shared<Error>("D", 404, "d"), Null::null()});
  putFile(file, archiveOf(hits).view());
  EXPECT_EQ(outputOf(R"(python3 -c '
import plistlib, sys
archive = plistlib.load(open(sys.argv[1], "rb"))
objects = archive["$objects"]
def decode(uid):
    value = objects[uid.data]
    if not isinstance(value, dict): return value
    name = "/".join(objects[value["$class"].data]["$classes"])
    if "NS.time" in value: return name, value["NS.time"]
    if "NS.string" in value: return name, value["NS.string"]
    if "NSCode" in value: return name, decode(value["NSDomain"]), value["NSCode"]
    if len(value) == 1: return name
    items = [decode(item) for item in value["NS.objects"]]
    return name, dict(zip(map(decode, value["NS.keys"]), items)) if "NS.keys" in value else items
print(archive["$archiver"], archive["$version"], list(archive["$top"]), objects[0])
print(ascii(decode(archive["$top"]["root"])))
' )" + file.string()),
            "NSKeyedArchiver 100000 ['root'] $null\n"
            "('NSMutableArray/NSArray/NSObject', ["
            "('NSMutableDictionary/NSDictionary/NSObject', {'ID': 7, 'url': 'http://a/?\\xe9'}), "
            "('NSMutableDictionary/NSDictionary/NSObject', {'POSTData': "
            "('NSString/NSObject', '$null'), 'when': ('NSDate/NSObject', 1.5)}), "
            "('NSError/NSObject', 'D', 404), 'NSNull/NSObject'])\n");
}

TEST(KeyedArchiver, ReadsWhatOtherWritersWrite) {
  const std::string key = "<key>$class</key>@2;";
  const std::tuple<const char*, std::string, Value> cases[] = {
      {"NSMutableString", key + "<key>NS.string</key><string>in place</string>", "in place"},
      {"NSString", key + "<key>NS.string</key>@3;", "by reference"},
      {"NSString", key + "<key>NS.bytes</key><data>dGV4dA==</data>", "text"},
      {"NSMutableData", key + "<key>NS.data</key><data>dGV4dA==</data>", Data("text")},
      {"NSData", key + "<key>NS.bytes</key><data>dGV4dA==</data>", Data("text")},
      {"NSDate", key + "<key>NS.time</key><real>1.5</real>", Date{978307201.5}},
      {"NSDate", key + "<key>NS.time</key><integer>1</integer>", Date{978307201}},
      {"NSArray", key + "<key>NS.objects</key><array>@3;@0;@4;</array>",
       Array({"by reference", Null::null(), 4})},
      {"NSDictionary",
       key + "<key>NS.keys</key><array>@3;</array><key>NS.objects</key><array>@4;</array>",
       Dictionary({{"by reference", 4}})},
      {"Special</string><string>NSMutableArray", key + "<key>NS.objects</key><array/>",
       Array::array()},
      {"NSNull", key, Null::null()},
      {"NSURL", key + "<key>NS.base</key>@0;<key>NS.relative</key>@3;", nullptr},
      {"NSURL", key + "<key>NS.base</key>@5;<key>NS.relative</key><string>c?d</string>",
       "http://h/a/c?d"},
      {"NSURL", key + "<key>NS.base</key>@5;<key>NS.relative</key><string>?d</string>",
       "http://h/a/b?d"},
      {"NSError",
       key + "<key>NSDomain</key>@3;<key>NSCode</key><integer>-5</integer><key>NSUserInfo</key>@0;",
       "by reference -5: (null)"}};
  for (const auto& [name, object, expected] : cases) {
    KeyedUnarchiver unarchiver(
        archiveOfObjects({"<dict>" + object + "</dict>", classNamed(name),
                          "<string>by reference</string>", "<integer>4</integer>",
                          "<dict><key>$class</key>@6;<key>NS.relative</key><string>http://h/a/b?x"
                          "</string></dict>",
                          classNamed("NSURL")}));
    const Value read = unarchiver.decodeObjectForKey("root");
    const bool isOther = read.object() && read != Value(Null::null());
    EXPECT_EQ(isOther ? Value(read.description()) : read, expected) << object;
    EXPECT_TRUE(unarchiver.isValid());
  }
}

TEST(KeyedUnarchiver, RefusesWhatIsNoArchiveAndHostileOnes) {
  const std::string array = classNamed("NSArray");
  std::vector<std::string> bomb{listOf("@3;"), array};
  std::vector<std::string> deep = bomb;
  for (int i = 4; i < 60; ++i) {
    const std::string next = "@" + std::to_string(i) + ";";
    bomb.push_back(listOf(next + next));
  }
  for (std::size_t i = 4; i < PropertyList::kMaximumDepth + 6; ++i) {
    deep.push_back(listOf("@" + std::to_string(i) + ";"));
  }
  for (auto* objects : {&bomb, &deep}) objects->push_back("<integer>1</integer>");
  const Dictionary other(
      {{"$archiver", "Other"}, {"$top", Dictionary::dictionary()}, {"$objects", Array({"$null"})}});
  const std::pair<const char*, Data> cases[] = {
      {"null", nullptr},
      {"no list", Data("not a list")},
      {"no dictionary", PropertyList::dataWithValue(Array({1}))},
      {"another format", PropertyList::dataWithValue(other)},
      {"itself", archiveOfObjects({listOf("@1;"), array})},
      {"itself, from afar", archiveOfObjects({listOf("@3;"), array, listOf("@1;")})},
      {"no such object", archiveOfObjects({listOf("@9;"), array})},
      {"no reference", archiveOfObjects({listOf("<integer>1</integer>"), array})},
      {"a bare list", archiveOfObjects({"<array/>"})},
      {"unequal keys and values",
       archiveOfObjects({"<dict><key>$class</key>@2;<key>NS.keys</key><array>@3;</array><key>"
                         "NS.objects</key><array/></dict>",
                         classNamed("NSDictionary"), "<string>key</string>"})},
      {"bomb", archiveOfObjects(bomb)},
      {"deep", archiveOfObjects(deep)}};
  for (const auto& [name, archive] : cases) {
    KeyedUnarchiver unarchiver(archive);
    EXPECT_TRUE(unarchiver.decodeObjectForKey("root").isNil()) << name;
    EXPECT_FALSE(unarchiver.isValid()) << name;
  }
}

}  // namespace
