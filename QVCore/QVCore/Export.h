#pragma once

/// Marks what the shared library QVCore shows to its users; everything else is hidden.
#define QVCORE_EXPORT __attribute__((visibility("default")))
