#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/Value.h>

#include <memory>
#include <string_view>
#include <vector>

namespace QVPlatform {

/// Archives a list of messages again and again while it changes, as KeyedArchiver archives it once,
/// at the cost of what has changed: for a queue that is saved whole whenever something enters or
/// leaves it. What joined at the end is encoded; what left at the head is left out; any other
/// change has the list encoded anew.
///
/// The messages are dictionaries of text, bytes, numbers and booleans. It keeps what it has encoded
/// of them, which takes about as much memory as the archive; nothing, once the list is empty.
///
/// Threads: one archiver is used by one thread at a time.
class QVPLATFORM_EXPORT KeyedListArchiver {
 public:
  /// The key under which the list stands in the archive.
  explicit KeyedListArchiver(String key);
  ~KeyedListArchiver();
  KeyedListArchiver(const KeyedListArchiver&) = delete;
  KeyedListArchiver& operator=(const KeyedListArchiver&) = delete;

  /// The archive, in pieces that are to be written one behind the other, before the next call. None
  /// when a message holds something else than the above, or when the archive would exceed
  /// PropertyList::kMaximumSize: that is KeyedArchiver's to deal with. std::bad_alloc passes
  /// through, and the next call begins anew.
  std::vector<std::string_view> archive(std::vector<Dictionary::Snapshot> messages);

 private:
  struct State;
  String key_;
  std::unique_ptr<State> state_;
};

}  // namespace QVPlatform
