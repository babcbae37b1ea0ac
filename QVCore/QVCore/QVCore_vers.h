#pragma once

#include <QVCore/Export.h>
#include <QVPlatform/Foundation/String.h>

/// Version and release of the core that runs; QVCoreVersion.h tells the one that is compiled with.
QVCORE_EXPORT extern const QVPlatform::String kQVCoreVersion;
QVCORE_EXPORT extern const QVPlatform::String kQVReleaseDate;
QVCORE_EXPORT extern const QVPlatform::String kQVReleaseTime;

/// The build's identification, in the form that what(1) finds in a library file.
QVCORE_EXPORT extern const char QVCoreVersionString[];
QVCORE_EXPORT extern const double QVCoreVersionNumber;
