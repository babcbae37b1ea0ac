#!/usr/bin/env bash
# lint.sh [format|tidy|fix]: checks the formatting of all sources, that the rooms include each other
# one way, and that the faults of scripts/mutate.sh fit them, or runs clang-tidy over them, or both;
# "fix" formats them.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# How many findings clang-tidy may have. May fall, never rise.
ceiling=0
directories=(QVCore QVPlatform benchmarks examples fuzz packaging tests tools)

sources() { find "${directories[@]}" \( -name '*.h' -o -name '*.cpp' \) -print0; }

format() { sources | xargs -0 clang-format-14 --dry-run -Werror && rooms && scripts/mutate.sh --quick; }

# A file includes its own room and those that its row of the table in docs/architecture.md names;
# the core, and what stands on it, include public headers alone, and none of the system's.
rooms() {
  grep -rEo '^[[:space:]]*#[[:space:]]*include[[:space:]]*[<"][^>"]+' QVPlatform QVCore/QV* |
    sed -E 's/:[^<"]*([<"])/ \1 /' | awk '
      function room(path) {
        split(path, parts, "/")
        if (parts[1] != "QVPlatform") return parts[2] == "QVConvenience" ? parts[2] : parts[1]
        sub(/\..*/, "", parts[2])
        return parts[2] == "Export" ? "Foundation" : parts[2]
      }
      function isAbove(one) { return one ~ /^QV/ }  # the platform
      function refuse() { print $1 ": a file of " from " must not include " $3; wrong++ }
      NR == FNR && !/^\| `QV[A-Za-z]*\// { next }
      NR == FNR {
        split($0, columns, / *\| */)
        name = room(substr(columns[2], 2, length(columns[2]) - 2))
        uses[name] = "`" name "`" columns[4]
        next
      }
      { from = room($1); to = room($3); seen++ }
      $2 == "\"" { if ($3 ~ /\//) refuse(); next }  # only what lies beside the file
      $3 !~ /^QV(Platform|Core|Convenience)\// { if (isAbove(from) && $3 ~ /[.\/]/) refuse(); next }
      !(from in uses) || !(to in uses) { refuse(); next }
      isAbove(from) && from != to && $3 ~ /Internal\/|\/.*\/.*\// { refuse(); next }
      isAbove(from) && !isAbove(to) || from == to { next }
      index(uses[from], "`" to "`") == 0 { refuse() }
      END { exit wrong > 0 || seen < 100 }' docs/architecture.md -
}

# The commands of the build, without what clang does not know: gcc's precompiled headers, for which it
# would not read the file, and some of its options.
commands() {
  local unknown='-Winvalid-pch -include [^ ]+/cmake_pch\.hxx'
  unknown+='|-fno-align-(functions|jumps)|-fno-reorder-blocks-and-partition'
  mkdir -p build/tidy
  cmake --preset dev >/dev/null
  sed -E "s#($unknown)##g" build/dev/compile_commands.json >build/tidy/compile_commands.json
}

tidy() {
  local log=build/tidy/log findings count
  commands
  run-clang-tidy-14 -quiet -p build/tidy "^$PWD/" 2>build/tidy/errors |
    sed 's/\x1b\[[0-9;]*m//g' >"$log" || true
  grep -q '^clang-tidy' "$log" || { cat build/tidy/errors; echo "clang-tidy did not run"; return 1; }
  # A header's finding comes once for each source file that includes it.
  findings=$(grep -E '(warning|error): ' "$log" | sort -u || true)
  echo "${findings//$PWD\//}"
  count=$(grep -c . <<<"$findings" || true)
  echo "clang-tidy: $count findings, $ceiling allowed"
  [[ $count -le $ceiling ]]
}

case ${1:-both} in
  format) format ;;
  tidy) tidy ;;
  both) format && tidy ;;
  fix) sources | xargs -0 clang-format-14 -i ;;
  *) echo "lint.sh [format|tidy|fix]" >&2; exit 2 ;;
esac
