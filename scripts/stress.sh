#!/usr/bin/env bash
# stress.sh [SECONDS [SEED]]: runs the stress test without and with ThreadSanitizer, for so long each
# (60 seconds). It prints its seed, which has it do the same again.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

export QV_STRESS_SECONDS=${1:-60}
[[ -z ${2:-} ]] || export QV_STRESS_SEED=$2

scripts/setup.sh build test
for preset in dev tsan-clang; do
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" --target QVStressTests -- --quiet
  TSAN_OPTIONS=suppressions=tests/support/tsan.supp build/$preset/tests/QVStressTests
done
