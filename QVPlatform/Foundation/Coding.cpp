#include <QVPlatform/Foundation/Coding.h>

namespace QVPlatform {

Coding::~Coding() = default;

String Coding::classNameForCoder() const { return nullptr; }

}  // namespace QVPlatform
