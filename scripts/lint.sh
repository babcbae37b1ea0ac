#!/usr/bin/env bash
# lint.sh [format|tidy|fix]: checks the formatting of all sources, or runs clang-tidy over them, or
# both; "fix" formats them.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# How many findings clang-tidy may have. May fall, never rise.
ceiling=0
directories=(QVCore QVPlatform benchmarks examples fuzz packaging tests)

sources() { find "${directories[@]}" \( -name '*.h' -o -name '*.cpp' \) -print0; }

format() { sources | xargs -0 clang-format-14 --dry-run -Werror; }

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
