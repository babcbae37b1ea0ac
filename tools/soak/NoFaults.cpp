// In the place of the interposed functions where there can be none: nothing fails.

#include "tests/faults/Fault.h"

void armFault(const Fault&) {}
bool disarmFault() { return false; }
Exemption::Exemption(bool) : wasExempt_(false) {}
Exemption::~Exemption() { static_cast<void>(wasExempt_); }
