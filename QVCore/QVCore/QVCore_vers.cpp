#include <QVCore/QVCore_vers.h>

using QVPlatform::String;

namespace {

constinit String::Literal versionText{"4.7.4"};
constinit String::Literal dateText{"08/03/2021"};
constinit String::Literal timeText{"14:48:57"};

}  // namespace

constexpr String kQVCoreVersion{versionText};
constexpr String kQVReleaseDate{dateText};
constexpr String kQVReleaseTime{timeText};

const char QVCoreVersionString[] = "@(#)PROGRAM:QVCore  PROJECT:QVCore-1\n";
const double QVCoreVersionNumber = 1.0;
