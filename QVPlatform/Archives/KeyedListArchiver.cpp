#include <QVPlatform/Archives/KeyedListArchiver.h>

#include <QVPlatform/Archives/Internal/BinaryPropertyListBytes.h>
#include <QVPlatform/Archives/Internal/KeyedArchiveFormat.h>
#include <QVPlatform/Archives/Internal/PlainObject.h>
#include <QVPlatform/Archives/PropertyList.h>

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <utility>

// An archive is made of three pieces. The first has the messages, one after the other, each with
// the objects that are its own. The second has what they share: their keys, and the texts that a
// message has in common with the one before it. The third has what must be made anew each time: the
// list, and the tables that tell where the objects lie. So what comes first in the file is known
// first, and a long list need not be kept until its end is known.
//
// The bytes of a message never change while it is in the list. They refer to objects and UIDs by
// number, so a number is never given to something else: those of the second piece come from a room
// that is set aside for them, and those of messages that have left stand for "$null" from then on.
// Once these are in the majority all is encoded anew, which is seldom enough to cost nothing.

namespace QVPlatform {
namespace {

namespace Format = BinaryPropertyListFormat;
namespace Archive = KeyedArchiveFormat;
using namespace BinaryPropertyListBytes;

using Number = std::uint32_t;  // of an object in the file, or of a UID
using Numbers = std::span<const Number>;

constexpr std::size_t kWidth = sizeof(Number);  // of references, UIDs and offsets in the file
/// How many objects the messages may share, and how many UIDs.
constexpr Number kSharedRoom = 512;
/// From how many on it is worth while to clear away what is not used any more.
constexpr std::size_t kManyNumbers = 1000;
constexpr std::size_t kManyBytes = 1U << 20;
/// From how many on they go to the sink: so few that they stay in the processor's caches.
constexpr std::size_t kBytesOfAPart = 1U << 18;

/// Objects that follow one another in the file, and what their UIDs stand for.
struct Piece {
  Number nextObject() const { return firstObject + static_cast<Number>(offsets.size()); }
  Number nextUID() const { return firstUID + static_cast<Number>(targets.size()); }
  std::size_t end() const { return given + bytes.size(); }

  /// Room for so many bytes more, which the caller fills.
  char* grow(std::size_t count) {
    bytes.resize(bytes.size() + count);
    return bytes.data() + bytes.size() - count;
  }
  Number addObject() {
    offsets.push_back(static_cast<Number>(end()));
    return nextObject() - 1;
  }
  Number add(const PlainObject& object) {
    const Number number = addObject();
    bytes.append(object.head()).append(object.content());
    return number;
  }
  /// Of the numbers in all the parts, of which each entry takes so many.
  Number addContainer(std::uint8_t type, std::size_t ofAnEntry,
                      std::initializer_list<Numbers> parts) {
    std::size_t size = 0;
    for (const Numbers part : parts) size += part.size();
    const std::size_t count = size / ofAnEntry;
    const Number number = addObject();
    char* to = putHead(grow(headSize(count) + size * kWidth), type, count);
    for (const Numbers part : parts) to = put(to, part, kWidth);
    return number;
  }
  Number addArray(std::initializer_list<Numbers> parts) {
    return addContainer(Format::kArray, 1, parts);
  }
  /// All keys, then all values.
  Number addDictionary(std::initializer_list<Number> references) {
    return addContainer(Format::kDictionary, 2, {references});
  }
  /// The UID of an object.
  Number addUID(Number object) {
    addObject();
    put(putHead(grow(1 + kWidth), Format::kUID, kWidth - 1), nextUID());
    targets.push_back(object);
    return nextObject() - 1;
  }

  Number firstObject = 0;
  Number firstUID = 0;
  std::string bytes{};
  std::vector<Number> offsets{};  // of objects, in the piece
  std::vector<Number> targets{};  // of UIDs: objects
  std::size_t given = 0;          // bytes that are not kept any more, before the others
};

/// How far the messages reach into their piece.
struct Extent {
  std::size_t bytes = 0;
  std::size_t objects = 0;
  std::size_t targets = 0;
};

Extent endOf(const Piece& piece) {
  return {piece.end(), piece.offsets.size(), piece.targets.size()};
}

struct Message {
  Dictionary::Snapshot entries;  // kept, so that no other one gets its address
  Extent end;
};

}  // namespace

struct KeyedListArchiver::State {
  State(const String& key, const Sink& sink)
      : sink_(sink), key_(text(Archive::escapedKey(key.view()))) {}

