#!/usr/bin/env bash
# soak.sh [OPTION...]: builds the soak, optimised, and runs it: 100,000 hits in ten minutes over
# processes that are killed. The options are the program's; see docs/soak.md.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

scripts/setup.sh build
cmake --preset demo >/dev/null
cmake --build --preset demo --target soak -- --quiet
exec build/demo/tools/qv-soak "$@"
