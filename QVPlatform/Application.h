#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/String.h>

namespace QVPlatform {

/// The one door through which the embedding application tells the platform about itself.
///
/// Every setting has a working default; what is set, is set before the core starts. All operations
/// may be called from any thread.
class QVPLATFORM_EXPORT Application {
 public:
  /// Reverse-DNS name of the application ("org.example.player"): names its container directory and
  /// its user defaults. Default: the file name of the program.
  static String identifier();
  static void setIdentifier(String identifier);

  /// Version of the application ("2.1"), which requests may tell beside its identifier. Default:
  /// null, for none.
  static String version();
  static void setVersion(String version);

  /// Directory that holds the application's "Library". Default: the identifier below
  /// $XDG_DATA_HOME, else below ~/.local/share.
  /// It is made, with mode 0700, when the first file in it is wanted.
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