  /// Drops the messages before and behind these.
  void keep(std::size_t first, std::size_t count) {
    dropFrom(dropped_ + first + count);
    dropUntil(dropped_ + first);
  }

  /// Whether most of what there is stands for messages that have left.
  bool isMostlyDead() const {
    const bool isMuch = dead_.objects >= kManyNumbers || dead_.bytes >= kManyBytes;
    const Extent all = endOf(own_);
    return isMuch && (dead_.objects >= all.objects / 2 || dead_.bytes >= all.bytes / 2);
  }

  std::span<const Message> messages() const { return std::span(messages_).subspan(dropped_); }

  /// False when the message must be left to KeyedArchiver, or the sink fails.
  bool add(Dictionary::Snapshot entries) {
    const std::size_t known = keys_.size();
    keys_.resize(entries->size());
    values_.resize(entries->size());
    for (std::size_t i = 0; i < entries->size(); ++i) {
      const auto& [key, value] = (*entries)[i];
      const Value* const before = i < known ? valueBefore(i, key) : nullptr;
      const auto keyUID = before ? keys_[i] : sharedUID(key);
      const auto valueUID = keyUID ? uidOf(value, before, values_[i]) : std::nullopt;
      if (!valueUID) return false;
      keys_[i] = *keyUID;
      values_[i] = *valueUID;
    }
    const auto keyList = listOfKeys();
    if (!keyList || !isWithinLimits()) return false;
    const Number dictionary = own_.addDictionary(
        {class_, keysKey_, elementsKey_, dictionaryClass_, *keyList, own_.addArray({values_})});
    elements_.push_back(own_.addUID(dictionary));
    messages_.push_back({std::move(entries), endOf(own_)});
    return !sink_ || giveAway();
  }

  /// Whether the archive can be written; then it is in the pieces.
  bool finish() {
    tail_.firstObject = own_.nextObject();
    tail_.firstUID = own_.nextUID();
    tail_.bytes.clear();
    tail_.offsets.clear();
    const Number root = addRoot();
    const std::size_t table = sharedPlace() + shared_.bytes.size() + tail_.bytes.size();
    const std::size_t size = table + tail_.nextObject() * kWidth + Format::kTrailerSize;
    if (size > PropertyList::kMaximumSize) return false;
    addTable(root, table);
    return true;
  }

  std::vector<std::string_view> pieces() const {
    auto all = beginning();
    all.insert(all.end(), {shared_.bytes, tail_.bytes});
    return all;
  }

 private:
  /// The messages, and what stands before them, as far as the sink did not get it.
  std::vector<std::string_view> beginning() const {
    const auto messages = std::string_view(own_.bytes).substr(dead_.bytes);
    if (own_.given > 0) return {messages};
    return {Format::kMagic, messages};
  }

  /// Keeps no message but the last, which the next one is compared with.
  bool giveAway() {
    if (messages_.size() > 1) messages_[messages_.size() - 2].entries.reset();
    if (own_.bytes.size() < kBytesOfAPart) return true;
    if (!sink_(beginning())) return false;
    own_.given += own_.bytes.size();
    own_.bytes.clear();
    return true;
  }

  /// Where the second piece begins in the file.
  std::size_t sharedPlace() const { return Format::kMagic.size() + own_.end() - dead_.bytes; }

  Number text(std::string_view text) { return shared_.add(PlainObject(String(text))); }

  /// The UID of the class; "NSObject" ends every chain.
  Number addClass(std::string_view name, std::string_view base) {
    const Number names[] = {text(name), text(base), text("NSObject")};
    const Number chain = shared_.addArray({names});
    return shared_.addUID(shared_.addDictionary(
        {text(Archive::kClassNameKey), text(Archive::kClassesKey), names[0], chain}));
  }

