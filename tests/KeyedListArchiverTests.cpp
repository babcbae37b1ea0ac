#include "tests/support/Test.h"

namespace {

/// A list that is archived after each change, as the queue of hits is in the background.
class KeyedListArchiverTest : public testing::Test {
 protected:
  Dictionary message(const std::string& content) {
    return {{"url", String("http://example.org/" + content)}, {"type", kType}, {"id", number_++}};
  }

  /// What of the archiver's list is in this one still stays, one behind the other; the rest is new.
  bool update() {
    std::size_t first = 0;
    std::size_t count = 0;
    auto at = messages_.begin();
    const auto snapshot = [&at] { return at->dictionary().snapshot(); };
    while (at != messages_.end() && first < archiver_.count() &&
           archiver_.message(first) != snapshot()) {
      ++first;
    }
    for (; at != messages_.end() && first + count < archiver_.count(); ++at, ++count) {
      if (archiver_.message(first + count) != snapshot()) break;
    }
    bool isTaken = archiver_.keep(first, count);
    for (; isTaken && at != messages_.end(); ++at) isTaken = archiver_.add(snapshot());
    EXPECT_EQ(archiver_.count(), isTaken ? messages_.size() : 0);
    return isTaken;
  }

  std::string archive() {
    std::string bytes;
    if (!update()) return bytes;
    for (const std::string_view piece : archiver_.archive()) bytes += piece;
    return bytes;
  }

  void expectList(const char* after) { expectListIn(archive(), after); }
  void expectListIn(const std::string& bytes, const char* after) const {
    KeyedUnarchiver unarchiver{Data(bytes)};
    EXPECT_EQ(unarchiver.decodeObjectForKey("list"), Value(Array(messages_))) << after;
    EXPECT_TRUE(unarchiver.isValid()) << after;
    EXPECT_EQ(bytes.substr(bytes.size() - 32, 6), std::string(6, '\0')) << after;  // not used
  }

  const String kType{"a type of all messages"};
  KeyedListArchiver archiver_{"list"};
  std::vector<Value> messages_;
  int number_ = 0;
};

TEST_F(KeyedListArchiverTest, HoldsTheListAfterWhateverChange) {
  std::mt19937 random(4711);
  expectList("nothing");
  for (int i = 0; i < 3000; ++i) {
    const auto place = messages_.empty() ? 0 : random() % messages_.size();
    const auto at = messages_.begin() + static_cast<std::ptrdiff_t>(place);
    switch (random() % 16) {
      case 0:
        messages_.erase(messages_.begin(), at);
        break;
      case 1:
        if (!messages_.empty()) messages_.erase(at);
        break;
      case 2:
        if (!messages_.empty()) at->dictionary().set("more", Value(i % 2 == 0));
        break;
      case 3:
        messages_.push_back(Dictionary{{"body", Data("\xff\0"s)}, {"\u00e9", 1e300}, {"$top", -1}});
        break;
      default:
        messages_.push_back(message(std::to_string(i) + "\u20ac"));
    }
    if (i % 10 == 0) expectList(std::to_string(i).c_str());
  }
  messages_.clear();
  expectList("the end");
}

TEST_F(KeyedListArchiverTest, WritesNothingOfWhatHasLeft) {
  constexpr std::size_t kCount = 2000;
  for (std::size_t i = 0; i < kCount; ++i) messages_.push_back(message(std::to_string(i) + "end"));
  const std::size_t full = archive().size();
  for (std::size_t left = 100; left < kCount; left += 100) {
    messages_.erase(messages_.begin(), messages_.begin() + 100);
    const std::string bytes = archive();
    EXPECT_EQ(bytes.find("/" + std::to_string(left - 1) + "end"), bytes.npos);
    EXPECT_NE(bytes.find("/" + std::to_string(left) + "end"), bytes.npos);
    EXPECT_LT(bytes.size(), 2 * full / kCount * (kCount - left) + 10'000);
  }
}

TEST_F(KeyedListArchiverTest, GivesAwayALongListWhileItGrows) {
  std::string bytes;
  int parts = 0;
  int lastPart = INT_MAX;
  const auto append = [&](std::span<const std::string_view> pieces) {
    for (const std::string_view piece : pieces) bytes += piece;
    return ++parts < lastPart;
  };
  KeyedListArchiver archiver("list", append);
  for (int i = 0; i < 5000; ++i) {
    messages_.push_back(message(std::to_string(i) + std::string(1000, 'x')));
    ASSERT_TRUE(archiver.add(messages_.back().dictionary().snapshot()));
  }
  EXPECT_EQ(messages_.front().dictionary().snapshot().use_count(), 2);  // not kept any more
  append(archiver.archive());
  expectListIn(bytes, "parts");
  EXPECT_THAT(parts, AllOf(testing::Gt(10), testing::Lt(100)));
  ASSERT_TRUE(archiver.keep(0, 0));
  lastPart = parts + 2;
  for (const Value& message : messages_) {
    if (!archiver.add(message.dictionary().snapshot())) break;
  }
  EXPECT_EQ(parts, lastPart);
  EXPECT_EQ(archiver.count(), 0U);
}

TEST_F(KeyedListArchiverTest, LeavesToTheOtherArchiverWhatIsNotPlain) {
  for (const Dictionary& other :
       {Dictionary{{"key", Date{1.0}}}, Dictionary{{"key", Array::array()}},
        Dictionary{{"key", "$null"}}, Dictionary{{"$null", 1}}}) {
    messages_ = {message("plain"), other};
    EXPECT_EQ(archive(), "");
    messages_.pop_back();
    expectList("a refusal");
  }
}

TEST_F(KeyedListArchiverTest, SharesWhatMessagesHaveInCommonAndOwnsTheRest) {
  const String body(std::string(10'000, 'x'));
  for (int i = 0; i < 100; ++i) messages_.push_back(Dictionary{{"body", body}, {"id", i}});
  EXPECT_LT(archive().size(), 4 * body.view().size());
  expectList("a text in all messages");
  messages_.clear();
  for (int i = 0; i < 300; ++i)
    messages_.push_back(Dictionary{{String("k" + std::to_string(i)), i}});
  EXPECT_EQ(archive(), "");  // too many keys for one table
}

TEST_F(KeyedListArchiverTest, IsReadByOtherReaders) {
  for (int i = 0; i < 40; ++i) messages_.push_back(message(std::to_string(i)));
  archive();
  messages_.erase(messages_.begin(), messages_.begin() + 39);
  const TemporaryDirectory directory;
  putFile(directory.path() / "list", archive());
  putFile(directory.path() / "read.py", R"(
import plistlib, sys
archive = plistlib.load(open(sys.argv[1], "rb"))
get = lambda uid: archive["$objects"][uid.data]
list = get(archive["$top"]["list"])
print([{get(k): get(v) for k, v in zip(get(message)["NS.keys"], get(message)["NS.objects"])}
       for message in list["NS.objects"]], get(list["$class"])["$classname"])
)");
  EXPECT_EQ(outputOf("cd " + directory.path().string() + " && python3 read.py list"),
            "[{'id': 39, 'type': 'a type of all messages', 'url': 'http://example.org/39'}] "
            "NSMutableArray\n");
}

}  // namespace
