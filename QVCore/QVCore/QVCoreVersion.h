#pragma once

// The version of the kit, for the preprocessor. The build takes it from here.

#define QVCORE_VERSION_MAJOR 4
#define QVCORE_VERSION_MINOR 7
#define QVCORE_VERSION_PATCH 4

/// One number that grows with each version: 40704 is 4.7.4.
#define QVCORE_VERSION \
  (QVCORE_VERSION_MAJOR * 10000 + QVCORE_VERSION_MINOR * 100 + QVCORE_VERSION_PATCH)
