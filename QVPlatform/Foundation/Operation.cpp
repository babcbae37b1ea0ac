#include <QVPlatform/Foundation/Operation.h>

namespace QVPlatform {

void Operation::main() {}

}  // namespace QVPlatform
