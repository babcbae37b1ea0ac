#!/usr/bin/env bash
# bench.sh [--quick]: builds the benchmarks, runs them beside what they are compared with, and writes
# the ratios into docs/performance.md, with plots beside it. With --quick, which takes less than a
# minute once all is built, nothing is written, and a ratio that is far off its goal is an error.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

[[ $# -eq 0 || $* == --quick ]] || { sed -n '2,${/^#/!q; s/^# \{0,1\}//p}' "$0" >&2; exit 2; }
scripts/setup.sh build bench
cmake --preset benchmark >/dev/null
cmake --build --preset benchmark -- --quiet
exec python3 -B benchmarks/report.py "$@" build/benchmark
