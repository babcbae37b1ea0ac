#pragma once

// All of the core's public interface.

#include <QVCore/QVConfigurationFile.h>
#include <QVCore/QVConfigurationFileFactory.h>
#include <QVCore/QVCoreConstants.h>
#include <QVCore/QVCoreInitialisation.h>
#include <QVCore/QVCoreVariables.h>
#include <QVCore/QVCoreVersion.h>
#include <QVCore/QVCore_vers.h>
#include <QVCore/QVDebug.h>
#include <QVCore/QVDynamicStore.h>
#include <QVCore/QVEventListener.h>
#include <QVCore/QVEventSender.h>
#include <QVCore/QVHTTPOperation.h>
#include <QVCore/QVLogLevel.h>
#include <QVCore/QVLogger.h>
#include <QVCore/QVNetworkManager.h>
#include <QVCore/QVParticipant.h>
#include <QVCore/QVReachability.h>
#include <QVCore/QVSingleton.h>
#include <QVCore/QVUserDefaults.h>
#include <QVCore/QVUtils.h>
