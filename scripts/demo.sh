#!/usr/bin/env bash
# demo.sh: installs what the build needs, builds, and runs the tour of the core.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# Runs a step whose output is of interest only when it fails.
quietly() {
  mkdir -p build
  "$@" >build/demo.log 2>&1 || { cat build/demo.log >&2; echo "demo.sh: failed: $*" >&2; exit 1; }
}

scripts/setup.sh build
quietly cmake --preset demo
echo "Building (a few minutes the first time)"
quietly cmake --build --preset demo --target tour send_hits
exec build/demo/examples/tour "$@"
