#!/usr/bin/env bash
# refusals.sh CMAKE SOURCE: what cannot be built is refused with its reason, and the page that tells of
# the options has each of them.
set -euo pipefail
cmake=$1 source=$2
build=$(mktemp -d)
trap 'rm -rf "$build"' EXIT

while IFS='|' read -r options reason; do
  read -ra options <<<"$options"
  said=$("$cmake" -S "$source" -B "$build" --fresh "${options[@]}" 2>&1) && { echo "built: ${options[*]}"; exit 1; }
  tr -s '\n ' ' ' <<<"$said" | grep -qF "$reason" || { echo "${options[*]}: $said"; exit 1; }
done <<'END'
-DCMAKE_CXX_FLAGS=-fno-rtti|needs run-time type information and exceptions
-DQVCORE_WEB_ENGINE=YES|ON, OFF or AUTO, and not YES
-DBUILD_SHARED_LIBS=OFF -DQVCORE_BUILD_EXAMPLES=ON|EXAMPLES needs shared libraries
-DBUILD_SHARED_LIBS=OFF -DQVCORE_WEB_ENGINE=ON|QVPlatform as a shared library
END

options=$(sed -nE 's/^(option|set)\((QVCORE_[A-Z_]+) .*/\2/p' "$source/cmake/QVOptions.cmake")
[[ $(wc -w <<<"$options") -ge 9 ]]
for option in $options; do
  grep -q "^| \`$option\` |" "$source/docs/packages.md" || { echo "no page tells of $option"; exit 1; }
done