  void dropUntil(std::size_t end) {
    if (end == dropped_) return;
    for (; dropped_ < end; ++dropped_) messages_[dropped_].entries.reset();
    dead_ = messages_[end - 1].end;
    std::fill_n(own_.targets.begin(), dead_.targets, 0);
  }

  /// The numbers of these may be given again: nothing refers to them any more.
  void dropFrom(std::size_t begin) {
    if (begin == messages_.size()) return;
    messages_.resize(begin);
    elements_.resize(begin);
    keys_.clear();
    const Extent rest = begin == 0 ? Extent() : messages_.back().end;
    own_.bytes.resize(rest.bytes);
    own_.offsets.resize(rest.objects);
    own_.targets.resize(rest.targets);
  }

  bool hasSharedRoom() const { return shared_.offsets.size() + 2 <= kSharedRoom; }

  std::optional<Number> sharedUID(const String& text) {
    const auto known = sharedTexts_.find(text);
    if (known != sharedTexts_.end()) return known->second;
    if (!hasSharedRoom() || text.view() == Archive::kNull) return std::nullopt;
    const Number uid = shared_.addUID(shared_.add(PlainObject(text)));
    sharedTexts_.emplace(text, uid);
    return uid;
  }

  /// The value that the message before has under the same key, if that is its entry of the same
  /// number, as it mostly is; then keys_ and values_ have the UIDs of both still.
  const Value* valueBefore(std::size_t number, const String& key) const {
    if (messages().empty()) return nullptr;
    const auto& entries = *messages_.back().entries;
    const bool isThere = number < entries.size() && entries[number].first == key;
    return isThere ? &entries[number].second : nullptr;
  }

  /// The UID of a plain value; nothing for any other one. A text that the message before has, too,
  /// is shared from then on.
  std::optional<Number> uidOf(const Value& value, const Value* before, Number uidBefore) {
    return std::visit(
        [&]<class T>(const T& held) -> std::optional<Number> {
          if constexpr (std::is_same_v<T, String>) {
            const auto* text = before ? std::get_if<String>(&before->storage()) : nullptr;
            if (text && text->isSameObject(held)) {
              if (uidBefore < kSharedRoom) return uidBefore;
              if (const auto uid = sharedUID(held)) return uid;
            }
            if (held.view() == Archive::kNull) return std::nullopt;  // would be read as nil
          }
          if constexpr (std::is_same_v<T, String> || std::is_same_v<T, Data> ||
                        std::is_arithmetic_v<T>) {
            return own_.addUID(own_.add(PlainObject(held)));
          } else {
            return std::nullopt;
          }
        },
        value.storage());
  }

  /// The list of keys_, which messages with the same keys share.
  std::optional<Number> listOfKeys() {
    for (const auto& [known, list] : keyLists_) {
      if (known == keys_) return list;
    }
    if (!hasSharedRoom()) return std::nullopt;
    keyLists_.emplace_back(keys_, shared_.addArray({keys_}));
    return keyLists_.back().second;
  }

  bool isWithinLimits() const {
    return own_.end() < PropertyList::kMaximumSize && own_.offsets.size() < UINT32_MAX / 4;
  }

  /// The list, and around it what makes it an archive; answers the outermost dictionary.
  Number addRoot() {
    const Number elements = tail_.addArray({Numbers(elements_).subspan(dropped_)});
    const Number list = tail_.addDictionary({class_, elementsKey_, arrayClass_, elements});
    tail_.targets.clear();
    const Number listUID = tail_.addUID(list);
    const Number top = tail_.addDictionary({key_, listUID});
    const std::vector<Number> rest(kSharedRoom - shared_.targets.size());
    const Number objects = tail_.addArray({shared_.targets, rest, own_.targets, Numbers(&list, 1)});
    return tail_.addDictionary(
        {archiverKey_, versionKey_, topKey_, objectsKey_, archiver_, version_, top, objects});
  }

