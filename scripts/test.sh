#!/usr/bin/env bash
# test.sh [STEP...]: installs what the tests need and runs these steps, one after the other:
#   format   the formatting of all sources, which room includes which, and what scripts/mutate.sh puts in
#   tidy     clang-tidy
#   docs     the pages of the interface (scripts/docs.sh)
#   PRESET   configures, builds and runs the whole suite: dev, asan, tsan, asan-clang, tsan-clang, or
#            release, which builds the benchmarks, too
#   cross    the quick form of scripts/cross.sh, for a big-endian processor
#   bench    the quick form of scripts/bench.sh
#   all      what CI runs: format docs dev asan tsan-clang cross bench
# Without a step: format dev. Ends with the number of passed, failed and skipped tests, in which a
# step that broke off counts as one that failed; above it stands what each skipped test lacks.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

known=(format tidy docs dev release asan tsan asan-clang tsan-clang cross bench)

passed=0
failed=0
skipped=0
broken=()
lacking=()

# Prints the comment at the head of this file, below the step that nobody knows.
show_usage() {
  [[ $1 == -h || $1 == --help ]] || echo "test.sh: unknown step $1" >&2
  sed -n '2,${/^#/!q; s/^# \{0,1\}//p}' scripts/test.sh >&2
  exit 2
}

break_off() {
  echo "test.sh: $1 FAILED" >&2
  broken+=("$1")
  failed=$((failed + 1))
}

# Runs the suite of a preset and adds up its summary.
run_suite() {
  local preset=$1 log=build/$1/test.log counts
  # Many tests wait for something most of their time.
  ctest --preset "$preset" --parallel "$((2 * $(nproc)))" 2>&1 | tee "$log" || broken+=("$preset: tests")
  counts=$(sed -nE 's/^[0-9]+% tests passed, ([0-9]+) tests? failed out of ([0-9]+)$/\1 \2/p' "$log")
  [[ -n $counts ]] || { break_off "$preset: no summary of ctest"; return; }
  count_skipped "$preset" "$log"
  failed=$((failed + ${counts% *}))
  passed=$((passed + ${counts#* } - ${counts% *} - skipped_here))
}

# ctest counts the tests that it skipped among those that passed. Why, is in what they printed: the
# line behind GoogleTest's mark, or behind that of a program.
count_skipped() {
  local names name reasons=build/$1/Testing/Temporary/LastTest.log
  names=$(sed -nE 's/^[[:space:]]*[0-9]+ - (.*) \(Skipped\)$/\1/p' "$2")
  skipped_here=$(grep -c . <<<"$names" || true)
  skipped=$((skipped + skipped_here))
  while read -r name; do
    [[ -z $name ]] || lacking+=("$1: $name: $(
      sed -n "/ Testing: ${name//\//\\/}\$/,/^Test time/p" "$reasons" |
        sed -nE '/: Skipped$/{n;p}; s/^Skipped: (.*)/\1/p')")
  done <<<"$names"
}

run_preset() {
  cmake --preset "$1" >/dev/null || { break_off "$1: configuration"; return; }
  cmake --build --preset "$1" -- --quiet || { break_off "$1: build"; return; }
  run_suite "$1"
}

# Packages for another processor may be out of reach where those of this one are installed already.
run_cross() {
  local status=0
  scripts/cross.sh --quick s390x || status=$?
  if [[ $status -eq 77 ]]; then
    skipped=$((skipped + 1))
    lacking+=("cross: the packages of s390x, which could not be fetched")
  elif [[ $status -ne 0 ]]; then
    break_off cross
  fi
}

run_step() {
  local start=$SECONDS
  echo "== $1"
  case $1 in
    format | tidy) scripts/lint.sh "$1" || break_off "$1" ;;
    docs) scripts/docs.sh || break_off "$1" ;;
    cross) run_cross ;;
    bench) scripts/bench.sh --quick || break_off "$1" ;;
    *) run_preset "$1" ;;
  esac
  echo "== $1: $((SECONDS - start)) s"
}

steps=("$@")
groups=(build test)
[[ $# -gt 0 ]] || steps=(format dev)
if [[ ${steps[*]} == all ]]; then
  steps=(format docs dev asan tsan-clang cross bench)
  groups+=(web loops)  # what would be left out of the build without them
fi

for step in "${steps[@]}"; do
  [[ " ${known[*]} " == *" $step "* ]] || show_usage "$step"
  [[ $step != release ]] || groups+=(bench)
done

scripts/setup.sh "${groups[@]}"
for step in "${steps[@]}"; do run_step "$step"; done

for step in "${broken[@]}"; do echo "FAILED: $step"; done
for test in "${lacking[@]}"; do echo "SKIPPED: $test"; done
if [[ $skipped -gt 0 ]]; then
  echo "They run as root or with user namespaces (sysctl kernel.unprivileged_userns_clone=1), with"
  echo "/dev/net/tun and a default route, and, for the web engine, after: scripts/setup.sh web"
fi
echo "$passed passed, $failed failed, $skipped skipped"
[[ $failed -eq 0 && ${#broken[@]} -eq 0 ]]
