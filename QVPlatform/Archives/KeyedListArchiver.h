#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/Value.h>

#include <functional>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

namespace QVPlatform {

/// Archives a list of messages again and again while it changes, as KeyedArchiver archives it once,
/// at the cost of what has changed: for a queue that is saved whole whenever something enters or
/// leaves it. Messages leave the list at its head and its end, and join it at the end; so a change
/// in the middle is made by adding anew what stands behind it.
///
/// The messages are dictionaries of text, bytes, numbers and booleans. It keeps what it has encoded
/// of them, which takes about as much memory as the archive; nothing, once the list is empty.
/// Whenever it refuses a message or throws std::bad_alloc, the list is empty afterwards.
///
/// Threads: one archiver is used by one thread at a time.
class QVPLATFORM_EXPORT KeyedListArchiver {
 public:
  /// Takes a part of the archive, in pieces that are to be written one behind the other at once;
  /// false when that fails.
  using Sink = std::function<bool(std::span<const std::string_view>)>;

  /// The key under which the list stands in the archive.
  explicit KeyedListArchiver(String key);
  /// For a list that is archived once and may be long: what is encoded goes to the sink while
  /// messages are added, instead of being kept. Then archive() answers with the rest, and of the
  /// operations that have to do with earlier messages there are count() and keep(0, 0) alone.
  KeyedListArchiver(String key, Sink sink);
  ~KeyedListArchiver();
  KeyedListArchiver(const KeyedListArchiver&) = delete;
  KeyedListArchiver& operator=(const KeyedListArchiver&) = delete;

  std::size_t count() const;
  /// A message of the list, as it was added; the index is below count().
  const Dictionary::Snapshot& message(std::size_t index) const;

  /// Leaves these in the list, and no others. Once most of what is kept is of messages that have
  /// left, all others are encoded anew; false if that fails.
  bool keep(std::size_t first, std::size_t count);
  /// Adds the message at the end. False when it holds something else than the above: it is
  /// KeyedArchiver's then to archive the list. False, too, when the sink says so.
  bool add(Dictionary::Snapshot message);
  /// The archive, in pieces that are to be written one behind the other, before the next call. None
  /// when it would exceed PropertyList::kMaximumSize.
  std::vector<std::string_view> archive();

 private:
  struct State;
  String key_;
  Sink sink_;
  std::unique_ptr<State> state_;
};

}  // namespace QVPlatform
