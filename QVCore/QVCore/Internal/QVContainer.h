#pragma once

/// The place on disk that the hits of this process wait in.
class QVContainer {
 public:
  QVContainer() = delete;

  /// Makes it this process's own, or else says on the console log that another one has it.
  static void claim();
};
