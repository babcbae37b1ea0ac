#pragma once

#include <QVCore/QVCoreConstants.h>
#include <QVPlatform/Archives/KeyedListArchiver.h>
#include <QVPlatform/Dispatch/OperationQueue.h>

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

/// The hits that wait, and their archive as it was at the last save, which the next one brings up
/// to date.
///
/// The queue keeps with each hit the mark that it was given when it was encoded, and marks tell
/// whether their hits may have changed. So the hits themselves, of which each lies somewhere else
/// in the memory, are looked at only if they may have, and if none has, only those at the ends:
/// most of the time of a change would go there, under the queue's lock.
///
/// Threads: one object is used by one thread at a time.
class QVKeptHits {
 public:
  /// Tells one encoding of one hit from all others: Operation::newMark(). 0 is none.
  using Mark = std::uint64_t;

  /// What has become of the list: some of the hits are in it still, one behind the other, and
  /// others have joined. It may hold the last reference to data, so it is to be destroyed where
  /// that may call out.
  struct Change {
    struct Joined {
      QVPlatform::Dictionary::Snapshot data;
      Mark mark;
    };

    std::size_t count() const { return stayed + joined.size(); }

    std::size_t first = 0;   // of those that stayed
    std::size_t stayed = 0;  // how many
    std::vector<Joined> joined;
    std::vector<QVPlatform::Dictionary::Snapshot> seen;
  };

  /// Finds the data of all the hits that wait. Takes the queue's lock.
  static void look(const QVPlatform::OperationQueue& queue,
                   std::vector<QVPlatform::Dictionary>& data);

  /// Finds out what has changed in the queue since encode(). Takes the queue's lock.
  void look(const QVPlatform::OperationQueue& queue, Change& change) const;
  /// Encodes what has changed. The archive is in the pieces, until the next call; there are none
  /// when the hits are not of the kind that can be kept, or memory is short: then nothing is kept.
  std::vector<std::string_view> encode(Change& change);

 private:
  bool lookAtEnds(const QVPlatform::OperationQueue& queue, Change& change) const;
  void lookAtAll(const QVPlatform::OperationQueue& queue, Change& change) const;
  std::size_t placeOf(Mark mark) const;
  bool isInPlace(const QVPlatform::Operation& operation, Mark mark, Change& change) const;
  bool isAsEncoded(const QVPlatform::Operation& operation, std::size_t index, Change& change) const;
  static Mark join(const QVPlatform::Operation& operation, Change& change);
  bool update(Change& change);

  QVPlatform::KeyedListArchiver archiver_{kQVFileOfflineHits};
  std::vector<Mark> marks_;  // of its messages, in ascending order
};
