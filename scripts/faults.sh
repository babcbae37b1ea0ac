#!/usr/bin/env bash
# faults.sh [--quick] [OPERATION...]: builds the fault program, has each allocation and each call of
# the system fail in turn, and writes the table of docs/reliability.md. With --quick, which leaves out
# some allocations in the middle, and with names of operations nothing is written.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

scripts/setup.sh build test
cmake --preset dev >/dev/null
cmake --build --preset dev --target faults -- --quiet
exec build/dev/tests/faults/faults "$@"
