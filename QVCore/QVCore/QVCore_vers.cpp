#include <QVCore/QVCore_vers.h>

#include <QVCore/QVCoreVersion.h>

using QVPlatform::String;
using QVPlatform::operator""_string;  // NOLINT(misc-unused-using-decls)

static_assert(QVCORE_VERSION == 40704, "the text below is another version's");
constexpr String kQVCoreVersion = "4.7.4"_string;
constexpr String kQVReleaseDate = "08/03/2021"_string;
constexpr String kQVReleaseTime = "14:48:57"_string;

const char QVCoreVersionString[] = "@(#)PROGRAM:QVCore  PROJECT:QVCore-1\n";
const double QVCoreVersionNumber = 1.0;
