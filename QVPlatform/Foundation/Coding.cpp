#include <QVPlatform/Foundation/Coding.h>

namespace QVPlatform {

Coding::~Coding() = default;

}  // namespace QVPlatform
