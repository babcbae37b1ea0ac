#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/String.h>

namespace QVPlatform {

/// What the embedding application tells the platform about itself.
///
/// What else it may set is set where it belongs:
/// - Networking/URLConnection.h: setMaximumResponseSize(), setMaximumTransferTime(),
///   setUserAgent(), setAcceptLanguage();
/// - SystemConfiguration/NetworkReachability.h: setSource();
/// - WebKit/WebEngine.h: setEngine();
/// - Foundation/Log.h: setLogSink();
/// - Device/Device.h: setIdentifierForVendorProvider(), setVendorName(),
///   setAdvertisingIdentifierProvider(), setSystemVersion().
///
/// Every setting has a working default; what is set, is set before the core starts. A default is
/// found out when it is first wanted, and stays for as long as the process runs, whatever happens
/// to the environment or to the program's file. A null or empty setting brings the default back.
///
/// Directories need not have names in UTF-8: one below such a directory, which is kept open then,
/// is told as "/proc/self/fd/<n>/...". That leads there as long as nobody closes the descriptor.
/// While it cannot be opened, a default one is told as below "/dev/null", where there is nothing;
/// it is tried again whenever it is wanted.
///
/// A relative directory that is set is taken from the directory that is the current one at that
/// moment. When that has been deleted or cannot be opened, the setting stays as it was, with a line
/// on the console log.
///
/// All operations may be called from any thread.
class QVPLATFORM_EXPORT Application {
 public:
  /// Reverse-DNS name of the application ("org.example.player"): names its container directory and
  /// its user defaults. Default: the file name of the program; if that is not UTF-8, with what is
  /// not ASCII percent-encoded.
  static String identifier();
  static void setIdentifier(String identifier);

  /// Version of the application ("2.1"), which requests may tell beside its identifier. Default:
  /// null, for none.
  static String version();
  static void setVersion(String version);

  /// Directory that holds the application's "Library", as an absolute path. Default: the identifier
  /// below $XDG_DATA_HOME, else below ~/.local/share; there a slash or zero byte in it is a hyphen,
  /// and "." and ".." get one behind them.
  /// It is made, with mode 0700, when the first file in it is wanted. Processes may share it for
  /// their user defaults; hits that wait for a restart belong to one process at a time.
  static String containerDirectory();
  static void setContainerDirectory(String directory);

  /// Path of "Library" in the container directory. Does not touch the disk.
  static String libraryDirectory();
  /// Makes that directory, and those above it, with mode 0700 where they are missing, and returns
  /// its path; that this failed shows when a file in it is opened.
  static String makeLibraryDirectory();

  /// Directory of the files shipped with the application (the main bundle). Default: "Resources"
  /// beside the program if there is one, else the program's own directory.
  static String resourceDirectory();
  static void setResourceDirectory(String directory);
};

}  // namespace QVPlatform
