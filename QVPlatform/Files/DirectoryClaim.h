#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/String.h>

namespace QVPlatform {

/// Claims a directory for this process, for as long as it runs or until it claims another one.
/// False when a process that lives has claimed it before, or this process's parent has, before a
/// fork(). It is a word among those who ask, and keeps nobody from using the directory.
///
/// What claims it is a lock on the directory itself, which ends with the process, however that
/// ends. Where there are no locks, or the directory cannot be opened, the answer is true.
///
/// Threads: may be called from any thread.
QVPLATFORM_EXPORT bool claimDirectoryAtPath(const String& path);

}  // namespace QVPlatform
