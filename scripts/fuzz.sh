#!/usr/bin/env bash
# fuzz.sh [SECONDS [NAME]]: builds the fuzzers with AddressSanitizer and UndefinedBehaviorSanitizer
# and runs each of them, or the one of that name, for so long (60 seconds), beginning with what lies
# in fuzz/corpus and with what earlier runs found, which build/corpus keeps. Prints how many inputs
# each one tried and how many of the libraries' branches it has been through. Fails when one finds a
# fault; the input lies in build/corpus then.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

seconds=${1:-60}
failed=0

# Prints the corpus of a fuzzer: the directory in fuzz/corpus.
corpus_of() {
  case $1 in
    CInterface) echo c ;;
    ConfigurationUpdate) echo configuration ;;
    *) echo "${1,,}" ;;
  esac
}

run() {
  local name=$1 corpus found=build/corpus/$1 log=build/corpus/$1.log
  corpus=$(corpus_of "$name")
  mkdir -p "$found"
  if ! build/fuzz/fuzz/"$name"Fuzzer -max_total_time="$seconds" -timeout=25 -rss_limit_mb=4096 \
    -print_final_stats=1 -artifact_prefix="$found-" "$found" fuzz/corpus/"$corpus" >"$log" 2>&1; then
    echo "$name: FAILED, see $log"
    failed=1
    return
  fi
  echo "$name: $(sed -nE 's/^stat::number_of_executed_units: //p' "$log") inputs," \
    "$(sed -nE 's/.* cov: ([0-9]+) .*/\1/p' "$log" | tail -1) places reached"
}

scripts/setup.sh build test fuzz
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -- --quiet
mkdir -p build/corpus
for source in fuzz/*"${2:-}"Fuzzer.cpp; do
  run "$(basename "$source" Fuzzer.cpp)"
done
exit "$failed"
