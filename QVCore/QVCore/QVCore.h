#pragma once

// All of the core's public interface.

#include <QVCore/QVCoreConstants.h>
#include <QVCore/QVCore_vers.h>
#include <QVCore/QVDebug.h>
#include <QVCore/QVEventListener.h>
#include <QVCore/QVEventSender.h>
#include <QVCore/QVLogger.h>
#include <QVCore/QVReachability.h>
#include <QVCore/QVSingleton.h>
