#!/usr/bin/env bash
# lint.sh [format|tidy|fix]: checks the formatting of all sources and that the rooms include each
# other one way, or runs clang-tidy over them, or both; "fix" formats them.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# How many findings clang-tidy may have. May fall, never rise.
ceiling=0
directories=(QVCore QVPlatform benchmarks examples fuzz packaging tests tools)

sources() { find "${directories[@]}" \( -name '*.h' -o -name '*.cpp' \) -print0; }

format() { sources | xargs -0 clang-format-14 --dry-run -Werror && rooms; }

# A file includes its own room and what lies on lower floors (docs/architecture.md has the table).
rooms() {
  grep -rEo '^[[:space:]]*#[[:space:]]*include[[:space:]]*[<"][^>"]+' QVPlatform QVCore/QVCore |
    sed -E 's/:[^<"]*([<"])/ \1 /' | awk '
      function room(path) {
        if (path ~ /^QVPlatform\/(Export|Dispatch\/(CallOut|ForkMutex)|Foundation\/((String|Property|Log)|Internal\/(Hash|HexadecimalDigit|Lasting|SignalShield)))\./) return "Floor"
        if (path ~ /^QVPlatform\/Application\./) return "Application"
        split(path, parts, "/")
        return parts[1] == "QVCore" ? "QVCore" : parts[2]
      }
      BEGIN {
        split("Floor 0 Application 1 Dispatch 1 Foundation 2 SystemConfiguration 3 WebKit 3 Device 3 QVCore 4", list)
        for (i = 1; i in list; i += 2) level[list[i]] = list[i + 1]
      }
      function refuse() { print $1 ": a file of " from " must not include " $3; wrong++ }
      { from = room($1); to = room($3); seen++ }
      $2 == "\"" { if ($3 ~ /\//) refuse(); next }  # only what lies beside the file
      $3 !~ /^QV(Platform|Core)\// { if (from == "QVCore" && $3 ~ /[.\/]/) refuse(); next }
      !(from in level) || !(to in level) || (from != to && level[to] >= level[from]) { refuse() }
      END { exit wrong > 0 || seen < 100 }'
}

tidy() {
  local log=build/dev/tidy.log findings count
  cmake --preset dev >/dev/null
  run-clang-tidy-14 -quiet -p build/dev "^$PWD/" 2>build/dev/tidy.err |
    sed 's/\x1b\[[0-9;]*m//g' >"$log" || true
  grep -q '^clang-tidy' "$log" || { cat build/dev/tidy.err; echo "clang-tidy did not run"; return 1; }
  # A header's finding comes once for each source file that includes it.
  findings=$(grep -E '^/.* (warning|error): ' "$log" | sort -u || true)
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
