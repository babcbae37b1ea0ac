#pragma once

// Casts and exceptions of the libraries go by type information, which the application's have too.
#if defined(__cplusplus) && !defined(__cpp_rtti)
#error "QVCore needs run-time type information: compile without -fno-rtti"
#endif

/// Marks what the shared library QVPlatform shows to its users; everything else is hidden.
#define QVPLATFORM_EXPORT __attribute__((visibility("default")))
