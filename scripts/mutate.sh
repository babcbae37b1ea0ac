#!/usr/bin/env bash
# mutate.sh [-f LIST] [WORD]: puts the faults of tests/mutations.txt, or of another list, into the
# libraries, one at a time and in a copy, runs the tests concerned, and prints the faults that none
# of them notices. With a word, only the faults in files whose path has it.
#
# A list has paragraphs. The first line of one names a source file or an internal header, and after
# a colon the test programs that answer for it; each line below is a fault: a text that the file has
# once, " ~> ", and what stands in its place, if anything. One that changes nothing that anybody could notice
# ends in " ## " and the reason: such a fault is to survive. Fails when another one does.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

list=tests/mutations.txt
[[ ${1:-} != -f ]] || { list=$2; shift 2; }
word=${1:-}

copy=build/mutations
tests=build/dev
caught=0
equivalent=0
survivors=()
misfits=()

# Prints "FILE<tab>PROGRAMS<tab>FAULT" for each fault that is asked for.
faults() {
  awk -v word="$word" '/^#/ || NF == 0 { next }
    !/ ~>/ { split($0, head, ": "); next }
    index(head[1], word) { print head[1] "\t" head[2] "\t" $0 }' "$list"
}

# The tests stay as they are: they load the copy's libraries in place of their own.
prepare() {
  local programs
  mapfile -t programs < <(faults | cut -f 2 | tr ' ' '\n' | sort -u)
  cmake --preset dev >/dev/null
  cmake --build --preset dev --target "${programs[@]}" -- --quiet
  rm -rf "$copy"
  mkdir -p "$copy"
  trap 'rm -rf "$copy"' EXIT
  git ls-files -z | xargs -0 cp --parents --preserve=timestamps -t "$copy"
  cmake -S "$copy" -B "$copy/out" -G Ninja -DCMAKE_BUILD_TYPE= \
    -DQVCORE_BUILD_TESTS=OFF -DQVCORE_BUILD_EXAMPLES=OFF >/dev/null
  build || { echo "mutate.sh: the libraries do not build" >&2; exit 1; }
  run_tests "${programs[@]}" || { echo "mutate.sh: the tests fail without a fault" >&2; exit 1; }
}

build() { ninja -C "$copy/out" QVPlatform QVCore >"$copy/log" 2>&1; }

run_tests() {
  local library=$PWD/$copy/out
  LD_LIBRARY_PATH=$library/QVCore:$library/QVPlatform ctest --test-dir "$tests" \
    --parallel "$(nproc)" --timeout 60 --stop-on-failure -L "^($(IFS='|'; echo "$*"))\$" \
    >"$copy/log" 2>&1
}

# Puts the fault into the copy; false when its text is not there exactly once.
put() {
  local path=$copy/$1 old=$2 new=$3 text rest
  text=$(<"$1")
  rest=${text/"$old"/}
  [[ $rest != "$text" && ${rest/"$old"/} == "$rest" ]] || return 1
  printf '%s\n' "${text/"$old"/"$new"}" >"$path"
}

try() {
  local file=$1 programs=$2 fault=${3%% ## *} reason=${3#* ## } verdict
  local new=${fault#* ~>}
  if ! put "$file" "${fault%% ~>*}" "${new# }" || ! build; then
    verdict="does not fit"
    misfits+=("$file: $fault")
  elif ! run_tests $programs; then
    verdict=$(sed -nE 's/^[[:space:]]*[0-9]+ - (.*) \((Failed|Timeout|SEGFAULT|Subprocess aborted|Bus error|ILLEGAL).*/by \1/p' "$copy/log" | head -1)
    caught=$((caught + 1))
  elif [[ $reason != "$3" ]]; then
    verdict="survived: $reason"
    equivalent=$((equivalent + 1))
  else
    verdict="SURVIVED"
    survivors+=("$file: $fault")
  fi
  echo "$file: $fault: $verdict"
  cp "$file" "$copy/$file"
}

scripts/setup.sh build test
prepare
while IFS=$'\t' read -r file programs fault <&3; do
  try "$file" "$programs" "$fault"
done 3< <(faults)

for fault in "${survivors[@]}"; do echo "SURVIVED: $fault"; done
for fault in "${misfits[@]}"; do echo "DOES NOT FIT: $fault"; done
echo "$caught caught, ${#survivors[@]} survived, $equivalent as is said, ${#misfits[@]} do not fit"
[[ ${#survivors[@]} -eq 0 && ${#misfits[@]} -eq 0 ]]
