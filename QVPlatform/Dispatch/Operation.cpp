#include <QVPlatform/Dispatch/Operation.h>

namespace QVPlatform {

void Operation::main() {}

void Operation::releaseWork() {}

}  // namespace QVPlatform
