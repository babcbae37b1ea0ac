#!/usr/bin/env bash
# mutate.sh [--quick] [-f LIST] [WORD]: puts the faults of tests/mutations.txt, or of another list,
# into the libraries, one at a time and in copies, a copy for each processor, runs the tests concerned,
# the quickest first, and prints the faults that none of them notices. With a word, only the faults in
# files whose path has it. --quick only looks whether each of them still fits its file.
#
# A list has paragraphs. The first line of one names a source file or an internal header, and after
# a colon the test programs that answer for it; each line below is a fault: a text that the file has
# once, " ~> ", and what stands in its place, if anything; "⏎" is the end of a line in them. One that
# changes nothing that anybody could notice ends in " ## " and the reason: such a fault is to survive.
# Fails when another one does.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

quick=
[[ ${1:-} != --quick ]] || { quick=1; shift; }
list=tests/mutations.txt
[[ ${1:-} != -f ]] || { list=$2; shift 2; }
word=${1:-}

copies=$PWD/build/mutations
tests=$PWD/build/dev/tests
limit=40  # seconds for a test, which a fault may cause to wait for ever

# Prints "FILE<tab>PROGRAMS<tab>FAULT" for each fault that is asked for.
faults() {
  awk -v word="$word" '/^#/ || NF == 0 { next }
    !/ ~>/ { split($0, head, ": "); next }
    index(head[1], word) { print head[1] "\t" head[2] "\t" $0 }' "$list"
}

# Runs the command once for each copy, which is $copy in it, and all of them at the same time.
each_copy() {
  local copy
  for copy in $(seq -f "$copies/%g" "$(nproc)"); do "$@" & done
  wait
}

# Prints the lines of a file that fall to the copy.
part() { awk -v n="$(nproc)" -v i="${copy##*/}" 'NR % n == i % n' "$1"; }

# Builds what a change of the file concerns; a header of the platform may lie in both libraries.
build() {
  local library=QVCore
  [[ ${1:-} != QVPlatform/*.cpp ]] || library=QVPlatform
  ninja -C "$copy/out" -j 1 "$library" >"$copy/log" 2>&1
}

make_copy() {
  mkdir -p "$copy"
  git ls-files -z | xargs -0 cp --parents --preserve=timestamps -t "$copy"
  # What a file includes takes most of the time to compile it, and is the same for nearly all faults.
  cat >>"$copy/CMakeLists.txt" <<'END'
target_precompile_headers(QVPlatform PRIVATE <functional> <map> <memory> <string> <vector>
  <QVPlatform/Dispatch/OperationQueue.h> <QVPlatform/Networking/URLConnection.h>)
target_precompile_headers(QVCore PRIVATE <QVCore/QVCore.h>)
END
  cmake -S "$copy" -B "$copy/out" -G Ninja -DCMAKE_BUILD_TYPE= -DCMAKE_CXX_COMPILER_LAUNCHER= \
    -DQVCORE_BUILD_TESTS=OFF -DQVCORE_BUILD_EXAMPLES=OFF >/dev/null
  build || echo "the libraries do not build" >>"$copies/failures"
}

# Prints the tests of a program as "PROGRAM SUITE.TEST".
tests_of() {
  "$tests/$1" --gtest_list_tests | awk -v program="$1" '/^[^ ]/ { suite = $1 }
    /^ / { print program, suite $1 }'
}

# The tests stay as they are: they load the copy's libraries in place of their own.
run_test() {
  (cd "$tests" && LD_LIBRARY_PATH=$copy/out/QVCore:$copy/out/QVPlatform \
    timeout --kill-after 1 "$limit" "./$1" --gtest_filter="$2" >"$copy/test.log" 2>&1)
}

# Notes each test with the time that it takes without a fault.
time_tests() {
  local program test start
  while read -r program test; do
    start=${EPOCHREALTIME/./}
    run_test "$program" "$test" || echo "fails without a fault: $test" >>"$copies/failures"
    echo "$((${EPOCHREALTIME/./} - start)) $program $test"
  done < <(part "$copies/tests") >"$copy/times"
}

check() {
  [[ -f $copies/failures ]] || return 0
  sed 's/^/mutate.sh: /' "$copies/failures" >&2
  exit 1
}

prepare() {
  local programs program
  mapfile -t programs < <(faults | cut -f 2 | tr ' ' '\n' | sort -u)
  cmake --preset dev >/dev/null
  cmake --build --preset dev --target "${programs[@]}" -- --quiet
  rm -rf "$copies"
  each_copy make_copy
  check
  for program in "${programs[@]}"; do tests_of "$program"; done >"$copies/tests"
  each_copy time_tests
  check
  sort -n "$copies"/*/times | cut -d ' ' -f 2- >"$copies/tests"  # the quickest first
  faults >"$copies/faults"
}

# Prints the file with the fault in it; false when its text is not there exactly once.
with_fault() {
  local old=${2//⏎/$'\n'} new=${3//⏎/$'\n'} text rest
  text=$(<"$1")
  rest=${text/"$old"/}
  [[ $rest != "$text" && ${rest/"$old"/} == "$rest" ]] || return 1
  printf '%s\n' "${text/"$old"/"$new"}"
}

look_whether_all_fit() {
  local file programs fault status=0
  while IFS=$'\t' read -r file programs fault; do
    with_fault "$file" "${fault%% ~>*}" "" >/dev/null || { echo "$file: $fault: DOES NOT FIT"; status=1; }
  done < <(faults)
  return "$status"
}

# Prints the first test of the programs that fails.
first_failure() {
  local program test
  while read -r program test; do
    run_test "$program" "$test" || { echo "$test"; return; }
  done < <(grep -E "^(${1// /|}) " "$copies/tests")
}

try() {
  local file=$1 fault=${3%% ## *} reason=${3#* ## } verdict new test
  new=${fault#* ~>}
  if ! with_fault "$file" "${fault%% ~>*}" "${new# }" >"$copy/$file" || ! build "$file"; then
    verdict="DOES NOT FIT"
  elif test=$(first_failure "$2") && [[ -n $test ]]; then
    verdict="caught by $test"
  elif [[ $reason != "$3" ]]; then
    verdict="equivalent: $reason"
  else
    verdict="SURVIVED"
  fi
  echo "$file: $fault: $verdict" | tee -a "$copies/verdicts"
  cp "$file" "$copy/$file"
}

try_all() {
  local file programs fault
  while IFS=$'\t' read -r file programs fault <&3; do
    try "$file" "$programs" "$fault"
  done 3< <(part "$copies/faults")
}

count() { grep -c ": $1" "$copies/verdicts" || true; }

if [[ -n $quick ]]; then
  look_whether_all_fit
  exit
fi
scripts/setup.sh build test
trap 'kill $(jobs -p) 2>/dev/null; rm -rf "$copies"' EXIT
prepare
each_copy try_all

grep -E ': (SURVIVED|DOES NOT FIT)$' "$copies/verdicts" && status=1 || status=0
echo "$(count 'caught by') caught, $(count SURVIVED) survived, $(count equivalent) as is said," \
  "$(count 'DOES NOT FIT') do not fit"
exit "$status"
