#pragma once

/// Marks what the shared library QVPlatform shows to its users; everything else is hidden.
#define QVPLATFORM_EXPORT __attribute__((visibility("default")))
