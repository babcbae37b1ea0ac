#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/Value.h>

namespace QVPlatform {

/// The application's preferences: small values that are kept across launches, in the binary
/// property list "Library/Preferences/<identifier>.plist" of its container (mode 0600 in 0700).
///
/// The file is read at the first use. From then on values are read from memory, and changes stay in
/// memory until synchronize() brings both together; what another process wrote is seen from the
/// next synchronize() on.
///
/// Threads: every operation may be called from any thread. The standard one is never destroyed.
/// Nothing is thrown: when memory runs out, the console log says so, a value that was asked for is
/// nil, one that was set is not kept, and changes that were made before are kept for the next time.
class QVPLATFORM_EXPORT UserDefaults {
 public:
  static UserDefaults& standardUserDefaults();

  /// The value under the key, or nil. Text and bytes are shared, containers are the caller's own
  /// copy.
  Value objectForKey(const String& key) const;

  /// Keeps a copy of the value under the key; nil removes the key. A value that is not a property
  /// list or exceeds its limits (PropertyList::copy) is refused with a line on the console log, so
  /// that it does not stand in the way of the others. A null key is ignored.
  void setObjectForKey(const Value& value, const String& key);

  /// Sets the value under the key if `expected` (which may be nil) stands there, not only in memory
  /// but in the file too, and writes it through, in one step under the lock of synchronize(). The
  /// value that stands there afterwards: of several processes that try at the same moment one sets
  /// its value, and all get that. What this process set before and has yet to write counts as being
  /// in the file.
  /// It waits for that lock ten times as long as synchronize() does, since the outcome cannot be
  /// taken back. Where the file or its lock cannot be had even so, the value stands in memory until
  /// they can: then it is written if the file still holds `expected`, else the file's value takes
  /// its place. A file that is missing or damaged holds whatever is expected.
  Value exchangeObjectForKey(const Value& expected, const Value& value, const String& key);

  /// Removes all keys, in memory and in the file, those of other processes included. False as from
  /// synchronize(), by which the file has lost them later.
  bool removeAllObjects();

  /// Reads the file anew, lays the changes of this process over it and writes it whole, all under a
  /// lock between processes: of two processes that change different keys, none loses a change. A
  /// missing or damaged file is replaced by all that this process knows. False when the file could
  /// not be read or written, or somebody else held the lock for 0.2 seconds (once: before the lock
  /// was free or the file written again, nobody waits for it); the old file stays, and the changes
  /// are kept for the next time. Where there can be no lock, because the file system has none or
  /// something else is in the place of its file, the file is written without. What no file can hold
  /// is left out with a line on the console log.
  bool synchronize();

 private:
  struct State;
  explicit UserDefaults(State& state) noexcept;

  State& state_;
};

}  // namespace QVPlatform
