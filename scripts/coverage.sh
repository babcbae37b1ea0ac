#!/usr/bin/env bash
# coverage.sh [LINES BRANCHES]: runs the suite on libraries that count what is run of them, and
# prints how many of their lines and branches that was, behind the numbers of those lines that
# nothing reached. Fails below so many per cent (95 and 85). docs/reliability.md says what counts as
# a line and as a branch, and which lines cannot be reached.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

lines=${1:-95}
branches=${2:-85}
out=build/coverage
# Tests that are built to count, too, for what is in headers alone, and those that load a library by
# its path. The others load the counting libraries in place of their own.
programs=(QVConfigurationFileTests QVConfigurationUpdateTests QVConvenienceTests QVCoreVariablesTests
  QVEventBusTests QVNetworkManagerGateTests QVNetworkManagerTests QVReachabilityTests StringTests
  URLConnectionFailureTests WebViewTests)
counting="^($(IFS='|'; echo "${programs[*]}")|PythonPackage)\$"

build() {
  cmake --preset dev >/dev/null
  cmake --build --preset dev -- --quiet
  cmake --preset coverage >/dev/null
  cmake --build --preset coverage --target QVPlatform/all QVCore/all "${programs[@]}" -- --quiet
}

# run_tests DIRECTORY OPTION...: ctest there, on the counting libraries.
run_tests() {
  local log=$out/${1##*/}-tests.log
  LLVM_PROFILE_FILE=$PWD/$out/profiles/%c%4m.profraw \
    LD_LIBRARY_PATH=$PWD/$out/QVCore:$PWD/$out/QVPlatform \
    ctest --test-dir "$1" --parallel "$(nproc)" "${@:2}" >"$log" 2>&1 ||
    { tail -20 "$log"; echo "coverage.sh: see $log" >&2; exit 1; }
}

# cov COMMAND [OPTION...]: llvm-cov of the libraries, and of what the counting tests make of headers.
cov() {
  local objects=() object
  for object in "$out"/QVPlatform/lib*.so "${programs[@]/#/$out/tests/}"; do
    objects+=(-object "$object")
  done
  llvm-cov-14 "$@" -instr-profile "$out/all.profdata" "$out/QVCore/libQVCore.so" "${objects[@]}" \
    -ignore-filename-regex '^/usr/|/(tests|build)/' 2>"$out/llvm-cov.log"
}

# "FILE: LINE FIRST-LAST ..." of each file with lines that nothing reached.
print_missing() {
  cov export -format=lcov | awk -F '[:,]' -v root="$PWD/" '
    function flush() {
      if (first) list = list " " (first == last ? first : first "-" last)
      first = 0
    }
    /^SF:/ { file = substr($0, 4); sub(root, "", file); list = "" }
    /^DA:/ && $3 > 0 { flush() }
    /^DA:/ && $3 == 0 { if (!first) first = $2; last = $2 }
    /^end_of_record/ { flush(); if (list) print file ":" list }'
}

# Prints the sums, and is false when they are too low.
judge() {
  cov report -show-region-summary=false -show-branch-summary | awk -v lines="$lines" \
    -v branches="$branches" '/^TOTAL/ {
      printf "%.2f %% of %d lines, %.2f %% of %d branches\n", $7, $5, $10, $8
      isEnough = $7 + 0 >= lines && $10 + 0 >= branches
    }
    END { exit !isEnough }'
}

scripts/setup.sh build test web coverage
build
rm -rf "$out/profiles"
run_tests build/dev --exclude-regex '^Package\.' --label-exclude "$counting"
run_tests "$out" --label-regex "$counting"
llvm-profdata-14 merge -o "$out/all.profdata" "$out"/profiles/*.profraw
print_missing
judge
