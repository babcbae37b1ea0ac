#pragma once

#include <QVPlatform/Foundation/Object.h>

namespace QVPlatform {

/// The processes in which a web engine runs its pages: web views of one pool share them.
///
/// What a pool consists of, only its engine knows. An application with a web engine of its own
/// derives from this and recognises its pool when the engine is asked for a web view. The default
/// engine shares no processes: it starts new ones for every script and ends them with the answer,
/// so that a pool changes nothing there.
class ProcessPool : public Object {};

}  // namespace QVPlatform