  /// Where each object lies, and the trailer; the table begins at that place of the file.
  void addTable(Number root, std::size_t table) {
    const std::size_t begin = tail_.bytes.size();
    char* to = tail_.grow(tail_.nextObject() * kWidth + Format::kTrailerSize);
    const auto putOffsets = [&to](Numbers offsets, std::size_t place) {
      for (const Number offset : offsets) to = put(to, offset + static_cast<Number>(place));
    };
    const auto putNulls = [&](std::size_t count) {
      const Number null = shared_.offsets.front() + static_cast<Number>(sharedPlace());
      for (; count > 0; --count) to = put(to, null);
    };
    putOffsets(shared_.offsets, sharedPlace());
    putNulls(kSharedRoom - shared_.offsets.size() + dead_.objects);
    // Modulo 2^32 that is the place less what is not written any more.
    putOffsets(Numbers(own_.offsets).subspan(dead_.objects), Format::kMagic.size() - dead_.bytes);
    putOffsets(tail_.offsets, table - begin);
    putTrailer(to, {kWidth, kWidth, tail_.nextObject(), root, table});
  }

  const Sink& sink_;
  std::vector<Message> messages_;
  std::vector<Number> elements_;  // UIDs of these
  std::size_t dropped_ = 0;       // of the messages, at the beginning
  Extent dead_;                   // what these have in the piece

  Piece shared_;
  Piece own_{kSharedRoom, kSharedRoom};
  Piece tail_;
  std::vector<Number> keys_;    // UIDs of the message that was added last, in the order of its keys
  std::vector<Number> values_;  // likewise
  std::unordered_map<String, Number> sharedTexts_;                // UIDs
  std::vector<std::pair<std::vector<Number>, Number>> keyLists_;  // arrays of UIDs

  // In the second piece. "$null" is first, so that a UID of 0 stands for nil.
  const Number null_ = shared_.addUID(text(Archive::kNull));
  const Number class_ = text(Archive::kClassKey);
  const Number keysKey_ = text(Archive::kKeysKey);
  const Number elementsKey_ = text(Archive::kElementsKey);
  const Number archiverKey_ = text(Archive::kArchiverKey);
  const Number archiver_ = text(Archive::kArchiver);
  const Number versionKey_ = text(Archive::kVersionKey);
  const Number version_ = shared_.add(PlainObject(Archive::kVersion));
  const Number topKey_ = text(Archive::kTopKey);
  const Number objectsKey_ = text(Archive::kObjectsKey);
  const Number arrayClass_ = addClass("NSMutableArray", "NSArray");
  const Number dictionaryClass_ = addClass("NSMutableDictionary", "NSDictionary");
  const Number key_;
};

KeyedListArchiver::KeyedListArchiver(String key) : KeyedListArchiver(std::move(key), nullptr) {}

KeyedListArchiver::KeyedListArchiver(String key, Sink sink)
    : key_(std::move(key)), sink_(std::move(sink)) {}

KeyedListArchiver::~KeyedListArchiver() = default;

std::size_t KeyedListArchiver::count() const { return state_ ? state_->messages().size() : 0; }

const Dictionary::Snapshot& KeyedListArchiver::message(std::size_t index) const {
  return state_->messages()[index].entries;
}

// What an exception or a refusal leaves behind is not used again.

bool KeyedListArchiver::keep(std::size_t first, std::size_t count) {
  auto known = std::move(state_);
  if (count == 0) return true;
  known->keep(first, count);
  if (!known->isMostlyDead()) {
    state_ = std::move(known);
    return true;
  }
  return std::ranges::all_of(known->messages(),
                             [this](const Message& message) { return add(message.entries); });
}

bool KeyedListArchiver::add(Dictionary::Snapshot message) {
  auto known = state_ ? std::move(state_) : std::make_unique<State>(key_, sink_);
  if (!known->add(std::move(message))) return false;
  state_ = std::move(known);
  return true;
}

std::vector<std::string_view> KeyedListArchiver::archive() {
  auto known = state_ ? std::move(state_) : std::make_unique<State>(key_, sink_);
  if (!known->finish()) return {};
  state_ = std::move(known);
  return state_->pieces();
}

}  // namespace QVPlatform
