#pragma once

#include <QVPlatform/Dispatch/OperationQueue.h>
#include <QVPlatform/Foundation/Value.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>

/// The offline hits file, for the network manager alone.
///
/// Saves are not serialised: each takes a number together with its snapshot, and one that is older
/// than what lies in the file already does not replace it. No save is made in the middle of a
/// restore, when part of the hits is in the queue and part is not; the restore makes up for it.
///
/// Threads: all operations may be called from any thread. Nothing is thrown: memory that runs out
/// is told on the console log, the file stays as it is, and the next call mends it.
class QVOfflineHits {
 public:
  /// Gives the hit queue as it is at the moment, or null: the manager may get another one
  /// meanwhile. Called under a lock, so it must not call out.
  using HitQueue = std::function<std::shared_ptr<QVPlatform::OperationQueue>()>;

  /// Takes the data of a hit. Where that throws, the data is left as it was.
  using Add = std::function<void(QVPlatform::Dictionary&)>;

  /// Replaces the file by the data of the operations that wait; does nothing without a queue. A hit
  /// that cannot be archived is left out, and named on the console log; so is the reason why
  /// nothing could be written. How many waited; nothing without a queue, when it failed, and while
  /// hits are restored, when it is put off to their end.
  static std::optional<std::size_t> save(const HitQueue& hitQueue);

  /// From now on save() is called at each change of the queue, so that it is worth while to keep
  /// what it has encoded, which takes about as much memory as the file.
  static void expectChanges();

  /// Hands the data of each stored hit to `add`, in order, and removes the file; does nothing
  /// without a queue, or while it holds operations. What `add` throws is told on the console log
  /// and dropped, but for std::bad_alloc: then the hits from that one on are stored again. So are
  /// the hits behind the one at which a listener ends the thread. A file that is no archive stays,
  /// and so does one in XML beyond 1 MiB, which the kit never writes and which would take long to
  /// read.
  static void restore(const HitQueue& hitQueue, const Add& add);
};
