#pragma once

// What the tests have in common: all public headers, what of the standard library and the system
// most of them use, and files and processes of their own.

#include <QVCore/QVCore.h>
#include <QVPlatform/Application.h>
#include <QVPlatform/Archives/JSONDocument.h>
#include <QVPlatform/Archives/JSONSerialization.h>
#include <QVPlatform/Archives/KeyedArchiver.h>
#include <QVPlatform/Archives/KeyedUnarchiver.h>
#include <QVPlatform/Archives/PropertyList.h>
#include <QVPlatform/Device/Device.h>
#include <QVPlatform/Dispatch/CallGate.h>
#include <QVPlatform/Dispatch/MainQueue.h>
#include <QVPlatform/Dispatch/Notification.h>
#include <QVPlatform/Dispatch/NotificationCenter.h>
#include <QVPlatform/Dispatch/Operation.h>
#include <QVPlatform/Dispatch/OperationQueue.h>
#include <QVPlatform/Dispatch/SerialQueue.h>
#include <QVPlatform/Files/AtomicFile.h>
#include <QVPlatform/Files/Bundle.h>
#include <QVPlatform/Files/FileManager.h>
#include <QVPlatform/Files/TakenFile.h>
#include <QVPlatform/Files/UserDefaults.h>
#include <QVPlatform/Foundation/Array.h>
#include <QVPlatform/Foundation/CallOut.h>
#include <QVPlatform/Foundation/ClassRegistry.h>
#include <QVPlatform/Foundation/Coding.h>
#include <QVPlatform/Foundation/Data.h>
#include <QVPlatform/Foundation/Date.h>
#include <QVPlatform/Foundation/Dictionary.h>
#include <QVPlatform/Foundation/Error.h>
#include <QVPlatform/Foundation/ForkMutex.h>
#include <QVPlatform/Foundation/KeyValueObserver.h>
#include <QVPlatform/Foundation/Log.h>
#include <QVPlatform/Foundation/Null.h>
#include <QVPlatform/Foundation/Object.h>
#include <QVPlatform/Foundation/Property.h>
#include <QVPlatform/Foundation/String.h>
#include <QVPlatform/Foundation/UUID.h>
#include <QVPlatform/Foundation/Value.h>
#include <QVPlatform/Networking/HTTPHeaderFields.h>
#include <QVPlatform/Networking/HTTPURLResponse.h>
#include <QVPlatform/Networking/URL.h>
#include <QVPlatform/Networking/URLConnection.h>
#include <QVPlatform/Networking/URLRequest.h>
#include <QVPlatform/SystemConfiguration/NetworkReachability.h>
#include <QVPlatform/SystemConfiguration/ReachabilitySource.h>
#include <QVPlatform/Text/CharacterSet.h>
#include <QVPlatform/Text/DateFormatter.h>
#include <QVPlatform/Text/NumberFormatter.h>
#include <QVPlatform/Text/RegularExpression.h>
#include <QVPlatform/WebKit/ProcessPool.h>
#include <QVPlatform/WebKit/WebEngine.h>
#include <QVPlatform/WebKit/WebView.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <iostream>
#include <iterator>
#include <latch>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <random>
#include <semaphore>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "Processes.h"
#include "TemporaryDirectory.h"

using namespace QVPlatform;
using namespace QVTest;
using namespace std::chrono_literals;
using namespace std::string_literals;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;
using testing::Truly;
