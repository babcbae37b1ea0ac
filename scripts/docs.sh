#!/usr/bin/env bash
# docs.sh: makes pages of the public headers' comments in build/docs/html, beginning with index.html.
# Each warning is printed, and is a failure.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

scripts/setup.sh docs
mkdir -p build
doxygen docs/Doxyfile
echo "build/docs/html/index.html"
