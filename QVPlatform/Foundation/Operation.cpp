#include <QVPlatform/Foundation/Operation.h>

namespace QVPlatform {

void Operation::main() {}

void Operation::releaseWork() {}

}  // namespace QVPlatform
