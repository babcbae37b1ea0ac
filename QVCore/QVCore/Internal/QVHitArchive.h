#pragma once

#include <QVPlatform/Archives/KeyedListArchiver.h>
#include <QVPlatform/Foundation/Array.h>
#include <QVPlatform/Foundation/Data.h>
#include <QVPlatform/Foundation/Dictionary.h>

#include <string_view>
#include <vector>

/// What hits look like in the file that they are saved to.
class QVHitArchive {
 public:
  QVHitArchive() = delete;

  /// Null when one of them cannot be archived, or all are too large together.
  static QVPlatform::Data of(const QVPlatform::Array& hits);
  /// Of all for which that is possible; the others are named on the console log.
  static QVPlatform::Data ofThoseThatFit(const std::vector<QVPlatform::Dictionary>& hits);
  /// The pieces that are kept by the archiver, which knows no other hits; none unless all of them
  /// are plain and there is memory.
  static std::vector<std::string_view> piecesOfPlain(
      const std::vector<QVPlatform::Dictionary>& hits, QVPlatform::KeyedListArchiver& archiver);
};
