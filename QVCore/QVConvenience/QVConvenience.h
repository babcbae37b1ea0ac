#pragma once

// What makes the core shorter to use, from above: nothing of it is needed, and the core knows none
// of it.

#include <QVConvenience/QVHit.h>
#include <QVConvenience/QVObservation.h>
#include <QVConvenience/QVUserInfo.h>
