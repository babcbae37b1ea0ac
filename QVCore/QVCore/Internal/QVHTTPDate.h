#pragma once

#include <QVPlatform/Foundation/String.h>

#include <cstdint>

/// The time, in seconds since 1970, as fields of an HTTP header have it: "Thu, 01 Jan 1970 00:00:00
/// GMT". Throws std::bad_alloc when memory is short.
QVPlatform::String QVHTTPDate(std::uint64_t seconds);
