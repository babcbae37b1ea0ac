#!/usr/bin/env bash
# fuzz.sh [SECONDS [NAME]]: builds the fuzzers with AddressSanitizer and UndefinedBehaviorSanitizer
# and runs each of them, or the one of that name, for so long (60 seconds), beginning with what lies
# in fuzz/corpus and with what earlier runs found, which build/corpus keeps. Prints how many inputs
# each one tried, and how much it ran of the source files that it is meant for. Fails when one finds
# a fault; the input lies in build/corpus then.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

seconds=${1:-60}
found=build/corpus
failed=0

declare -A meant_for=(
  [Answer]="AnswerHeader ContentCoding Gzip HTTPHeaderFields HTTPRedirection"
  [Archive]="ArchiveObjects BinaryPropertyListReader KeyedUnarchiver PropertyList
    XMLPropertyListReader XMLPropertyListText"
  [CInterface]="QVCNotifications QVJSONText"
  [ConfigurationUpdate]="QVConfigurationFile"
  [JSON]="JSONDocument JSONNumbers JSONSerialization"
  [Text]="NumberFormatter QVUtils RegularExpression URL"
  [UserDefaults]="UserDefaults"
)

run() {
  local name=$1 log=$found/$1.log
  mkdir -p "$found/$name"
  rm -f "$found/$name"-*.profraw
  if ! LLVM_PROFILE_FILE=$found/$name-%m.profraw build/fuzz/fuzz/"$name"Fuzzer \
    -max_total_time="$seconds" -timeout=25 -rss_limit_mb=4096 -print_final_stats=1 \
    -artifact_prefix="$found/$name-" "$found/$name" fuzz/corpus/"$name" >"$log" 2>&1; then
    echo "$name: FAILED, see $log"
    failed=1
    return
  fi
  echo "$name: $(sed -nE 's/^stat::number_of_executed_units: //p' "$log") inputs"
  print_coverage "$name"
}

# Prints how much it ran of the lines and branches of the files that it is meant for, and of each.
print_coverage() {
  llvm-profdata-14 merge -o "$found/$1.profdata" "$found/$1"-*.profraw
  llvm-cov-14 report -show-region-summary=false -show-branch-summary \
    -instr-profile "$found/$1.profdata" build/fuzz/QVCore/libQVCore.so \
    -object build/fuzz/QVPlatform/libQVPlatform.so 2>>"$found/$1.log" |
    awk -v names="${meant_for[$1]}" '
      function part(missed, all) {
        return sprintf("%5.1f %% of %d", all ? 100 * (1 - missed / all) : 100, all)
      }
      function row(name, missed, all, not_taken, branches) {
        printf "  %s: %s lines, %s branches\n", name, part(missed, all), part(not_taken, branches)
      }
      BEGIN { split(names, list); for (i in list) isMeant[list[i] ".cpp"] = 1 }
      { name = $1; sub(/.*\//, "", name) }
      isMeant[name] {
        row(name, $6, $5, $9, $8)
        missed += $6; lines += $5; not_taken += $9; branches += $8
      }
      END { row("together", missed, lines, not_taken, branches) }'
}

scripts/setup.sh build test fuzz
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -- --quiet
for source in fuzz/*"${2:-}"Fuzzer.cpp; do
  run "$(basename "$source" Fuzzer.cpp)"
done
exit "$failed"
